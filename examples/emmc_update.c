/*
 * Updates firmware: erases an area of a flash, writes a file into it, verifies it, and reads it back.
 *
 *     emmc_update DEVICE ADDRESS FILE JOURNAL
 *
 * DEVICE is the block device of an eMMC or SD card, or "spi" for the SPI flash. Ctrl-C stops the update, and
 * so may a power cut: JOURNAL, a file on some other medium, keeps how far it is, and the same command goes on
 * there.
 *
 * The image is filled up with 0xFF to whole chunks, so that nothing behind it is touched; ADDRESS should be a
 * multiple of 128 KiB (0x20000).
 *
 * On the virtual board /dev/mmcblk0 is an SD card, with the modules sdhci-pci and mmc_block.
 */
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_linux_flash.h"

#define CHUNK 0x20000u

static volatile sig_atomic_t interrupted;

/* One update, on its way. */
struct update {
    norv_flash_t flash;
    uint32_t address;
    uint32_t area_end;
    uint8_t* image;
    uint32_t size;
    uint32_t written; /* so much of the image is on the flash, verified */
    const char* journal;
    const char* doing;
};

static void interrupt(int number) {
    (void)number;
    interrupted = 1;
}

static void fail(const char* what, uint32_t status) {
    fprintf(stderr, "\n%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
    exit(EXIT_FAILURE);
}

/* Ends the program when a call failed, and in peace when it was interrupted. */
static void must(const char* what, uint32_t status) {
    if (status == NORV_STATUS_TIMEOUT && interrupted) {
        printf("\nstopped; the same command goes on from here\n");
        exit(EXIT_SUCCESS);
    }
    if (status != NORV_STATUS_OK) {
        fail(what, status);
    }
}

/* ---- the journal: a number in a file ---- */

static uint32_t read_journal(const char* path) {
    unsigned written = 0;
    FILE* file = fopen(path, "r");
    if (file != NULL) {
        if (fscanf(file, "%u", &written) != 1) {
            written = 0;
        }
        fclose(file);
    }
    return written;
}

static void write_journal(const struct update* update) {
    FILE* file = fopen(update->journal, "w");
    if (file == NULL || fprintf(file, "%u\n", update->written) < 0 || fflush(file) != 0 ||
        fsync(fileno(file)) != 0 || fclose(file) != 0) {
        perror(update->journal);
        exit(EXIT_FAILURE);
    }
}

/* ---- the image ---- */

static void read_image(struct update* update, const char* path) {
    FILE* file = fopen(path, "rb");
    long length;
    if (file == NULL || fseek(file, 0, SEEK_END) != 0 || (length = ftell(file)) <= 0 ||
        fseek(file, 0, SEEK_SET) != 0) {
        perror(path);
        exit(EXIT_FAILURE);
    }
    update->size = ((uint32_t)length + CHUNK - 1) / CHUNK * CHUNK;
    update->image = malloc(update->size);
    if (update->image == NULL) {
        fail(path, NORV_STATUS_NO_MEMORY);
    }
    memset(update->image, 0xFF, update->size);
    if (fread(update->image, 1, (size_t)length, file) != (size_t)length) {
        perror(path);
        exit(EXIT_FAILURE);
    }
    fclose(file);
}

/* ---- callbacks of the three operations ---- */

static bool stop(void* user) {
    (void)user;
    return interrupted;
}

static void show(void* user, uint32_t status, uint32_t address, uint32_t remaining, uint32_t percentage) {
    static const char bar[] = "########################################";
    const struct update* update = user;
    (void)status;
    (void)remaining;
    printf("\r%-8s [%-40.*s] %3u %%  0x%08x", update->doing, (int)(percentage * 40 / 100), bar, percentage,
           address);
    fflush(stdout);
}

static void note_and_show(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                          uint32_t percentage) {
    struct update* update = user;
    update->written = update->size - remaining;
    write_journal(update);
    show(user, status, address, remaining, percentage);
}

/* ---- the update ---- */

static void open_flash(struct update* update, const char* device) {
    const bool is_spi = strcmp(device, "spi") == 0;
    const norv_flash_config_t config = {.kind = is_spi ? NORV_FLASH_KIND_SPI : NORV_FLASH_KIND_EMMC,
                                        .emmc_path = device};
    norv_flash_info_t info;
    must(device, norv_linux_flash_open(&config, &update->flash));
    must(device, norv_linux_flash_get_info(&update->flash, &info));
    printf("%s: %llu KiB, erase block %u, write unit %u\n", device, (unsigned long long)(info.size / 1024),
           info.erase_block_size, info.write_unit_size);
    /* The SPI flash may use good blocks up to its end in place of bad ones. */
    update->area_end = info.size < 0xFFFE0000u ? (uint32_t)info.size : 0xFFFE0000u;
}

static void erase_area(struct update* update) {
    uint32_t end = update->area_end;
    update->doing = "erasing";
    must("erasing", norv_linux_flash_continue_erase(&update->flash, update->address, update->size, &end, stop,
                                                    show, update));
    printf("\n");
}

/* Goes on behind what an earlier run has written. */
static void write_image(struct update* update) {
    uint32_t end = update->area_end;
    uint32_t length = update->size - update->written;
    const uint32_t written = update->written;
    update->doing = "writing";
    must("writing", norv_linux_flash_continue_write_verify(&update->flash, update->address, written,
                                                           update->image + written, &length, &end, stop,
                                                           note_and_show, update));
    printf("\n");
}

static void compare_image(struct update* update) {
    uint32_t length = update->size;
    uint8_t* found = malloc(length);
    if (found == NULL) {
        fail("reading", NORV_STATUS_NO_MEMORY);
    }
    update->doing = "reading";
    must("reading",
         norv_linux_flash_continue_read(&update->flash, update->address, found, &length, stop, show, update));
    printf("\n");
    if (memcmp(found, update->image, length) != 0) {
        fail("reading back", NORV_STATUS_VERIFY_FAILED);
    }
    free(found);
}

int main(int count, char** arguments) {
    struct update update = {0};
    struct sigaction action = {.sa_handler = interrupt};
    if (count != 5) {
        fprintf(stderr, "usage: emmc_update DEVICE|spi ADDRESS FILE JOURNAL\n");
        return 2;
    }
    sigaction(SIGINT, &action, NULL);
    update.address = (uint32_t)strtoul(arguments[2], NULL, 0);
    update.journal = arguments[4];
    read_image(&update, arguments[3]);
    open_flash(&update, arguments[1]);

    update.written = read_journal(update.journal);
    if (update.written == 0) {
        erase_area(&update);
    } else {
        printf("going on behind %u of %u bytes\n", update.written, update.size);
    }
    write_image(&update);
    compare_image(&update);

    norv_linux_flash_close(&update.flash);
    remove(update.journal);
    free(update.image);
    printf("%s: %u bytes at 0x%x are as they should be\n", arguments[1], update.size, update.address);
    return EXIT_SUCCESS;
}
