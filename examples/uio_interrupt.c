/* SPDX-License-Identifier: MIT */
/*
 * Waits for interrupts of a UIO device, and enables the interrupt again after each.
 *
 *     uio_interrupt [NAME [COUNT [TIMEOUT]]]      default: norv-board-regs 5 1000
 *
 * Ends after COUNT interrupts; without one for TIMEOUT milliseconds it fails. On the virtual board, where a
 * number written to a debug file makes the device interrupt:
 * board/run --module norv_board_uio sh -c 'echo 5 >/sys/kernel/debug/norv_board_uio/raise &&
 *     build/release/examples/uio_interrupt'
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_uio.h"

/* Ends the program if a call failed; the kernel closes the device. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const char* name = argc > 1 ? argv[1] : "norv-board-regs";
    const unsigned long count = argc > 2 ? strtoul(argv[2], NULL, 0) : 5;
    const uint32_t timeout = argc > 3 ? (uint32_t)strtoul(argv[3], NULL, 0) : 1000;
    const uint64_t start = norv_time_get_us();
    norv_uio_t* device = NULL;

    must("open", norv_uio_open_by_name(name, &device));
    for (unsigned long interrupt = 1; interrupt <= count; ++interrupt) {
        must("enable the interrupt", norv_uio_enable_irq(&device));
        must("wait for the interrupt", norv_uio_wait_irq(&device, timeout));
        printf("interrupt %lu after %" PRIu64 " us\n", interrupt, norv_time_get_us() - start);
    }
    must("disable the interrupt", norv_uio_disable_irq(&device));
    norv_uio_close(&device);
    printf("%lu interrupts of %s came\n", count, name);
    return EXIT_SUCCESS;
}
