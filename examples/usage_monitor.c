/* SPDX-License-Identifier: MIT */
/*
 * Shows CPU load and network rates, once a second.
 *
 *     usage_monitor [INTERFACE [SECONDS]]      default: lo 3
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_cpu_usage.h"
#include "norv_net_usage.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const char* interface = argc > 1 ? argv[1] : "lo";
    const unsigned seconds = argc > 2 ? (unsigned)strtoul(argv[2], NULL, 10) : 3;
    norv_cpu_usage_t cpu = {0}; /* filled with zeros, as open requires */
    norv_net_usage_t net;

    setvbuf(stdout, NULL, _IOLBF, 0);
    must("open the CPU sampler", norv_cpu_usage_open(&cpu));
    must("open the network sampler", norv_net_usage_open(&net, interface));
    printf("  since the start the processors were busy %u.%02u %% of the time\n", cpu.usage / 100,
           cpu.usage % 100);
    for (unsigned second = 0; second < seconds; ++second) {
        sleep(1);
        must("sample the CPU", norv_cpu_usage_update(&cpu));
        must("sample the network", norv_net_usage_update(&net));
        printf("  CPU %3u.%02u %%   %s: %u kbit/s in, %u kbit/s out\n", cpu.usage / 100, cpu.usage % 100,
               interface, net.rx_rate, net.tx_rate);
    }
    norv_net_usage_close(&net);
    norv_cpu_usage_close(&cpu);
    printf("%u samples were taken\n", seconds);
    return EXIT_SUCCESS;
}
