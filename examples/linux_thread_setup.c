/* SPDX-License-Identifier: MIT */
/*
 * Prepares a control thread: its name, its processor, and real-time priority.
 *
 *     linux_thread_setup [PROCESSOR]      default: 0
 *
 * Needs no hardware. Without the privilege, the thread keeps its ordinary priority, which the library does
 * not report: a program for which it matters checks it, as this one does.
 */
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_thread.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void show_priority(const char* wanted) {
    struct sched_param parameters = {0};
    int policy = SCHED_OTHER;
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    printf("  wanted %-9s got %s, priority %d\n", wanted, policy == SCHED_FIFO ? "real time" : "normal",
           parameters.sched_priority);
}

static void* control(void* argument) {
    const int32_t* processor = argument;
    must("name the thread", norv_linux_thread_set_name("control"));
    must("choose its processor", norv_linux_thread_set_cpu_affinity(*processor));
    printf("  thread \"control\" on processor %d\n", (int)*processor);
    must("set real-time priority", norv_linux_thread_set_realtime_priority());
    show_priority("real time");
    must("set normal priority", norv_linux_thread_set_normal_priority());
    show_priority("normal");
    return NULL;
}

int main(int argc, char** argv) {
    int32_t processor = argc > 1 ? atoi(argv[1]) : 0;
    pthread_t thread;

    if (pthread_create(&thread, NULL, control, &processor) != 0) {
        perror("start a thread");
        return EXIT_FAILURE;
    }
    pthread_join(thread, NULL);
    puts("the thread was prepared");
    return EXIT_SUCCESS;
}
