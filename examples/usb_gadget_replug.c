/* SPDX-License-Identifier: MIT */
/*
 * Disconnects the board from its USB host and connects it again, by software, and watches the state.
 *
 *     usb_gadget_replug [CONTROLLER]      default: dummy_udc.0
 *
 * Needs a gadget that is bound to the controller, and a host at the other end of the cable.
 */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_usb_gadget.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Waits until the controller is in a state; the kernel reports every change. */
static void wait_for(int32_t gadget, uint32_t wanted, const char* words) {
    struct pollfd change = {.fd = gadget, .events = POLLPRI};
    uint32_t state = 0;
    must("read the state", norv_usb_gadget_get_state(gadget, &state));
    while (state != wanted) {
        if (poll(&change, 1, 10000) <= 0) {
            fprintf(stderr, "the controller is not %s; check that a gadget is bound and a host connected\n",
                    words);
            exit(EXIT_FAILURE);
        }
        must("read the state", norv_usb_gadget_get_state(gadget, &state));
    }
    printf("  %s\n", words);
}

int main(int argc, char** argv) {
    const char* controller = argc > 1 ? argv[1] : "dummy_udc.0";
    int32_t gadget = -1;
    uint8_t host_wins = 0;

    must("open the controller", norv_usb_gadget_open(controller, &gadget));
    wait_for(gadget, NORV_USB_GADGET_CONFIGURED, "configured by the host");
    must("disconnect", norv_usb_gadget_connect(controller, 0));
    wait_for(gadget, NORV_USB_GADGET_NOT_ATTACHED, "disconnected");
    must("connect", norv_usb_gadget_connect(controller, 1));
    wait_for(gadget, NORV_USB_GADGET_CONFIGURED, "configured by the host again");
    norv_usb_gadget_close(gadget);

    if (norv_usb_gadget_is_host_win(controller, &host_wins) == NORV_STATUS_OK) {
        printf("  is_host_win reads %u\n", host_wins);
    }
    printf("the host has found %s again\n", controller);
    return EXIT_SUCCESS;
}
