// SPDX-License-Identifier: MIT
// Descriptors: how they are closed, and how one is closed at the end of a scope.
#pragma once

#include <unistd.h>

#include <cstdint>

namespace norv {

// Closes an open descriptor of a record, and marks the record closed. quirk 3: 0 counts as not open. Returns
// the result of close(2), or 0 if nothing was open.
inline int close_descriptor(int32_t& descriptor) {
    const int result = descriptor > 0 ? close(descriptor) : 0;
    descriptor = -1;
    return result;
}

// A descriptor that this scope closes.
class scoped_descriptor {
  public:
    scoped_descriptor() = default;
    ~scoped_descriptor() { close_descriptor(descriptor_); }
    scoped_descriptor(const scoped_descriptor&) = delete;
    scoped_descriptor& operator=(const scoped_descriptor&) = delete;

    int32_t get() const { return descriptor_; }
    // Where an open function stores what it opened.
    int32_t* out() { return &descriptor_; }

  private:
    int32_t descriptor_ = -1;
};

}  // namespace norv
