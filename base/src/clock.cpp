// SPDX-License-Identifier: MIT
// The clock: CLOCK_MONOTONIC, which the C library reads without a system call.
#include <ctime>

#include "norv_base.h"

namespace {

timespec now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

}  // namespace

uint64_t norv_time_get_ms() {
    const timespec time = now();
    return static_cast<uint64_t>(int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000);
}

uint64_t norv_time_get_us() {
    const timespec time = now();
    return static_cast<uint64_t>(int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000);
}
