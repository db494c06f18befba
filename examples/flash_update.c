/*
 * Writes an image into the flash of a board, over bad blocks, and verifies it.
 *
 *     flash_update [START END [IMAGE [STATE]]]
 *
 * Without arguments: 0 0x200000 /proc/self/exe /tmp/flash_update.state.
 * START and END bound the area in bytes; START is a multiple of the erase block size. The image may be
 * smaller than the area, whose other good blocks take the place of bad ones. Ctrl-C stops the update, and so
 * may a power cut: the file STATE remembers the last block that was written and verified, and the same
 * command goes on behind it. On the virtual board:
 *     board/run --module 'mtdram total_size=8192 erase_size=128' build/release/examples/flash_update
 */
#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_linux_spi_flash.h"

/* What STATE remembers. It counts only for the same image and area. */
typedef struct {
    uint32_t start;
    uint32_t end;
    uint32_t size;     /* of the image */
    uint32_t checksum; /* of the image */
    uint32_t cursor;   /* the block to go on with */
    uint32_t done;     /* bytes of the image that are stored before it */
} state_t;

typedef struct {
    norv_spi_flash_t* flash;
    uint8_t* image;
    const char* state_path;
    state_t state;
    uint32_t already; /* done when the write began */
} update_t;

static volatile sig_atomic_t interrupted;

static void on_interrupt(int signal_number) {
    (void)signal_number;
    interrupted = 1;
}

static void fail(const char* what, const char* why) {
    fprintf(stderr, "\n%s: %s\n", what, why);
    exit(EXIT_FAILURE);
}

static uint8_t* load(const char* path, uint32_t* size) {
    FILE* file = fopen(path, "rb");
    uint8_t* bytes = NULL;
    size_t capacity = 0;
    size_t count = 0;
    if (file == NULL) {
        fail(path, strerror(errno));
    }
    do {
        capacity += 1 << 20;
        bytes = realloc(bytes, capacity);
        if (bytes == NULL) {
            fail(path, "out of memory");
        }
        count += fread(bytes + count, 1, capacity - count, file);
    } while (count == capacity);
    if (ferror(file) || count == 0 || count > UINT32_MAX) {
        fail(path, "no image");
    }
    fclose(file);
    *size = (uint32_t)count;
    return bytes;
}

static uint32_t checksum(const uint8_t* bytes, uint32_t size) {
    uint32_t sum = 2166136261U;
    for (uint32_t index = 0; index < size; ++index) {
        sum = (sum ^ bytes[index]) * 16777619U;
    }
    return sum;
}

/* Stored beside and renamed, so that there is always a whole one. */
static void store_state(const update_t* update) {
    char path[4096];
    snprintf(path, sizeof path, "%s.new", update->state_path);
    FILE* file = fopen(path, "wb");
    if (file == NULL || fwrite(&update->state, sizeof update->state, 1, file) != 1 || fflush(file) != 0 ||
        fsync(fileno(file)) != 0 || fclose(file) != 0 || rename(path, update->state_path) != 0) {
        fail(update->state_path, strerror(errno));
    }
}

/* Goes on where an update of the same image and area was stopped. */
static void resume(update_t* update) {
    state_t found;
    const size_t same = offsetof(state_t, cursor);
    FILE* file = fopen(update->state_path, "rb");
    if (file == NULL) {
        return;
    }
    if (fread(&found, sizeof found, 1, file) == 1 && memcmp(&found, &update->state, same) == 0) {
        update->state = found;
        printf("goes on behind %u of %u bytes\n", found.done, found.size);
    }
    fclose(file);
}

static void draw(const char* what, uint32_t percentage) {
    char bar[] = "..................................................";
    memset(bar, '#', percentage / 2);
    printf("\r%-6s [%s] %3u %%", what, bar, percentage);
    fflush(stdout);
}

static uint32_t block_end(const norv_spi_flash_t* flash, uint32_t address) {
    const norv_spi_flash_region_t* region = flash->regions;
    while (address >= region->base + region->device.info.size) {
        ++region;
    }
    const uint32_t block = region->device.info.erasesize;
    return address + block - (uint32_t)((address - region->base) % block);
}

static bool is_cancelled(void* user) {
    (void)user;
    return interrupted != 0;
}

static void on_erased(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                      uint32_t percentage) {
    (void)user, (void)status, (void)address, (void)remaining;
    draw("erase", percentage);
}

/* Each block is remembered as soon as it is verified. */
static void on_written(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                       uint32_t percentage) {
    update_t* update = user;
    (void)status, (void)percentage;
    update->state.done = update->state.size - remaining;
    update->state.cursor = block_end(update->flash, address);
    store_state(update);
    draw("write", (uint32_t)(update->state.done * 100.0 / update->state.size));
}

/* A block that an interruption left half written is erased again: nothing before the cursor is touched. */
static uint32_t run(update_t* update) {
    uint32_t end = update->state.end;
    uint32_t length = update->state.size - update->state.done;
    const uint8_t* rest = update->image + update->state.done;
    uint32_t status = norv_linux_spi_flash_continue_erase(&update->flash, update->state.cursor, length, &end,
                                                          is_cancelled, on_erased, update);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    return norv_linux_spi_flash_continue_write_verify(&update->flash, update->state.cursor, 0, rest, &length,
                                                      &end, is_cancelled, on_written, update);
}

int main(int argc, char** argv) {
    const char* image_path = argc > 3 ? argv[3] : "/proc/self/exe";
    update_t update = {.state_path = argc > 4 ? argv[4] : "/tmp/flash_update.state"};
    update.state.start = argc > 2 ? (uint32_t)strtoul(argv[1], NULL, 0) : 0;
    update.state.end = argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 0) : 0x200000;
    update.state.cursor = update.state.start;
    update.image = load(image_path, &update.state.size);
    update.state.checksum = checksum(update.image, update.state.size);
    signal(SIGINT, on_interrupt);

    uint32_t status = norv_linux_spi_flash_open(&update.flash);
    if (status != NORV_STATUS_OK) {
        fail("open the flash", norv_status_text(status));
    }
    resume(&update);
    status = run(&update);
    norv_linux_spi_flash_close(&update.flash);
    free(update.image);
    if (status == NORV_STATUS_TIMEOUT && interrupted != 0) {
        printf("\nstopped; the same command goes on behind %u of %u bytes\n", update.state.done,
               update.state.size);
        return EXIT_FAILURE;
    }
    if (status != NORV_STATUS_OK) {
        fail("update", norv_status_text(status));
    }
    remove(update.state_path);
    printf("\n%u bytes written and verified\n", update.state.size);
    return EXIT_SUCCESS;
}
