// Files of /proc that are read as text, line by line.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/status.hpp"

namespace norv {

constexpr int line_size = 256;  // a longer line comes in several pieces

// Opens a file for reading, not inherited by programs. Null, and the errno status, on failure.
inline uint32_t open_stream(FILE*& stream, const char* path) {
    stream = fopen(path, "re");
    return stream == nullptr ? errno_status() : NORV_STATUS_OK;
}

// Closes an open stream of a record, and marks the record closed.
inline void close_stream(FILE*& stream) {
    if (stream != nullptr) {
        fclose(stream);
        stream = nullptr;
    }
}

// Goes back to the start so that the kernel is asked anew: without the flush the C library would repeat what
// it still has in its buffer. A failure is not reported, on purpose: only that of the read that follows is.
inline void rewind_stream(FILE* stream) {
    fflush(stream);
    fseek(stream, 0, SEEK_SET);
}

// Reads a line with its newline, cut after 255 characters. The line is empty at the end of the file, and
// after a failure, which gives the errno status.
inline uint32_t read_line(FILE* stream, char (&line)[line_size]) {
    if (fgets(line, line_size, stream) != nullptr) {
        return NORV_STATUS_OK;
    }
    line[0] = '\0';
    return feof(stream) != 0 ? NORV_STATUS_OK : errno_status();
}

}  // namespace norv
