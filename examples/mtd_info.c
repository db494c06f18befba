/* SPDX-License-Identifier: MIT */
/*
 * Prints the geometry of a flash partition, its bad blocks and its first bytes. Changes nothing.
 *
 *     mtd_info [DEVICE]      default: /dev/mtd0
 *
 * On the virtual board, a NAND flash with two bad blocks:
 * board/run --module 'nandsim id_bytes=0x20,0x33 badblocks=3,4' build/release/examples/mtd_info
 */
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_mtd.h"

/* Ends the program if a call has failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Only NAND is queried for bad blocks. */
static unsigned count_bad_blocks(const norv_mtd_t* partition) {
    unsigned count = 0;
    if (!norv_linux_mtd_type_is_nand(partition)) {
        return 0;
    }
    for (uint32_t block = 0; block < partition->info.size; block += partition->info.erasesize) {
        uint8_t bad = 0;
        must("query a block", norv_linux_mtd_block_isbad(partition, block, &bad));
        if (bad != 0) {
            printf("  the block at 0x%08x is bad\n", block);
            ++count;
        }
    }
    return count;
}

/* A read may be short, for instance at the end of the partition. */
static void show_start(const norv_mtd_t* partition) {
    uint8_t bytes[16];
    uint32_t count = 0;
    must("read", norv_linux_mtd_read(partition, 0, sizeof bytes, bytes, &count));
    printf("  starts with ");
    for (uint32_t index = 0; index < count; ++index) {
        printf(" %02x", bytes[index]);
    }
    printf("\n");
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "/dev/mtd0";
    norv_mtd_t partition;

    must(path, norv_linux_mtd_open(path, &partition));
    printf("%s: %s, %u KiB in erase blocks of %u, written in units of %u bytes\n", path,
           norv_linux_mtd_type_is_nand(&partition) ? "NAND" : "not NAND", partition.info.size / 1024,
           partition.info.erasesize, partition.info.writesize);
    show_start(&partition);
    const unsigned bad = count_bad_blocks(&partition);
    norv_linux_mtd_close(&partition);
    printf("%s: %u bad blocks\n", path, bad);
    return EXIT_SUCCESS;
}
