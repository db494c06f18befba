// SPDX-License-Identifier: MIT
// A descriptor that its owner closes.
#pragma once

#include <cstdint>
#include <utility>

namespace norv::detail {

// A descriptor that `close` closes. 0 and below count as not open, as in the C functions (quirk 3): the
// number of what was never opened may be 0, and is never closed.
template <auto close>
class owned_descriptor {
  public:
    owned_descriptor() noexcept = default;
    explicit owned_descriptor(int32_t descriptor) noexcept : descriptor_(descriptor > 0 ? descriptor : -1) {}
    owned_descriptor(owned_descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    owned_descriptor& operator=(owned_descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }
    owned_descriptor(const owned_descriptor&) = delete;
    owned_descriptor& operator=(const owned_descriptor&) = delete;
    ~owned_descriptor() { reset(); }

    void reset() noexcept {
        if (const int32_t open = std::exchange(descriptor_, -1); open > 0) {
            close(open);
        }
    }

    bool is_open() const noexcept { return descriptor_ > 0; }
    // -1: none.
    int32_t get() const noexcept { return descriptor_; }

  private:
    int32_t descriptor_ = -1;
};

}  // namespace norv::detail
