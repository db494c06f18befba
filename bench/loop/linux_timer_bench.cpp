// SPDX-License-Identifier: MIT
// Interval timers beside the bare system calls they must make.
#include <norv_linux_timer.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr time_t far_away = 4000000000;  // seconds; the alarms of the rows never come
constexpr uint64_t far_away_ticks = far_away * NORV_LINUX_TIMER_TICKS_PER_SECOND;
constexpr int flags = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;

timespec bare_now() {
    timespec now = {};
    bench::expect(clock_gettime(CLOCK_MONOTONIC, &now) == 0, "clock_gettime");
    return now;
}

void bare_set_alarm(int descriptor) {
    const itimerspec setting = {{0, 0}, {far_away, 0}};
    bench::expect(timerfd_settime(descriptor, flags, &setting, nullptr) == 0, "timerfd_settime");
}

void bare_set_period(int descriptor) {
    timespec first = bare_now();
    first.tv_sec += 1000;
    const itimerspec setting = {{1000, 0}, first};
    bench::expect(timerfd_settime(descriptor, flags, &setting, nullptr) == 0, "timerfd_settime");
}

void bare_clear_event(int descriptor) {
    uint64_t count = 0;
    bench::expect(read(descriptor, &count, sizeof count) == -1, "read");
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_timer");
}

void add_rows(norv_linux_timer_t* timer) {
    const int descriptor = timer->descriptor;
    bench::add_pair(
        {.name = "norv_linux_timer_get_time", .target = 1.25}, [] { benchmark::DoNotOptimize(bare_now()); },
        [] {
            uint64_t ticks = 0;
            succeed(norv_linux_timer_get_time(nullptr, &ticks));
            benchmark::DoNotOptimize(ticks);
        });
    bench::add_pair(
        {.name = "norv_linux_timer_set_alarm_time, once", .target = 1.05},
        [=] { bare_set_alarm(descriptor); },
        [=] { succeed(norv_linux_timer_set_alarm_time(timer, far_away_ticks, 0)); });
    bench::add_pair(
        {.name = "norv_linux_timer_set_alarm_time, period", .target = 1.05},
        [=] { bare_set_period(descriptor); },
        [=] {
            succeed(norv_linux_timer_set_alarm_time(timer, 0, 1000 * NORV_LINUX_TIMER_TICKS_PER_SECOND));
        });
    bench::add_pair(
        {.name = "norv_linux_timer_clear_event", .target = 1.05}, [=] { bare_clear_event(descriptor); },
        [=] { bench::expect(norv_linux_timer_clear_event(timer) == -1, "norv_linux_timer_clear_event"); });
}

}  // namespace

int main(int argc, char** argv) {
    norv_linux_timer_t timer;
    succeed(norv_linux_timer_open(&timer));
    add_rows(&timer);
    const int result = bench::run_rows(argc, argv);
    norv_linux_timer_close(&timer);
    return result;
}
