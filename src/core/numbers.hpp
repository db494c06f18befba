// SPDX-License-Identifier: MIT
// Unsigned numbers in a text.
#pragma once

#include <cstdint>

namespace norv {

inline bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

// Parses the first numbers of a text: each run of digits is one, whatever is between them. Numbers that
// exceed 32 bits wrap around. Returns how many were found, at most `count`.
inline uint32_t scan_numbers(const char* text, uint32_t* numbers, uint32_t count) {
    uint32_t found = 0;
    while (found < count) {
        while (*text != '\0' && !is_digit(*text)) {
            ++text;
        }
        if (*text == '\0') {
            break;
        }
        uint32_t number = 0;
        for (; is_digit(*text); ++text) {
            number = number * 10 + static_cast<uint32_t>(*text - '0');
        }
        numbers[found++] = number;
    }
    return found;
}

}  // namespace norv
