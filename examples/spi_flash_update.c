/* SPDX-License-Identifier: MIT */
/*
 * Writes an image into the SPI flash of a board, around bad blocks, verifies it, and reads the whole back.
 *
 *     spi_flash_update START END IMAGE JOURNAL
 *
 * START and END bound the area in bytes, and are multiples of the erase block size. The image may be smaller
 * than the area, whose other good blocks are used in place of bad ones. Ctrl-C stops the update, and a power
 * cut may: JOURNAL, a file on another medium, keeps the progress, and the same command resumes the update.
 *
 * On the virtual board:
 *     board/run --module 'norv_board_mtd nand=0' -- build/release/examples/spi_flash_update \
 *         0 0x200000 build/release/src/libnorv_io_linux.so.0 /tmp/journal
 */
#include "flash_update.h"

#include "norv_linux_spi_flash.h"

/* Erases again what an interrupted run has started but not noted; nothing before the cursor is touched. */
static void write_rest(norv_spi_flash_t** flash, update_t* update) {
    const uint8_t* rest = update->image + update->done;
    uint32_t length = update->size - update->done;
    uint32_t end = update->end;
    if (length == 0) {
        return;
    }
    update->doing = "erasing";
    must("erasing", norv_linux_spi_flash_continue_erase(flash, update->cursor, length, &end, is_interrupted,
                                                        show, update));
    /* `end` is now the end of the erased blocks: the write stays within them. */
    update->doing = "writing";
    must("writing", norv_linux_spi_flash_continue_write_verify(flash, update->cursor, 0, rest, &length, &end,
                                                               is_interrupted, note, update));
}

static void compare_image(norv_spi_flash_t** flash, update_t* update) {
    uint32_t length = update->size;
    uint8_t* found = calloc(1, length);
    if (found == NULL) {
        fail("reading", "out of memory");
    }
    update->doing = "reading";
    must("reading", norv_linux_spi_flash_continue_read(flash, update->start, found, &length, is_interrupted,
                                                       show, update));
    close_journal(update, found);
    free(found);
}

int main(int count, char** arguments) {
    static update_t update;
    norv_spi_flash_t* flash;
    if (count != 5) {
        fprintf(stderr, "usage: spi_flash_update START END IMAGE JOURNAL\n");
        return 2;
    }
    signal(SIGINT, interrupt);
    load_image(&update, arguments[3], 1);
    update.start = number(arguments[1]);
    update.end = number(arguments[2]);
    update.journal = arguments[4];
    if (update.end < update.start || update.end - update.start < update.size) {
        fail(arguments[3], "the image does not fit into the area");
    }
    must("open the flash", norv_linux_spi_flash_open(&flash));
    open_journal(&update, "the SPI flash");
    write_rest(&flash, &update);
    compare_image(&flash, &update);
    norv_linux_spi_flash_close(&flash);
    free(update.image);
    printf("%" PRIu32 " bytes at 0x%" PRIx32 " written and verified\n", update.size, update.start);
    return EXIT_SUCCESS;
}
