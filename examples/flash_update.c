/* SPDX-License-Identifier: MIT */
/*
 * Updates firmware on either kind of flash: erases an area, writes a file there and verifies it, and reads
 * the whole back.
 *
 *     flash_update DEVICE ADDRESS FILE JOURNAL [END]
 *
 * DEVICE is the block device of an eMMC or SD card, or "spi" for the SPI flash. Ctrl-C stops the update, and
 * a power cut may: JOURNAL, a file on another medium, keeps the progress, and the same command resumes the
 * update.
 *
 * The file is padded with 0xFF to whole chunks of 128 KiB (0x20000), and ADDRESS must be a multiple of a
 * chunk, so that nothing after the area is touched. END is where the area ends, by default at the end of the
 * padded file. A larger area lets the SPI flash use its other good blocks in place of bad ones.
 *
 * On the virtual board /dev/mmcblk0 is an SD card, with the modules sdhci-pci and mmc_block.
 */
#include "flash_update.h"

#include "norv_linux_flash.h"

#define CHUNK 0x20000u

/* ---- the flash and the area ---- */

static void open_flash(norv_flash_t* flash, const char* device) {
    const bool is_spi = strcmp(device, "spi") == 0;
    const norv_flash_config_t config = {.kind = is_spi ? NORV_FLASH_KIND_SPI : NORV_FLASH_KIND_EMMC,
                                        .emmc_path = device};
    must(device, norv_linux_flash_open(&config, flash));
}

/* Refuses an area that is not on the flash, before anything is written. */
static void check_area(norv_flash_t* flash, const update_t* update, const char* device) {
    norv_flash_info_t info;
    must(device, norv_linux_flash_get_info(flash, &info));
    printf("%s: %llu KiB, erase block %u, write unit %u\n", device, (unsigned long long)(info.size / 1024),
           info.erase_block_size, info.write_unit_size);
    if (update->start % CHUNK != 0) {
        fail(device, "the address is not a multiple of 128 KiB");
    }
    if (update->end < update->start || update->end - update->start < update->size ||
        update->end > info.size) {
        fail(device, "the image does not fit into the area, or the area into the flash");
    }
}

/* ---- the update ---- */

/* Erases again what an interrupted run has started but not noted; nothing before the cursor is touched. */
static void write_rest(norv_flash_t* flash, update_t* update) {
    const uint8_t* rest = update->image + update->done;
    uint32_t length = update->size - update->done;
    uint32_t end = update->end;
    if (length == 0) {
        return;
    }
    update->doing = "erasing";
    must("erasing",
         norv_linux_flash_continue_erase(flash, update->cursor, length, &end, is_interrupted, show, update));
    update->doing = "writing";
    must("writing", norv_linux_flash_continue_write_verify(flash, update->cursor, 0, rest, &length, &end,
                                                           is_interrupted, note, update));
}

static void compare_image(norv_flash_t* flash, update_t* update) {
    uint32_t length = update->size;
    uint8_t* found = malloc(length);
    if (found == NULL) {
        fail("reading", "out of memory");
    }
    update->doing = "reading";
    must("reading",
         norv_linux_flash_continue_read(flash, update->start, found, &length, is_interrupted, show, update));
    close_journal(update, found);
    free(found);
}

int main(int count, char** arguments) {
    static update_t update;
    norv_flash_t flash;
    if (count != 5 && count != 6) {
        fprintf(stderr, "usage: flash_update DEVICE|spi ADDRESS FILE JOURNAL [END]\n");
        return 2;
    }
    signal(SIGINT, interrupt);
    load_image(&update, arguments[3], CHUNK);
    update.start = number(arguments[2]);
    update.end = count == 6 ? number(arguments[5]) : update.start + update.size;
    update.journal = arguments[4];

    open_flash(&flash, arguments[1]);
    check_area(&flash, &update, arguments[1]);
    open_journal(&update, arguments[1]);
    write_rest(&flash, &update);
    compare_image(&flash, &update);
    norv_linux_flash_close(&flash);
    free(update.image);
    printf("%s: %" PRIu32 " bytes at 0x%" PRIx32 " written and verified\n", arguments[1], update.size,
           update.start);
    return EXIT_SUCCESS;
}
