// SPDX-License-Identifier: MIT
/**
 * @file norv/clock.hpp
 * The clock of norv_base.h, CLOCK_MONOTONIC, for std::chrono.
 *
 *     const auto begin = norv::monotonic_clock::now();
 *     work();
 *     std::chrono::microseconds elapsed = norv::monotonic_clock::now() - begin;
 */
#pragma once

#include <chrono>
#include <cstdint>

#include "norv_base.h"

namespace norv {

/** A clock of std::chrono, in microseconds. */
struct monotonic_clock {
    using rep = int64_t;
    using period = std::micro;
    using duration = std::chrono::duration<rep, period>;
    using time_point = std::chrono::time_point<monotonic_clock, duration>;
    using time_point_ms = std::chrono::time_point<monotonic_clock, std::chrono::duration<rep, std::milli>>;
    static constexpr bool is_steady = true;

    /** See `norv_time_get_us`. */
    static time_point now() noexcept { return time_point(duration(static_cast<rep>(norv_time_get_us()))); }
    /** See `norv_time_get_ms`. */
    static time_point_ms now_ms() noexcept {
        return time_point_ms(time_point_ms::duration(static_cast<rep>(norv_time_get_ms())));
    }
};

}  // namespace norv
