// SPDX-License-Identifier: MIT
// Limits of waits, as std::chrono durations.
#pragma once

#include <chrono>
#include <cstdint>

namespace norv {

/** The limit of a wait that has none. */
struct no_limit_t {};
inline constexpr no_limit_t no_limit{};

/**
 * How long a call may wait: a duration, rounded up to milliseconds, or `norv::no_limit`. A negative one counts
 * as 0, and one of more than 24 days as that.
 */
class timeout {
  public:
    constexpr timeout(no_limit_t) noexcept : ms_(-1) {}
    template <typename representation, typename period>
    constexpr timeout(std::chrono::duration<representation, period> limit) noexcept
        : ms_(clamped(std::chrono::ceil<std::chrono::milliseconds>(limit).count())) {}

    /** Milliseconds; -1: no limit. */
    constexpr int32_t ms() const noexcept { return ms_; }

  private:
    static constexpr int32_t clamped(int64_t ms) noexcept {
        return ms < 0 ? 0 : ms > INT32_MAX ? INT32_MAX : static_cast<int32_t>(ms);
    }

    int32_t ms_;
};

}  // namespace norv
