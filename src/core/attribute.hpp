// SPDX-License-Identifier: MIT
// Kernel files by their path: device nodes that are opened, and small files (attributes of sysfs and configfs,
// files of /proc) that are opened, used once and closed.
#pragma once

#include <cstdarg>
#include <cstdint>

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

}  // namespace norv
