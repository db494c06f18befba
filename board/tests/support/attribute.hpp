// SPDX-License-Identifier: MIT
// Attributes of the kernel, as a board test looks at them to see what a call has done.
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace norv::board {

// The whole text without the newline at its end; empty when it cannot be read.
inline std::string attribute(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    std::string value = text.str();
    if (value.ends_with('\n')) {
        value.pop_back();
    }
    return value;
}

// A 32-bit register of a page that a driver shows in this file, as the driver sees it.
inline uint32_t register_in(const std::string& path, uint32_t offset) {
    uint32_t value = 0;
    std::ifstream page(path, std::ios::binary);
    page.seekg(offset);
    page.read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
}

// Waits until a condition holds; false when it does not within ten seconds, far longer than anything takes.
template <typename condition>
bool comes_true(condition holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace norv::board
