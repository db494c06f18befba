/* SPDX-License-Identifier: MIT */
/*
 * Shows the USB devices that are plugged in, each with its camera, input or sound node, and then each change.
 *
 *     uevent_parse_hotplug [SECONDS]      default: 2
 */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_uevent_parse.h"

static norv_uevent_parse_t* parser;
static const norv_uevent_device_list_t* list;
static unsigned changes;

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static const char* action_of(const norv_uevent_device_t* device) {
    switch (device->action) {
        case NORV_UEVENT_ACTION_ADD:
            return "added  ";
        case NORV_UEVENT_ACTION_REMOVE:
            return "removed";
        case NORV_UEVENT_ACTION_CHANGE:
            return "changed";
        default:
            return "present";
    }
}

static void show(const norv_uevent_device_t* device, void* user) {
    (void)user;
    if (list == NULL) {
        must("get the list", norv_uevent_parse_get_device(&parser, &list));
    }
    if (&device->link == &list->devices) {
        return; /* a node that belongs to no device of the list */
    }
    ++changes;
    printf("%s  %-12s %-40s", action_of(device), device->product, device->product_name);
    for (const norv_uevent_link_t* link = device->children.next; link != &device->children;
         link = link->next) {
        const norv_uevent_child_t* child = (const norv_uevent_child_t*)link;
        printf(" %s %s", child->subsystem, child->devnode);
    }
    printf("\n");
}

/* Applies the changes of the given number of milliseconds. */
static void follow(uint64_t limit) {
    const uint64_t start = norv_time_get_ms();
    struct pollfd readable = {.fd = norv_uevent_parse_get_fd(&parser), .events = POLLIN};

    for (uint64_t passed = 0; passed < limit; passed = norv_time_get_ms() - start) {
        if (poll(&readable, 1, (int)(limit - passed)) > 0) {
            must("apply the messages", norv_uevent_parse_poll(&parser));
        }
    }
}

int main(int argc, char** argv) {
    const uint64_t seconds = argc > 1 ? strtoul(argv[1], NULL, 10) : 2;
    const norv_uevent_parse_settings_t settings = {
        .filter = NORV_UEVENT_FILTER_USB | NORV_UEVENT_FILTER_DISPLAY, .buffer_size = 8192, .handler = show};

    must("open the parser", norv_uevent_parse_open(&parser, &settings));
    must("get the list", norv_uevent_parse_get_device(&parser, &list));
    printf("%" PRIu32 " USB devices are plugged in\n", list->count);
    changes = 0;
    follow(seconds * 1000);
    printf("%u changes in %" PRIu64 " s, %" PRIu32 " USB devices now\n", changes, seconds, list->count);
    norv_uevent_parse_close(&parser);
    return EXIT_SUCCESS;
}
