/* SPDX-License-Identifier: MIT */
/*
 * Reads a register of a UIO device, or writes one and reads it back.
 *
 *     uio_peek_poke NAME OFFSET [VALUE]
 *
 * NAME is the content of /sys/class/uio/uioN/name, OFFSET is in bytes from the start of region 0. On the
 * virtual board:
 * board/run --module norv_board_uio build/release/examples/uio_peek_poke norv-board-regs 0x10 0xcafe
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_uio.h"

int main(int argc, char** argv) {
    norv_uio_t* device = NULL;
    if (argc < 3) {
        fprintf(stderr, "usage: %s NAME OFFSET [VALUE]\n", argv[0]);
        return EXIT_FAILURE;
    }
    const char* name = argv[1];
    const uint32_t offset = (uint32_t)strtoul(argv[2], NULL, 0);
    const uint32_t status = norv_uio_open_by_name(name, &device);
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "open %s: %s (%s)\n", name, norv_status_name(status), norv_status_text(status));
        return EXIT_FAILURE;
    }

    printf("%s, offset 0x%" PRIx32 ": 0x%08" PRIx32 "\n", name, offset, norv_uio_read_32(&device, offset));
    if (argc > 3) {
        norv_uio_write_32(&device, offset, (uint32_t)strtoul(argv[3], NULL, 0));
        printf("after writing %s: 0x%08" PRIx32 "\n", argv[3], norv_uio_read_32(&device, offset));
    }
    norv_uio_close(&device);
    return EXIT_SUCCESS;
}
