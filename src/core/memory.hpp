// Memory of the base library that is released at the end of a scope.
#pragma once

#include "norv_base.h"

namespace norv {

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
