// SPDX-License-Identifier: MIT
// Attribute files of sysfs and configfs: opened, used once and closed.
#pragma once

#include <fcntl.h>

#include <cstdint>
#include <cstring>

#include "core/descriptor.hpp"
#include "core/status.hpp"
#include "norv_file.h"

namespace norv {

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
