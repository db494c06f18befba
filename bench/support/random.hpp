// SPDX-License-Identifier: MIT
// Numbers that look random, cost a nanosecond and are the same in every run.
#pragma once

#include <cstdint>

namespace bench {

class random_numbers {
  public:
    uint32_t below(uint32_t limit) {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return static_cast<uint32_t>(((state_ >> 32) * limit) >> 32);
    }

  private:
    uint64_t state_ = 0x9E3779B97F4A7C15u;
};

}  // namespace bench
