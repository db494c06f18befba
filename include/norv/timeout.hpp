// SPDX-License-Identifier: MIT
// Times and limits of waits, as std::chrono durations.
#pragma once

#include <chrono>
#include <cstdint>

namespace norv {

namespace detail {

// Milliseconds for the C interface: rounded up, so that no wait is shorter than asked. What is longer than a hundred
// million years counts as that.
template <typename representation, typename period>
constexpr int64_t milliseconds_of(std::chrono::duration<representation, period> time) noexcept {
    constexpr int64_t most = int64_t{1} << 62;
    const double about = std::chrono::duration<double, std::milli>(time).count();
    if (about >= static_cast<double>(most)) {
        return most;
    }
    return about > 0 ? std::chrono::ceil<std::chrono::milliseconds>(time).count() : 0;
}

}  // namespace detail

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
        : ms_(clamped(detail::milliseconds_of(limit))) {}

    /** Milliseconds; -1: no limit. */
    constexpr int32_t ms() const noexcept { return ms_; }

  private:
    static constexpr int32_t clamped(int64_t ms) noexcept {
        return ms > INT32_MAX ? INT32_MAX : static_cast<int32_t>(ms);
    }

    int32_t ms_;
};

}  // namespace norv
