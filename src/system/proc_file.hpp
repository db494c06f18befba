// SPDX-License-Identifier: MIT
// Files of /proc that are read as text, line by line, and the numbers in a line.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/status.hpp"

namespace norv {

constexpr int line_size = 256;  // a longer line is read in several pieces

// Opens a file for reading, with close-on-exec. On failure, stores null and returns the errno status.
inline uint32_t open_stream(FILE*& stream, const char* path) {
    stream = fopen(path, "re");
    return stream == nullptr ? errno_status() : NORV_STATUS_OK;
}

// Closes the stream of a record, and marks the record closed.
inline void close_stream(FILE*& stream) {
    if (stream != nullptr) {
        fclose(stream);
        stream = nullptr;
    }
}

// Seeks to the start, so that the kernel generates the text again; without the flush, the C library would
// return the text that is still in its buffer. quirk 100: a failure is not reported.
inline void rewind_stream(FILE* stream) {
    fflush(stream);
    fseek(stream, 0, SEEK_SET);
}

// Reads a line with its newline. quirk 99: it is truncated after 255 characters. The line is empty at the end
// of the file, and after a failure, whose errno status is returned.
inline uint32_t read_line(FILE* stream, char (&line)[line_size]) {
    if (fgets(line, line_size, stream) != nullptr) {
        return NORV_STATUS_OK;
    }
    line[0] = '\0';
    return feof(stream) != 0 ? NORV_STATUS_OK : errno_status();
}

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
