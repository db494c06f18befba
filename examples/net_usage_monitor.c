/* SPDX-License-Identifier: MIT */
/*
 * Shows how much a network interface receives and transmits, once a second.
 *
 *     net_usage_monitor [INTERFACE [SECONDS]]      default: lo 3
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "norv_base.h"
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
    norv_net_usage_t net;

    setvbuf(stdout, NULL, _IOLBF, 0);
    must("open the sampler", norv_net_usage_open(&net, interface));
    for (unsigned second = 0; second < seconds; ++second) {
        sleep(1);
        must("take a sample", norv_net_usage_update(&net));
        printf("  %s: %u kbit/s in, %u kbit/s out\n", interface, net.rx_rate, net.tx_rate);
    }
    norv_net_usage_close(&net);
    printf("%u samples were taken\n", seconds);
    return EXIT_SUCCESS;
}
