// Memory: how much of it to ask for, and memory of the base library that is released at the end of a scope.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "norv_base.h"

namespace norv {

// A number of bytes as the C library takes it. One that a 32-bit processor can not address asks for more than
// there is.
inline size_t memory_size(uint64_t bytes) {
    return static_cast<size_t>(std::min<uint64_t>(bytes, SIZE_MAX));
}

class scoped_memory {
  public:
    explicit scoped_memory(void* memory) : memory_(memory) {}
    ~scoped_memory() { norv_free(memory_); }
    scoped_memory(const scoped_memory&) = delete;
    scoped_memory& operator=(const scoped_memory&) = delete;

    // Null when the allocation failed, or when there was none.
    void* get() const { return memory_; }

  private:
    void* memory_;
};

}  // namespace norv
