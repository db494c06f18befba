// SPDX-License-Identifier: MIT
// Kernel files by their path: device nodes that are opened, and small files (attributes of sysfs and configfs,
// files of /proc) that are opened, used once and closed.
#pragma once

#include <fcntl.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "core/descriptor.hpp"
#include "core/status.hpp"
#include "norv_file.h"

namespace norv {

// A path, formatted once. quirk 6: truncated silently if it does not fit. The functions that take an
// invalid path open nothing and return NORV_STATUS_INVALID_ARG.
class file_path {
  public:
    // An invalid path, where the caller passed null.
    file_path() = default;
    // The arguments are those of printf(3). Invalid if they cannot be formatted.
    [[gnu::format(printf, 2, 3)]] file_path(const char* format, ...);
    static file_path of(const char* format, va_list values);
    // A path from the caller that is the format itself, so "%%" in it is one '%' of the file's name.
    static file_path expanded(const char* format);

    bool valid() const { return valid_; }
    const char* text() const { return text_; }

  private:
    void print(const char* format, va_list values);

    bool valid_ = false;
    char text_[256];
};

// Opens with the flags of open(2). On failure, stores -1.
uint32_t open_file(uint32_t flags, const file_path& path, int32_t* descriptor);

// Opens, transfers once, and closes. The length becomes the number of bytes transferred; a short transfer is a
// success.
uint32_t read_bytes(const file_path& path, void* bytes, uint32_t* length);
uint32_t write_bytes(const file_path& path, const void* bytes, uint32_t* length);

// What becomes of the last byte that was read. quirk 5: it is dropped, whether or not it is a newline.
enum class last_byte { kept, dropped };

// Reads a text of at most one byte less than there is room for, and ends it with a NUL. After a failure it is
// empty.
uint32_t read_text(const file_path& path, char* text, uint32_t room, last_byte last);

template <uint32_t room>
uint32_t read_text(const file_path& path, char (&text)[room], last_byte last) {
    return read_text(path, text, room, last);
}

// How a number is parsed: as a literal of C, in which 010 is 8 and 0x10 is 16, or in decimal.
enum class number_base { literal = 0, decimal = 10 };

// Reads a number from a text of at most 15 bytes, of which the last is dropped (quirk 5). A text that is not a
// number is 0. Stores nothing on failure.
uint32_t read_number(const file_path& path, number_base base, long* number);

// Writes a text with its NUL. A short write counts as a success, a null text is an invalid argument.
uint32_t write_text(const file_path& path, const char* text);
uint32_t write_number(const file_path& path, int32_t number);

// Reads an open file from its start: lseek(2), then one read(2). No NUL is added.
uint32_t rewind_and_read(int32_t descriptor, char* bytes, uint32_t length);

// Returns whether a path is a directory: that of a line or channel exists while it is exported.
bool is_directory(const char* path);

// An open attribute, closed at the end of the scope. A failed open is reported when the attribute is used.
class attribute {
  public:
    template <typename... values>
    attribute(uint32_t flags, const char* path_format, values... path_values) {
        status_ = norv_open_device(flags | O_CLOEXEC, file_.out(), path_format, path_values...);
    }

    // Writes a text with its NUL. Returns the status of the open if that failed, otherwise that of the write.
    template <typename... values>
    uint32_t write(uint32_t maximum, const char* format, values... text_values) const {
        NORV_TRY(status_);
        return norv_write_string(file_.get(), maximum, format, text_values...);
    }

    uint32_t status() const { return status_; }
    int32_t descriptor() const { return file_.get(); }

  private:
    scoped_descriptor file_;
    uint32_t status_;  // set by the constructor
};

// Compiled once, in attribute.cpp.
extern template uint32_t attribute::write(uint32_t maximum, const char* format, const char* text) const;
extern template uint32_t attribute::write(uint32_t maximum, const char* format, uint32_t number) const;

// Reads an attribute's text, at most one byte less than there is room for. quirk 5: the last byte is dropped,
// whether or not it is a newline.
template <uint32_t room, typename... values>
uint32_t read_text(char (&text)[room], const char* path_format, values... path_values) {
    uint32_t length = room - 1;
    // Cleared, because a failure whose errno maps to 0 (quirk 1) counts as a read of the whole length.
    memset(text, 0, room);
    const uint32_t status = norv_read_device(text, &length, path_format, path_values...);
    if (length > 0) {
        text[length - 1] = '\0';
    }
    return status;
}

// Writes a text with its NUL. A short write counts as a success.
template <typename... values>
uint32_t write_text(const char* text, const char* path_format, values... path_values) {
    auto length = static_cast<uint32_t>(strlen(text) + 1);
    return norv_write_device(text, &length, path_format, path_values...);
}

}  // namespace norv
