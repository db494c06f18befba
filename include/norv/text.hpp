// SPDX-License-Identifier: MIT
// Texts for the C interface, which ends them with a NUL.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace norv::detail {

// A copy of a name with a NUL at its end; a string_view need not have one. Null if the name is too long, or has
// a NUL in it: the C functions then return NORV_STATUS_INVALID_ARG.
template <size_t capacity = 256>
class c_string {
  public:
    explicit c_string(std::string_view text) noexcept
        : valid_(text.size() < capacity && text.find('\0') == std::string_view::npos) {
        if (valid_) {
            std::memcpy(text_, text.data(), text.size());
            text_[text.size()] = '\0';
        }
    }

    const char* get() const noexcept { return valid_ ? text_ : nullptr; }

  private:
    bool valid_;
    char text_[capacity] = {};
};

// The same for a C function that takes the text as a printf format without values: each '%' is doubled, so that
// it means itself.
template <size_t capacity = 256>
class c_format {
  public:
    explicit c_format(std::string_view text) noexcept
        : valid_(text.size() < capacity && text.find('\0') == std::string_view::npos) {
        if (valid_) {
            char* to = text_;
            for (const char character : text) {
                if (character == '%') {
                    *to++ = '%';
                }
                *to++ = character;
            }
        }
    }

    const char* get() const noexcept { return valid_ ? text_ : nullptr; }

  private:
    bool valid_;
    char text_[2 * capacity] = {};
};

}  // namespace norv::detail
