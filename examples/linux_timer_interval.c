/* SPDX-License-Identifier: MIT */
/*
 * A periodic job that does not drift: a kernel timer wakes it, and it reports how late each wake-up was.
 *
 *     linux_timer_interval [PERIOD_MS [COUNT]]      default: 20 10
 *
 * Needs no hardware. The alarms are at absolute times, so that a late one does not shift the next ones.
 */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_timer.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void wait_for_expiry(norv_linux_timer_t* timer) {
    struct pollfd expiry = {timer->descriptor, POLLIN, 0};
    if (poll(&expiry, 1, -1) != 1) {
        perror("wait for the timer");
        exit(EXIT_FAILURE);
    }
    norv_linux_timer_clear_event(timer);
}

int main(int argc, char** argv) {
    const uint64_t period_ms = argc > 1 ? strtoul(argv[1], NULL, 10) : 20;
    const unsigned long count = argc > 2 ? strtoul(argv[2], NULL, 10) : 10;
    const uint64_t period = period_ms * (NORV_LINUX_TIMER_TICKS_PER_SECOND / 1000);
    norv_linux_timer_t timer;
    uint64_t start = 0;

    if (period == 0 || count == 0) {
        fprintf(stderr, "usage: linux_timer_interval [PERIOD_MS [COUNT]]\n");
        return EXIT_FAILURE;
    }
    must("open a timer", norv_linux_timer_open(&timer));
    must("read the clock", norv_linux_timer_get_time(&timer, &start));
    must("set the alarm", norv_linux_timer_set_alarm_time(&timer, start + period, period));
    for (unsigned long expiry = 1; expiry <= count; ++expiry) {
        uint64_t now = 0;
        wait_for_expiry(&timer);
        must("read the clock", norv_linux_timer_get_time(&timer, &now));
        printf("  alarm %2lu   %6llu us late\n", expiry,
               (unsigned long long)((now - start - expiry * period) / 10));
    }
    norv_linux_timer_close(&timer);
    printf("%lu alarms, %llu ms apart\n", count, (unsigned long long)period_ms);
    return EXIT_SUCCESS;
}
