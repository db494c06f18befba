/* SPDX-License-Identifier: MIT */
/*
 * Brings up the programmable logic: programs the FPGA, waits until it is operating, and describes the new
 * hardware to the kernel with a device-tree overlay, which it unloads at the end.
 *
 *     fpga_bringup FPGA FIRMWARE DTBO      for instance: 0 design.bit.bin design.dtbo
 *
 * FIRMWARE is a file's name in the kernel's firmware search path, /lib/firmware on most systems; DTBO is the
 * path of a compiled overlay.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "norv_base.h"
#include "norv_dt.h"
#include "norv_fpga.h"

#define OVERLAY "fpga_bringup"

/* Ends the program if a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Some drivers return from programming before the logic has started: wait for up to a second. */
static bool wait_until_operating(uint32_t fpga) {
    const struct timespec pause = {.tv_nsec = 10 * 1000 * 1000};
    bool operating = false;
    for (int attempt = 0; attempt < 100 && !operating; ++attempt) {
        must("read the state", norv_fpga_is_program_done(fpga, &operating));
        if (!operating) {
            nanosleep(&pause, NULL);
        }
    }
    return operating;
}

/* An overlay that a previous run has left keeps its name in use. */
static void remove_old_overlay(void) {
    bool applied = false;
    must("look for an old overlay", norv_dt_has_overlay(OVERLAY, &applied));
    if (applied) {
        must("unload the old overlay", norv_dt_unload_overlay(OVERLAY));
        puts("  an old overlay was unloaded");
    }
}

/* Removes the directory that a failed load leaves. */
static void load_overlay(const char* path) {
    const uint32_t status = norv_dt_load_overlay(OVERLAY, path);
    if (status != NORV_STATUS_OK) {
        norv_dt_unload_overlay(OVERLAY);
    }
    must("load the overlay", status);
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s FPGA FIRMWARE DTBO\n", argv[0]);
        return EXIT_FAILURE;
    }
    const uint32_t fpga = (uint32_t)strtoul(argv[1], NULL, 10);

    remove_old_overlay();
    const uint64_t start = norv_time_get_ms();
    must("program the FPGA", norv_fpga_program(fpga, argv[2]));
    if (!wait_until_operating(fpga)) {
        fprintf(stderr, "the FPGA took %s, but is not operating\n", argv[2]);
        return EXIT_FAILURE;
    }
    printf("  fpga%u is operating with %s, programmed in %llu ms\n", fpga, argv[2],
           (unsigned long long)(norv_time_get_ms() - start));

    load_overlay(argv[3]);
    printf("  the kernel has applied %s\n", argv[3]);

    /* Here the application would use the hardware. */

    must("unload the overlay", norv_dt_unload_overlay(OVERLAY));
    puts("the overlay was unloaded; the FPGA keeps its design");
    return EXIT_SUCCESS;
}
