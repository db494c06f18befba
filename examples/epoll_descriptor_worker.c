/* SPDX-License-Identifier: MIT */
/*
 * A worker thread passes results to the event loop, in which a timer descriptor runs, too.
 *
 *     epoll_descriptor_worker [RESULTS]      default: 30
 *
 * Needs no hardware. The worker does not wait for the loop: it counts a result and raises an event. However
 * many results have accumulated, the callback runs once and takes them all.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "norv_base.h"
#include "norv_epoll.h"

typedef struct {
    norv_epoll_event_fd_t event; /* first, so that the callback reaches the whole record */
    norv_mutex_t mutex;
    unsigned ready;  /* results that are not taken yet; protected by the mutex */
    unsigned wanted; /* all results; not changed while the worker runs */
    unsigned taken;
    unsigned callbacks;
} mailbox_t;

typedef struct {
    norv_epoll_timer_fd_t timer; /* first, for the same reason */
    unsigned ticks;
} heartbeat_t;

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void pause_ms(long ms) {
    const struct timespec pause = {0, ms * 1000000};
    nanosleep(&pause, NULL);
}

/* Worker thread: a result every two milliseconds. */
static void* work(void* argument) {
    mailbox_t* mailbox = argument;
    for (unsigned result = 0; result < mailbox->wanted; ++result) {
        pause_ms(2);
        norv_mutex_lock(&mailbox->mutex);
        ++mailbox->ready;
        norv_mutex_unlock(&mailbox->mutex);
        must("raise the event", norv_epoll_event_fd_activate(&mailbox->event));
    }
    return NULL;
}

/* Loop thread: there are results. Storing them takes some time, in which more results arrive. */
static void on_results(norv_epoll_event_fd_t* event) {
    mailbox_t* mailbox = (mailbox_t*)event;
    norv_mutex_lock(&mailbox->mutex);
    const unsigned taken = mailbox->ready;
    mailbox->ready = 0;
    norv_mutex_unlock(&mailbox->mutex);
    pause_ms(7);
    mailbox->taken += taken;
    ++mailbox->callbacks;
    printf("  callback %2u   took %u, %2u so far\n", mailbox->callbacks, taken, mailbox->taken);
    if (mailbox->taken == mailbox->wanted) {
        norv_epoll_exit(event->registration.loop);
    }
}

/* Loop thread: the interval timer expired. */
static void on_tick(norv_epoll_timer_fd_t* timer) {
    ++((heartbeat_t*)timer)->ticks;
}

int main(int argc, char** argv) {
    static norv_epoll_t loop;
    mailbox_t mailbox = {.event.callback = on_results, .wanted = argc > 1 ? (unsigned)atoi(argv[1]) : 30};
    heartbeat_t heartbeat = {.timer.callback = on_tick};
    pthread_t worker;

    if (mailbox.wanted == 0) {
        fprintf(stderr, "usage: epoll_descriptor_worker [RESULTS]\n");
        return EXIT_FAILURE;
    }
    must("prepare a mutex", norv_mutex_init(&mailbox.mutex));
    must("open the loop", norv_epoll_open(&loop));
    must("create the event", norv_epoll_event_fd_create(&loop, &mailbox.event));
    must("create the timer", norv_epoll_timer_fd_create(&loop, &heartbeat.timer));
    must("arm the timer",
         norv_linux_timer_set_alarm_time(&heartbeat.timer.timer, 0, NORV_LINUX_TIMER_TICKS_PER_SECOND / 100));
    if (pthread_create(&worker, NULL, work, &mailbox) != 0) {
        perror("start a thread");
        return EXIT_FAILURE;
    }

    norv_epoll_loop_with_watchdog(&loop, NULL, 0);

    pthread_join(worker, NULL);
    norv_epoll_timer_fd_destroy(&loop, &heartbeat.timer);
    norv_epoll_event_fd_destroy(&loop, &mailbox.event);
    norv_epoll_close(&loop);
    norv_mutex_destroy(&mailbox.mutex);
    printf("%u results, none lost, in %u callbacks; the 10 ms timer called back %u times meanwhile\n",
           mailbox.taken, mailbox.callbacks, heartbeat.ticks);
    return EXIT_SUCCESS;
}
