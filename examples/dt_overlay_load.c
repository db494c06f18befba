/* SPDX-License-Identifier: MIT */
/*
 * Describes hardware to the kernel with a device-tree overlay, which it unloads again.
 *
 *     dt_overlay_load DTBO
 *
 * DTBO is the path of a compiled overlay. On the virtual board:
 * board/run --module norv_board_dt_overlay build/release/examples/dt_overlay_load \
 *     build/release/examples/fpga_bringup.dtbo
 */
#include <errno.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_dt.h"

#define OVERLAY "dt_overlay_load"

/* Ends the program if a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    bool applied = false;
    if (argc != 2) {
        fprintf(stderr, "usage: %s DTBO\n", argv[0]);
        return EXIT_FAILURE;
    }

    /* A failed load leaves a directory, which keeps the name in use. That of another load is not unloaded. */
    const uint32_t status = norv_dt_load_overlay(OVERLAY, argv[1]);
    if (status != NORV_STATUS_OK && status != norv_get_status_by_errno(EEXIST)) {
        norv_dt_unload_overlay(OVERLAY);
    }
    must("load the overlay", status);

    must("read its status", norv_dt_has_overlay(OVERLAY, &applied));
    printf("  %s is %s\n", argv[1], applied ? "applied" : "not applied");
    must("unload the overlay", norv_dt_unload_overlay(OVERLAY));
    puts("  it was unloaded");
    return applied ? EXIT_SUCCESS : EXIT_FAILURE;
}
