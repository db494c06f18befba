// SPDX-License-Identifier: MIT
// Memory: sizes, and memory of the base library that is released at the end of a scope.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "norv_base.h"

namespace norv {

// A number of bytes as a size_t. What a 32-bit processor cannot address becomes SIZE_MAX, which cannot be
// allocated.
inline size_t memory_size(uint64_t bytes) {
    return static_cast<size_t>(std::min<uint64_t>(bytes, SIZE_MAX));
}

class scoped_memory {
  public:
    explicit scoped_memory(void* memory) : memory_(memory) {}
    ~scoped_memory() { norv_free(memory_); }
    scoped_memory(const scoped_memory&) = delete;
    scoped_memory& operator=(const scoped_memory&) = delete;

    // Null if the allocation failed, or there was none.
    void* get() const { return memory_; }

    // Leaks the memory.
    void abandon() { memory_ = nullptr; }

  private:
    void* memory_;
};

}  // namespace norv
