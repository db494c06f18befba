// SPDX-License-Identifier: MIT
// The calls on clocks and timers that reach the kernel double.
#include <sys/sysinfo.h>
#include <sys/timerfd.h>

#include <ctime>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::kernel_state;
using norv::test::pass_journalled;

}  // namespace

extern "C" {

int timerfd_create(int clock, int flags) noexcept {
    return norv::test::create_descriptor("timerfd_create",
                                         [&] { return REAL(timerfd_create)(clock, flags); });
}

int timerfd_settime(int descriptor, int flags, const struct itimerspec* setting,
                    struct itimerspec* previous) noexcept {
    return pass_journalled(call{"timerfd_settime", "", norv::test::timer_setting{flags, *setting}}, -1,
                           [&] { return REAL(timerfd_settime)(descriptor, flags, setting, previous); });
}

// The C library reads this clock without entering the kernel, and all of the program reads it: it fails only
// for a test that names it.
int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
    kernel_state* kernel = clock == CLOCK_MONOTONIC ? active_kernel() : nullptr;
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->strikes_by_name(call{"clock_gettime"})) {
            return -1;
        }
        if (kernel->clock) {
            *time = *kernel->clock;
            return 0;
        }
    }
    return REAL(clock_gettime)(clock, time);
}

int sysinfo(struct sysinfo* information) noexcept {
    const int result = pass_journalled(call{"sysinfo"}, -1, [&] { return REAL(sysinfo)(information); });
    const kernel_state* kernel = active_kernel();
    if (result == 0 && kernel != nullptr && kernel->uptime) {
        information->uptime = *kernel->uptime;
    }
    return result;
}

}  // extern "C"
