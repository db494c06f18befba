/* SPDX-License-Identifier: MIT */
/*
 * Shuts down an event loop that other threads use, in the only order in which none of them can hang.
 *
 *     epoll_shutdown [RUNS]      default: 100
 *
 * Needs no hardware. In each run, a loop serves the calls of three worker threads until one or more of them
 * request its end.
 */
#include <pthread.h>
#include <semaphore.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_epoll.h"

#define WORKERS 3
#define CALLS 20 /* calls after which a worker requests the end of the loop */

typedef struct service service_t;

typedef struct {
    norv_epoll_timer_t timer; /* first, so that the callback reaches the whole record */
    service_t* service;
    pthread_t thread;
    unsigned calls; /* made by the worker's thread */
} worker_t;

struct service {
    norv_epoll_t loop;
    pthread_t loop_thread;
    worker_t workers[WORKERS];
    sem_t end_wanted; /* posted to request the end of the loop; a signal handler may post it, too */
    atomic_bool stopping;
    unsigned served; /* by the loop thread */
};

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void start_thread(pthread_t* thread, void* (*function)(void*), void* argument) {
    if (pthread_create(thread, NULL, function, argument) != 0) {
        fprintf(stderr, "a thread cannot be started\n");
        exit(EXIT_FAILURE);
    }
}

/* Loop thread. */
static void* run_loop(void* loop) {
    norv_epoll_loop_with_watchdog(loop, NULL, 0);
    return NULL;
}

/* Loop thread: the function that a worker calls here. */
static uint32_t serve(norv_epoll_t* loop, uint64_t argument1, uint64_t argument2) {
    service_t* service = (service_t*)(uintptr_t)argument1;
    (void)loop;
    (void)argument2;
    ++service->served;
    return NORV_STATUS_OK;
}

/* Loop thread: a worker's timer is due. */
static void on_timer(norv_epoll_timer_t* timer) {
    (void)timer;
}

/* Worker thread: uses the loop until it is asked to stop. */
static void* work(void* argument) {
    worker_t* worker = argument;
    norv_epoll_t* loop = &worker->service->loop;
    while (!atomic_load(&worker->service->stopping)) {
        must("schedule a timer", norv_epoll_timer_schedule(loop, &worker->timer, 1, true));
        must("call the loop", norv_epoll_call_sync(loop, serve, (uintptr_t)worker->service, 0));
        if (++worker->calls == CALLS) {
            sem_post(&worker->service->end_wanted);
        }
    }
    must("cancel the timer", norv_epoll_timer_cancel(loop, &worker->timer));
    return NULL;
}

static void start(service_t* service) {
    sem_init(&service->end_wanted, 0, 0);
    must("open the loop", norv_epoll_open(&service->loop));
    start_thread(&service->loop_thread, run_loop, &service->loop);
    must("wait for the loop", norv_epoll_wait_loop_started(&service->loop));
    for (unsigned index = 0; index < WORKERS; ++index) {
        worker_t* worker = &service->workers[index];
        worker->timer.callback = on_timer;
        worker->service = service;
        start_thread(&worker->thread, work, worker);
    }
}

/* The thread that started the service shuts it down. */
static void shut_down(service_t* service) {
    /* First the threads that use the loop, while it still runs and serves their last calls. */
    atomic_store(&service->stopping, true);
    for (unsigned index = 0; index < WORKERS; ++index) {
        pthread_join(service->workers[index].thread, NULL);
    }
    /* Then the loop: one exit, and no other call on the loop until its thread is joined. */
    must("stop the loop", norv_epoll_exit(&service->loop));
    pthread_join(service->loop_thread, NULL);
    /* No other thread uses the loop now: cancel, remove and destroy the rest here. */
    norv_epoll_close(&service->loop);
    sem_destroy(&service->end_wanted);
}

int main(int argc, char** argv) {
    const unsigned long runs = argc > 1 ? strtoul(argv[1], NULL, 10) : 100;
    unsigned long served = 0;

    for (unsigned long run = 0; run < runs; ++run) {
        service_t service = {.served = 0}; /* zero-filled, as the loop and the timers require */
        unsigned called = 0;
        start(&service);
        sem_wait(&service.end_wanted);
        shut_down(&service);
        for (unsigned index = 0; index < WORKERS; ++index) {
            called += service.workers[index].calls;
        }
        if (service.served != called) {
            fprintf(stderr, "%u calls were made, %u served\n", called, service.served);
            return EXIT_FAILURE;
        }
        served += called;
    }
    printf("%lu runs of a loop with %d worker threads: %lu calls, all served\n", runs, WORKERS, served);
    return EXIT_SUCCESS;
}
