/* SPDX-License-Identifier: MIT */
/*
 * A GPIO edge travels from the kernel through the event loop to its handler.
 *
 *     gpio_edge [INPUT OUTPUT [EDGES]]      default: 17 16 10
 *
 * Needs two lines that are wired together; on the virtual board 16 drives 17. A loop timer toggles the
 * output, the loop reports each rising edge of the input with its level and the time that it took, and
 * another thread stops the loop after that many edges.
 */
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_epoll.h"
#include "norv_linux_gpio.h"

typedef struct {
    norv_epoll_fd_t input_events; /* first, so that the handlers reach the whole record */
    norv_linux_gpio_t input;
    uint64_t driven_at; /* when the timer raised the output */
    uint64_t fastest_us;
    uint64_t slowest_us;
    unsigned edges;
    unsigned wanted;
    sem_t finished;
} monitor_t;

typedef struct {
    norv_epoll_timer_t timer; /* first, likewise */
    norv_linux_gpio_t output;
    monitor_t* monitor;
    bool level;
} driver_t;

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Loop thread: the timer toggles the output. */
static void drive(norv_epoll_timer_t* timer) {
    driver_t* driver = (driver_t*)timer;
    driver->level = !driver->level;
    driver->monitor->driven_at = norv_time_get_us();
    must("drive the output", norv_linux_gpio_set_value(&driver->output, driver->level));
}

/* Loop thread: the input reported an edge. Reading the value arms the next one. */
static void on_edge(norv_epoll_fd_t* record, uint32_t events) {
    monitor_t* monitor = (monitor_t*)record;
    const uint64_t took = norv_time_get_us() - monitor->driven_at;
    uint8_t level = 0;
    (void)events;
    must("read the input", norv_linux_gpio_get_value(&monitor->input, &level));
    if (monitor->driven_at == 0 || monitor->edges == monitor->wanted) {
        return; /* the kernel reports a line once before its first edge */
    }
    ++monitor->edges;
    monitor->fastest_us = took < monitor->fastest_us ? took : monitor->fastest_us;
    monitor->slowest_us = took > monitor->slowest_us ? took : monitor->slowest_us;
    printf("  edge %2u   level %u   %5llu us after the line was driven\n", monitor->edges, level,
           (unsigned long long)took);
    if (monitor->edges == monitor->wanted) {
        sem_post(&monitor->finished);
    }
}

typedef struct {
    norv_epoll_t* loop;
    monitor_t* monitor;
} stopper_t;

/* Another thread: stops the loop once all edges have come. */
static void* stop_when_finished(void* argument) {
    stopper_t* stopper = argument;
    sem_wait(&stopper->monitor->finished);
    must("stop the loop", norv_epoll_exit(stopper->loop));
    return NULL;
}

int main(int argc, char** argv) {
    const uint32_t input = argc > 2 ? (uint32_t)strtoul(argv[1], NULL, 10) : 17;
    const uint32_t output = argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 10) : 16;
    static norv_epoll_t loop; /* zero-filled, as open wants it */
    monitor_t monitor = {.fastest_us = UINT64_MAX,
                         .wanted = argc > 3 ? (unsigned)strtoul(argv[3], NULL, 10) : 10};
    driver_t driver = {.timer = {.callback = drive, .name = "driver"}, .monitor = &monitor};
    stopper_t stopper = {&loop, &monitor};
    pthread_t thread;

    setvbuf(stdout, NULL, _IOLBF, 0);
    printf("line %u: input, rising edge; line %u: output, toggled every 20 ms by a loop timer\n", input,
           output);
    must("open the output", norv_linux_gpio_open(output, &driver.output));
    must("make it an output", norv_linux_gpio_set_dir(&driver.output, true));
    must("open the input", norv_linux_gpio_open(input, &monitor.input));
    must("make it an input", norv_linux_gpio_set_dir(&monitor.input, false));
    must("choose the rising edge", norv_linux_gpio_set_irq(&monitor.input, NORV_LINUX_GPIO_EDGE_RISING));

    must("open the loop", norv_epoll_open(&loop));
    monitor.input_events.descriptor = norv_linux_gpio_get_fd(&monitor.input);
    monitor.input_events.handler = on_edge;
    must("register the input", norv_epoll_fd_add(&loop, &monitor.input_events, EPOLLPRI));
    must("schedule the driver", norv_epoll_timer_schedule(&loop, &driver.timer, 20, true));
    sem_init(&monitor.finished, 0, 0);
    if (pthread_create(&thread, NULL, stop_when_finished, &stopper) != 0) {
        perror("start a thread");
        return EXIT_FAILURE;
    }

    norv_epoll_loop_with_watchdog(&loop, NULL, 0);

    pthread_join(thread, NULL);
    norv_epoll_timer_cancel(&loop, &driver.timer);
    norv_epoll_fd_remove(&loop, &monitor.input_events);
    norv_epoll_close(&loop);
    norv_linux_gpio_close(&monitor.input);
    norv_linux_gpio_close(&driver.output);
    sem_destroy(&monitor.finished);
    printf("%u edges, none lost, %llu to %llu us each; another thread stopped the loop\n", monitor.edges,
           (unsigned long long)monitor.fastest_us, (unsigned long long)monitor.slowest_us);
    return EXIT_SUCCESS;
}
