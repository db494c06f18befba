// SPDX-License-Identifier: MIT
#include "text.hpp"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace norv::tool {

namespace {

// The bytes of a character of UTF-8 by its first two: what begins an overlong form, a surrogate or a number
// above U+10FFFF is not a character.
size_t expected_length(unsigned char first, unsigned char second) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4 || (first == 0xE0 && second < 0xA0) ||
        (first == 0xED && second > 0x9F) || (first == 0xF0 && second < 0x90) ||
        (first == 0xF4 && second > 0x8F)) {
        return 0;
    }
    if (first < 0xE0) {
        return 2;
    }
    return first < 0xF0 ? 3 : 4;
}

// The first character of a text that is not empty; empty when the text does not begin with UTF-8.
std::string_view first_character(std::string_view raw) {
    const auto byte = [raw](size_t at) { return static_cast<unsigned char>(at < raw.size() ? raw[at] : 0); };
    const size_t length = expected_length(byte(0), byte(1));
    for (size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) {
            return {};
        }
    }
    return raw.substr(0, length);
}

// U+0000 to U+001F, U+007F, and U+0080 to U+009F, which are C2 80 to C2 9F.
bool is_control(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    const auto last = static_cast<unsigned char>(character.back());
    return character.size() == 1 ? first < 0x20 || first == 0x7F : first == 0xC2 && last < 0xA0;
}

std::string escape_bytes(std::string_view raw) {
    std::string escaped;
    for (const char byte : raw) {
        escaped += text("\\x%02x", static_cast<unsigned char>(byte));
    }
    return escaped;
}

// The last byte of each control character is its number.
std::string escape_for_json(std::string_view control) {
    return text("\\u%04x", static_cast<unsigned char>(control.back()));
}

using escape = std::string (*)(std::string_view);

std::string escape_controls(std::string_view raw, std::string_view kept, escape escaped) {
    std::string result;
    while (!raw.empty()) {
        const std::string_view character = first_character(raw);
        const std::string_view piece = character.empty() ? raw.substr(0, 1) : character;
        const bool plain = !character.empty() && (!is_control(character) || character == kept);
        result += plain ? std::string{piece} : escaped(piece);
        raw.remove_prefix(piece.size());
    }
    return result;
}

}  // namespace

std::string text(const char* format, ...) {
    va_list values;
    va_start(values, format);
    va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(nullptr, 0, format, values);
    va_end(values);
    std::string result(static_cast<size_t>(length), '\0');
    std::vsnprintf(result.data(), result.size() + 1, format, again);
    va_end(again);
    return result;
}

std::optional<uint32_t> parse_number(const std::string& word) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(word.c_str(), &end, 0);
    // strtoull(3) would also accept a sign and leading blanks.
    const bool starts_with_digit = !word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0;
    if (!starts_with_digit || *end != '\0' || errno != 0 || value > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

std::string joined(const std::vector<std::string>& words) {
    std::string result;
    for (const std::string& word : words) {
        result += (&word == &words.front() ? "" : " ") + word;
    }
    return result;
}

std::string replaced(std::string text, std::string_view part, std::string_view replacement) {
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + replacement.size())) {
        text.replace(at, part.size(), replacement);
    }
    return text;
}

std::string printable(std::string_view raw) {
    return escape_controls(raw, "", escape_bytes);
}

std::string printable_lines(std::string_view raw) {
    return escape_controls(raw, "\n", escape_bytes);
}

std::string printable_json(std::string_view line) {
    return escape_controls(line, "", escape_for_json);
}

}  // namespace norv::tool
