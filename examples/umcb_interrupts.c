/* SPDX-License-Identifier: MIT */
/*
 * Registers an interrupt source of a UMCB device and waits for its interrupts.
 *
 *     umcb_interrupts [INDEX [SOURCE [COUNT [TIMEOUT]]]]      default: 0 1 5 1000
 *
 * Ends after COUNT interrupts; without one for TIMEOUT milliseconds it fails. On the virtual board, where a
 * number written to a debug file makes a source interrupt:
 * board/run --module norv_board_umcb sh -c 'echo 5 >/sys/kernel/debug/norv_board_umcb/source1/raise &&
 *     build/release/examples/umcb_interrupts'
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_umcb.h"

/* Ends the program if a call failed; the kernel closes the device and its sources. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static unsigned long argument(int argc, char** argv, int number, unsigned long otherwise) {
    return argc > number ? strtoul(argv[number], NULL, 0) : otherwise;
}

int main(int argc, char** argv) {
    const uint32_t index = (uint32_t)argument(argc, argv, 1, 0);
    const uint32_t number = (uint32_t)argument(argc, argv, 2, 1);
    const unsigned long count = argument(argc, argv, 3, 5);
    const uint32_t timeout = (uint32_t)argument(argc, argv, 4, 1000);
    const uint64_t start = norv_time_get_us();
    norv_umcb_t* device = NULL;
    int32_t source = -1;

    must("open", norv_umcb_open_by_idx(index, -1, &device));
    must("register the source", norv_umcb_irq_register(&device, number, &source));
    must("enable the device", norv_umcb_irq_global_enable(&device));
    must("enable the source", norv_umcb_irq_enable(source));
    for (unsigned long interrupt = 1; interrupt <= count; ++interrupt) {
        must("wait for an interrupt", norv_umcb_irq_wait(source, timeout));
        printf("interrupt %lu after %" PRIu64 " us\n", interrupt, norv_time_get_us() - start);
    }
    must("disable the source", norv_umcb_irq_disable(source));
    must("disable the device", norv_umcb_irq_global_disable(&device));
    close(source);
    norv_umcb_close(&device);
    printf("%lu interrupts of source %" PRIu32 " came\n", count, number);
    return EXIT_SUCCESS;
}
