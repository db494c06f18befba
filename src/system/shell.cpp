// SPDX-License-Identifier: MIT
// Shell commands whose output is captured.
#include "norv_shell.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/status.hpp"

namespace {

constexpr size_t command_size = 4096;  // quirk 6: a longer command is truncated

// Returns whether the command printed anything.
bool capture(char* buffer, uint32_t size, FILE* stream) {
    size_t count = 0;
    bool any = false;
    do {
        // quirk 121: each piece is stored from the start of the buffer, and callers of commands with a long
        // output read its last piece there. quirk 122: a signal ends a piece too.
        count = fread(buffer, 1, size, stream);
        any = any || count != 0;
    } while (count != 0 && feof(stream) == 0);
    return any;
}

// The caller may have nothing past `size`, not even a NUL: the text is not measured any further.
void remove_newline(char* buffer, uint32_t size) {
    const size_t length = strnlen(buffer, size);
    // quirk 123: a newline that is the whole text stays.
    if (length >= 2 && buffer[length - 1] == '\n') {
        buffer[length - 1] = '\0';
    }
}

}  // namespace

uint32_t norv_shell_result(char* buffer, uint32_t size, const char* command) {
    if (buffer == nullptr || command == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    FILE* stream = popen(command, "r");
    if (stream == nullptr) {
        return norv::errno_status();
    }
    const bool any = capture(buffer, size, stream);
    // quirk 123: the exit status is not reported, because callers check the output.
    pclose(stream);
    if (any) {
        remove_newline(buffer, size);
    }
    return NORV_STATUS_OK;
}

uint32_t norv_shell_format_result(char* buffer, uint32_t size, const char* format, ...) {
    if (format == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    char command[command_size] = {};
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(command, sizeof command, format, values);
    va_end(values);
    return length < 0 ? NORV_STATUS_INVALID_ARG : norv_shell_result(buffer, size, command);
}
