/* SPDX-License-Identifier: MIT */
/*
 * What the two examples of a firmware update share: the image, the journal from which an interrupted update
 * is resumed, Ctrl-C, and the progress bar.
 *
 * The journal is a text file of two lines, on another medium than the flash:
 *
 *     update of /dev/mmcblk0 0x100000-0x160000 with 393216 bytes, checksum 89abcdef01234567
 *     done 131072 cursor 0x120000
 *
 * The first line identifies the update. With the journal of another update, this one starts from the
 * beginning.
 */
#ifndef FLASH_UPDATE_H
#define FLASH_UPDATE_H

#include <errno.h>
#include <inttypes.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "norv_base.h"

/* An update and its progress. */
typedef struct {
    uint8_t* image;
    uint32_t size;       /* of the image */
    uint32_t start, end; /* of the area: nothing outside is touched */
    uint32_t done;       /* how much of the image is written and verified */
    uint32_t cursor;     /* where on the flash the rest of it goes */
    const char* journal; /* the path of the journal */
    char name[512];      /* identifies the update: first line of the journal */
    const char* doing;   /* what the progress bar is about */
} update_t;

static volatile sig_atomic_t interrupted;

/* ---- failures ---- */

static _Noreturn void fail(const char* what, const char* why) {
    fprintf(stderr, "\n%s: %s\n", what, why);
    exit(EXIT_FAILURE);
}

/* Ends the program if a call has failed or was cancelled. */
static void must(const char* what, uint32_t status) {
    if (status == NORV_STATUS_TIMEOUT && interrupted) {
        fail(what, "stopped; run the same command again to resume");
    }
    if (status == NORV_STATUS_EXHAUSTED) {
        fail(what, "too few good blocks before the end of the area");
    }
    if (status != NORV_STATUS_OK) {
        fail(what, norv_status_text(status));
    }
}

/* ---- arguments ---- */

static uint32_t number(const char* word) {
    char* rest;
    errno = 0;
    const unsigned long long value = strtoull(word, &rest, 0);
    if (errno != 0 || *word < '0' || *word > '9' || *rest != '\0' || value > UINT32_MAX) {
        fail(word, "not a number of 32 bits");
    }
    return (uint32_t)value;
}

/* Reads a file, and pads it with 0xFF to whole units. */
static void load_image(update_t* update, const char* path, uint32_t unit) {
    FILE* file = fopen(path, "rb");
    long length;
    if (file == NULL || fseek(file, 0, SEEK_END) != 0 || (length = ftell(file)) < 0) {
        fail(path, strerror(errno));
    }
    if (length == 0 || (uint64_t)length > UINT32_MAX - unit) {
        fail(path, "not an image: it is empty or too large");
    }
    update->size = ((uint32_t)length + unit - 1) / unit * unit;
    update->image = malloc(update->size);
    if (update->image == NULL) {
        fail(path, "out of memory");
    }
    memset(update->image, 0xFF, update->size);
    rewind(file);
    if (fread(update->image, 1, (size_t)length, file) != (size_t)length) {
        fail(path, "could not be read");
    }
    fclose(file);
}

/* ---- the journal ---- */

static uint64_t checksum(const uint8_t* bytes, uint32_t size) {
    uint64_t sum = 0xCBF29CE484222325u;
    for (uint32_t index = 0; index < size; ++index) {
        sum = (sum ^ bytes[index]) * 0x100000001B3u;
    }
    return sum;
}

/* Reads the progress of an earlier run of the same update. */
static void read_journal(update_t* update, FILE* file) {
    char line[sizeof update->name] = "";
    uint32_t done = 0;
    uint32_t cursor = 0;
    if (fgets(line, sizeof line, file) == NULL) {
        return; /* an empty file */
    }
    if (strncmp(line, "update of ", 10) != 0) {
        fail(update->journal, "not an update journal; nothing was written");
    }
    if (strcmp(line, update->name) != 0) {
        printf("%s belongs to another update; starting from the beginning\n", update->journal);
    } else if (fscanf(file, "done %" SCNu32 " cursor %" SCNx32, &done, &cursor) != 2 || done > update->size ||
               cursor < update->start || cursor > update->end) {
        printf("%s is damaged; starting from the beginning\n", update->journal);
    } else {
        update->done = done;
        update->cursor = cursor;
        printf("resuming after %" PRIu32 " of %" PRIu32 " bytes\n", done, update->size);
    }
}

/* Resumes where an earlier run of the same update was interrupted. */
static void open_journal(update_t* update, const char* flash) {
    FILE* file = fopen(update->journal, "r");
    snprintf(update->name, sizeof update->name,
             "update of %.200s 0x%" PRIx32 "-0x%" PRIx32 " with %" PRIu32 " bytes, checksum %016" PRIx64 "\n",
             flash, update->start, update->end, update->size, checksum(update->image, update->size));
    update->done = 0;
    update->cursor = update->start;
    if (file != NULL) {
        read_journal(update, file);
        fclose(file);
    } else if (errno != ENOENT) {
        fail(update->journal, strerror(errno));
    }
}

/* The new journal replaces the old one as a whole: a power cut leaves one of the two. */
static void write_journal(const update_t* update) {
    char path[4096];
    snprintf(path, sizeof path, "%s.new", update->journal);
    FILE* file = fopen(path, "w");
    if (file == NULL ||
        fprintf(file, "%sdone %" PRIu32 " cursor 0x%" PRIx32 "\n", update->name, update->done,
                update->cursor) < 0 ||
        fflush(file) != 0 || fsync(fileno(file)) != 0 || fclose(file) != 0 ||
        rename(path, update->journal) != 0) {
        fail(update->journal, strerror(errno));
    }
}

/* Ends the update with what was read back. Without the journal, the next run writes everything again. */
static void close_journal(const update_t* update, const uint8_t* found) {
    remove(update->journal);
    if (memcmp(found, update->image, update->size) != 0) {
        fail("reading", "the flash does not hold the image; run the same command again to start over");
    }
}

/* ---- callbacks ---- */

static void interrupt(int number_of_signal) {
    (void)number_of_signal;
    interrupted = 1;
}

static bool is_interrupted(void* user) {
    (void)user;
    return interrupted != 0;
}

static void show(void* user, uint32_t status, uint32_t address, uint32_t remaining, uint32_t percentage) {
    static const char bar[] = "########################################";
    const update_t* update = user;
    (void)status;
    (void)remaining;
    printf("\r%-8s [%-40.*s] %3u %%  0x%08" PRIx32 "%s", update->doing, (int)(percentage * 40 / 100), bar,
           percentage, address, percentage == 100 ? "\n" : "");
    fflush(stdout);
}

/* Each report of the write advances both numbers, and the journal stores them. */
static void note(void* user, uint32_t status, uint32_t address, uint32_t remaining, uint32_t percentage) {
    update_t* update = user;
    const uint32_t done = update->size - remaining;
    update->cursor = address + (done - update->done);
    update->done = done;
    write_journal(update);
    show(user, status, address, remaining, percentage);
}

#endif
