/* SPDX-License-Identifier: MIT */
/*
 * Shows facts about the board: time since its start, memory, the size of its card, and whether a USB host uses
 * it as a device.
 *
 *     system_info_board [CONTROLLER [CARD]]      default: the first of /sys/class/udc, card 0
 *
 * On a board without a card or without a USB device controller, the rest is shown.
 */
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_system_info.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void show_card(uint32_t card) {
    uint32_t megabytes = 0;
    const uint32_t status = norv_get_mmc_size(card, &megabytes);
    if (status == NORV_STATUS_NOT_FOUND) {
        printf("  card %u     none\n", card);
        return;
    }
    must("read the card's size", status);
    printf("  card %u     %u MB\n", card, megabytes);
}

static void show_usb(const char* controller) {
    static const char* const states[] = {"not configured by a host", "configured", "configured at high speed",
                                         "configured at super speed"};
    uint32_t state = 0;
    must("read the USB state", norv_get_usb_periph_state(controller, &state));
    printf("  USB        %s is %s\n", controller, states[state]);
}

static void show_first_usb(void) {
    DIR* controllers = opendir("/sys/class/udc");
    const struct dirent* entry = NULL;
    while (controllers != NULL && (entry = readdir(controllers)) != NULL) {
        if (entry->d_name[0] != '.') {
            show_usb(entry->d_name);
            closedir(controllers);
            return;
        }
    }
    printf("  USB        no device controller\n");
    if (controllers != NULL) {
        closedir(controllers);
    }
}

int main(int argc, char** argv) {
    norv_mem_info_t memory;
    uint32_t seconds = 0;

    must("read the uptime", norv_get_uptime(&seconds));
    printf("  uptime     %u s\n", seconds);
    must("read the memory figures", norv_get_mem_info(&memory));
    printf("  memory     %d of %d kB available, %d free, %d cached, %d in buffers\n", memory.available,
           memory.total, memory.free, memory.cached, memory.buffers);
    show_card(argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 10) : 0);
    if (argc > 1) {
        show_usb(argv[1]);
    } else {
        show_first_usb();
    }
    puts("the board has answered");
    return EXIT_SUCCESS;
}
