// SPDX-License-Identifier: MIT
// Texts as the bytes that the owners take.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace norv::test {

inline std::span<const std::byte> bytes_of(const std::string& text) {
    return std::as_bytes(std::span(text));
}

inline std::span<std::byte> buffer_of(std::string& text) {
    return std::as_writable_bytes(std::span(text));
}

// More bytes than 32 bits can count, where a span can have them; there is memory for the first one only.
inline constexpr bool has_huge_spans = sizeof(size_t) > 4;
inline std::span<std::byte> huge_span() {
    static std::byte first{};
    return {&first, static_cast<size_t>(0x1'0000'0001ULL)};
}

}  // namespace norv::test
