// Shell commands whose output is captured.
#include "norv_shell.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/status.hpp"

namespace {

constexpr size_t command_size = 4096;  // a longer command is cut, on purpose

// Tells whether the command printed anything.
bool capture(char* buffer, uint32_t size, FILE* stream) {
    size_t count = 0;
    bool any = false;
    do {
        // Each piece starts again at the start of the buffer, on purpose: callers know that a longer output
        // leaves its last piece there. A signal ends a piece as well, and an empty one ends the capture.
        count = fread(buffer, 1, size, stream);
        any = any || count != 0;
    } while (count != 0 && feof(stream) == 0);
    return any;
}

// A text that fills the whole buffer has its NUL behind it, or none at all: nothing there is looked at.
void take_off_newline(char* buffer, uint32_t size) {
    const size_t length = strnlen(buffer, size);
    // A newline that is the whole text stays, on purpose.
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
    // How the command ended is not reported, on purpose: callers look at its output.
    pclose(stream);
    if (any) {
        take_off_newline(buffer, size);
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
