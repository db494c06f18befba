/* SPDX-License-Identifier: MIT */
/*
 * Watches a thread: an event loop reports to a watchdog, a handler hangs, the watchdog notices, and the loop
 * recovers.
 *
 *     base_watchdog [LIMIT_MS]      default: 500
 *
 * Needs no hardware. An application would restart the part that hangs, or stop feeding the hardware
 * watchdog.
 */
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "norv_base.h"
#include "norv_epoll.h"

typedef struct {
    norv_epoll_timer_t timer; /* first, so that the callback reaches the whole record */
    sem_t release;
} hanger_t;

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

typedef struct {
    norv_epoll_t* loop;
    norv_thread_watchdog_t* watchdog;
} loop_thread_t;

/* The watched thread: the loop reports five times within the limit. */
static void* run_loop(void* argument) {
    const loop_thread_t* thread = argument;
    norv_epoll_loop_with_watchdog(thread->loop, thread->watchdog, thread->watchdog->limit / 5);
    return NULL;
}

/* Loop thread: a handler that hangs, like one that waits for a device that is gone. */
static void hang(norv_epoll_timer_t* timer) {
    sem_wait(&((hanger_t*)timer)->release);
}

/* Another thread: checks the watchdog until it reports the expected status, for ten seconds at most. */
static void expect(const norv_thread_watchdog_t* watchdog, uint32_t wanted, const char* words) {
    const struct timespec pause = {.tv_nsec = 10 * 1000 * 1000};
    const uint64_t start = norv_time_get_ms();
    while (norv_thread_watchdog_check(watchdog) != wanted) {
        if (norv_time_get_ms() - start > 10000) {
            fprintf(stderr, "ten seconds went by, and the watchdog does not say: the loop %s\n", words);
            exit(EXIT_FAILURE);
        }
        nanosleep(&pause, NULL);
    }
    printf("  %5llu ms   the loop %s\n", (unsigned long long)(norv_time_get_ms() - start), words);
}

int main(int argc, char** argv) {
    static norv_epoll_t loop; /* zero-filled, as norv_epoll_open requires */
    norv_thread_watchdog_t watchdog;
    hanger_t hanger = {.timer = {.callback = hang, .name = "hanger"}};
    loop_thread_t thread = {&loop, &watchdog};
    pthread_t loop_thread;

    sem_init(&hanger.release, 0, 0);
    must("open the loop", norv_epoll_open(&loop));
    norv_thread_watchdog_start(&watchdog, argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 10) : 500);
    if (pthread_create(&loop_thread, NULL, run_loop, &thread) != 0) {
        perror("start a thread");
        return EXIT_FAILURE;
    }
    must("wait for the loop", norv_epoll_wait_loop_started(&loop));
    expect(&watchdog, NORV_STATUS_OK, "lives");

    must("schedule the handler", norv_epoll_timer_schedule(&loop, &hanger.timer, 0, false));
    expect(&watchdog, NORV_STATUS_TIMEOUT, "hangs");
    sem_post(&hanger.release);
    expect(&watchdog, NORV_STATUS_OK, "lives again");

    must("stop the loop", norv_epoll_exit(&loop));
    pthread_join(loop_thread, NULL);
    norv_epoll_close(&loop);
    sem_destroy(&hanger.release);
    puts("the watchdog noticed the handler that hung");
    return EXIT_SUCCESS;
}
