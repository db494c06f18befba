/* SPDX-License-Identifier: MIT */
/*
 * Shows CPU load, once a second.
 *
 *     cpu_usage_monitor [SECONDS]      default: 3
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_cpu_usage.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void show(const char* when, const norv_cpu_usage_t* cpu) {
    printf("  %s the processors were busy %3u.%02u %% of the time\n", when, cpu->usage / 100,
           cpu->usage % 100);
}

int main(int argc, char** argv) {
    const unsigned seconds = argc > 1 ? (unsigned)strtoul(argv[1], NULL, 10) : 3;
    norv_cpu_usage_t cpu = {0}; /* filled with zeros, as open requires */

    setvbuf(stdout, NULL, _IOLBF, 0);
    must("open the sampler", norv_cpu_usage_open(&cpu));
    show("since the start", &cpu);
    for (unsigned second = 0; second < seconds; ++second) {
        sleep(1);
        must("take a sample", norv_cpu_usage_update(&cpu));
        show("in this second ", &cpu);
    }
    norv_cpu_usage_close(&cpu);
    printf("%u samples were taken\n", seconds);
    return EXIT_SUCCESS;
}
