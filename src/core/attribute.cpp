// SPDX-License-Identifier: MIT
// Kernel files by their path.
#include "core/attribute.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/descriptor.hpp"
#include "core/status.hpp"
#include "norv_file.h"

namespace norv {
namespace {

uint32_t transfer_file(uint32_t flags, const file_path& path, void* bytes, uint32_t* length) {
    scoped_descriptor file;
    NORV_TRY(open_file(flags | O_CLOEXEC, path, file.out()));
    return norv_iorw_nonblock(file.get(), bytes, length, flags == O_WRONLY);
}

}  // namespace

file_path::file_path(const char* format, ...) {
    va_list values;
    va_start(values, format);
    print(format, values);
    va_end(values);
}

file_path file_path::of(const char* format, va_list values) {
    file_path path;
    path.print(format, values);
    return path;
}

file_path file_path::expanded(const char* format) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    return {format};
#pragma GCC diagnostic pop
}

void file_path::print(const char* format, va_list values) {
    valid_ = format != nullptr && vsnprintf(text_, sizeof text_, format, values) >= 0;
}

uint32_t open_file(uint32_t flags, const file_path& path, int32_t* descriptor) {
    *descriptor = -1;
    if (!path.valid()) {
        return NORV_STATUS_INVALID_ARG;
    }
    *descriptor = open(path.text(), static_cast<int>(flags), 0600);
    return status_of(*descriptor);
}

uint32_t read_bytes(const file_path& path, void* bytes, uint32_t* length) {
    return transfer_file(O_RDONLY, path, bytes, length);
}

uint32_t write_bytes(const file_path& path, const void* bytes, uint32_t* length) {
    return transfer_file(O_WRONLY, path, const_cast<void*>(bytes), length);
}

uint32_t read_text(const file_path& path, char* text, uint32_t room, last_byte last) {
    uint32_t length = room - 1;
    // Cleared, because a failure whose errno maps to 0 (quirk 1) counts as a read of the whole length.
    memset(text, 0, room);
    const uint32_t status = read_bytes(path, text, &length);
    if (last == last_byte::dropped && length > 0) {
        text[length - 1] = '\0';
    }
    return status;
}

uint32_t read_number(const file_path& path, number_base base, long* number) {
    char text[16];
    NORV_TRY(read_text(path, text, last_byte::dropped));
    *number = strtol(text, nullptr, static_cast<int>(base));
    return NORV_STATUS_OK;
}

uint32_t write_text(const file_path& path, const char* text) {
    if (text == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    auto length = static_cast<uint32_t>(strlen(text) + 1);
    return write_bytes(path, text, &length);
}

uint32_t write_number(const file_path& path, int32_t number) {
    char text[12];
    snprintf(text, sizeof text, "%d", number);
    return write_text(path, text);
}

uint32_t rewind_and_read(int32_t descriptor, char* bytes, uint32_t length) {
    NORV_TRY(status_of(lseek(descriptor, 0, SEEK_SET)));
    return status_of(read(descriptor, bytes, length));
}

bool is_directory(const char* path) {
    struct stat found;
    return stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace norv
