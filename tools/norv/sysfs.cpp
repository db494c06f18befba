// SPDX-License-Identifier: MIT
#include "sysfs.hpp"

#include <string.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "norv_file.h"

namespace norv::tool {

namespace {

// A page is what an attribute has at most.
constexpr uint32_t attribute_size = 4096;

uint32_t read_text(const std::string& path, std::string& content) {
    content.resize(attribute_size);
    auto length = static_cast<uint32_t>(content.size());
    const uint32_t status = norv_read_device(content.data(), &length, "%s", path.c_str());
    content.resize(status == NORV_STATUS_OK ? length : 0);
    if (!content.empty() && content.back() == '\n') {
        content.pop_back();
    }
    return status;
}

}  // namespace

std::string attribute(const std::string& thing, const std::string& path, causes usual) {
    std::string content;
    must(thing, read_text(path, content), usual);
    return content;
}

std::optional<std::string> attribute_if_there(const std::string& path) {
    std::string content;
    return read_text(path, content) == NORV_STATUS_OK ? std::optional{content} : std::nullopt;
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator{directory, missing}) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end(), [](const auto& first, const auto& second) {
        return strverscmp(first.c_str(), second.c_str()) < 0;
    });
    return names;
}

std::optional<uint32_t> number_behind(const std::string& name, const std::string& prefix) {
    uint32_t number = 0;
    if (!name.starts_with(prefix)) {
        return std::nullopt;
    }
    const char* end = name.data() + name.size();
    const auto parsed = std::from_chars(name.data() + prefix.size(), end, number);
    return parsed.ec == std::errc{} && parsed.ptr == end ? std::optional{number} : std::nullopt;
}

}  // namespace norv::tool
