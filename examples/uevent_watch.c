/* SPDX-License-Identifier: MIT */
/*
 * Shows the kernel's uevent messages as they arrive, each with its keys on one line.
 *
 *     uevent_watch [SECONDS]      default: 2
 *
 * Plug something in meanwhile. With write permission for sysfs the program causes the first message itself: it
 * requests an event of the loopback network device.
 */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_file.h"
#include "norv_uevent.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void request_loopback_event(void) {
    uint32_t length = sizeof "change";
    const uint32_t status = norv_write_device("change", &length, "/sys/class/net/lo/uevent");
    if (status != NORV_STATUS_OK) {
        printf("(no event of the loopback device: %s)\n", norv_status_name(status));
    }
}

/* Prints the texts of a message, each followed by a NUL, on one line. */
static void show(const uint8_t* message, int64_t length, void* user) {
    unsigned* count = user;
    const char* text = (const char*)message;
    const char* end = text + length;

    while (text < end) {
        const size_t size = strnlen(text, (size_t)(end - text));
        printf("%.*s ", (int)size, text);
        text += size + 1;
    }
    printf("\n");
    ++*count;
}

/* Shows the messages that arrive within the given number of milliseconds. */
static void watch(norv_uevent_t* events, uint64_t limit, unsigned* count) {
    const uint64_t start = norv_time_get_ms();
    struct pollfd readable = {.fd = events->fd, .events = POLLIN};

    for (uint64_t passed = 0; passed < limit; passed = norv_time_get_ms() - start) {
        if (poll(&readable, 1, (int)(limit - passed)) > 0) {
            must("receive the messages", norv_uevent_poll(events, show, count));
        }
    }
}

int main(int argc, char** argv) {
    const uint64_t seconds = argc > 1 ? strtoul(argv[1], NULL, 10) : 2;
    norv_uevent_t events = {.buffer_size = 8192};
    unsigned count = 0;

    must("open the socket", norv_uevent_open(&events));
    request_loopback_event();
    watch(&events, seconds * 1000, &count);
    norv_uevent_close(&events);
    printf("%u messages in %" PRIu64 " s\n", count, seconds);
    return EXIT_SUCCESS;
}
