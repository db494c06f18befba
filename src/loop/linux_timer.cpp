// SPDX-License-Identifier: MIT
// Interval timers: timerfd on the monotonic clock, in ticks of 100 ns.
#include "norv_linux_timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <ctime>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "norv_base.h"

NORV_OFFSETS(norv_linux_timer_t, 4, descriptor, 0);
NORV_LAYOUT(norv_linux_timer_mgr_t, 16 + 4 * sizeof(void*), reserved, get_time, set_alarm, release, context);

namespace {

constexpr uint64_t ticks_per_second = NORV_LINUX_TIMER_TICKS_PER_SECOND;
constexpr uint64_t nanoseconds_per_tick = 100;

uint64_t ticks_of(const timespec& time) {
    return static_cast<uint64_t>(time.tv_sec) * ticks_per_second +
           static_cast<uint64_t>(time.tv_nsec) / nanoseconds_per_tick;
}

timespec time_of(uint64_t ticks) {
    return {
        .tv_sec = static_cast<time_t>(ticks / ticks_per_second),
        .tv_nsec = static_cast<decltype(timespec::tv_nsec)>(ticks % ticks_per_second * nanoseconds_per_tick)};
}

// ---- The operations of the manager ----

struct manager_context {
    norv_linux_timer_t* timer;
};
NORV_OFFSETS(manager_context, sizeof(void*), timer, 0);

// Null after release: the operations then do what they do for a null timer.
norv_linux_timer_t* timer_of(const norv_linux_timer_mgr_t* manager) {
    const auto* context = static_cast<const manager_context*>(manager->context);
    return context != nullptr ? context->timer : nullptr;
}

uint32_t manager_get_time(norv_linux_timer_mgr_t* manager, uint64_t* ticks) {
    return norv_linux_timer_get_time(timer_of(manager), ticks);
}

uint32_t manager_set_alarm(norv_linux_timer_mgr_t* manager, uint64_t ticks) {
    return norv_linux_timer_set_alarm_time(timer_of(manager), ticks, 0);
}

void manager_release(norv_linux_timer_mgr_t* manager) {
    norv_free(manager->context);
    manager->context = nullptr;
}

}  // namespace

uint32_t norv_linux_timer_open(norv_linux_timer_t* timer) {
    if (timer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    timer->descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    return norv::status_of(timer->descriptor);
}

void norv_linux_timer_close(norv_linux_timer_t* timer) {
    if (timer != nullptr) {
        norv::close_descriptor(timer->descriptor);
    }
}

uint32_t norv_linux_timer_get_time(const norv_linux_timer_t*, uint64_t* ticks) {
    timespec now{};
    NORV_TRY(norv::status_of(clock_gettime(CLOCK_MONOTONIC, &now)));
    if (ticks != nullptr) {
        *ticks = ticks_of(now);
    }
    return NORV_STATUS_OK;
}

uint32_t norv_linux_timer_set_alarm_time(norv_linux_timer_t* timer, uint64_t time, uint64_t period) {
    if (timer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    if (period != 0 && time == 0) {
        NORV_TRY(norv_linux_timer_get_time(timer, &time));
        time += period;
    }
    const itimerspec setting = {time_of(period), time_of(time)};
    return norv::status_of(
        timerfd_settime(timer->descriptor, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &setting, nullptr));
}

ssize_t norv_linux_timer_clear_event(norv_linux_timer_t* timer) {
    uint64_t expiries = 0;
    // quirk 32: not a status; callers compare it with 8.
    return timer != nullptr ? read(timer->descriptor, &expiries, sizeof expiries) : -1;
}

uint32_t norv_linux_timer_mgr_open(norv_linux_timer_t* timer, norv_linux_timer_mgr_t* manager) {
    if (timer == nullptr || manager == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *manager = {};
    manager_context* context = nullptr;
    NORV_TRY(norv::allocate_record(context));
    context->timer = timer;
    manager->get_time = manager_get_time;
    manager->set_alarm = manager_set_alarm;
    manager->release = manager_release;
    manager->context = context;
    return NORV_STATUS_OK;
}
