/* SPDX-License-Identifier: MIT */
/*
 * Shows the frames of one identifier, or two, that arrive on a CAN interface.
 *
 *     can_dump INTERFACE IDENTIFIER [ALTERNATIVE [COUNT [PARTNER]]]
 *
 * Ends after COUNT frames (default: 10), or when none arrived for ten seconds. With PARTNER,
 * another interface on the same bus, it sends the frames itself from there. Identifiers are hexadecimal:
 *
 *     ip link set can0 up type can bitrate 500000
 *     can_dump can0 123
 *     ip link add vxcan0 type vxcan peer name vxcan1 && ip link set vxcan0 up && ip link set vxcan1 up
 *     can_dump vxcan0 100 200 6 vxcan1
 */
#include <inttypes.h>
#include <linux/can.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_can.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* An interface and the one channel on it that this program uses. */
struct port {
    const char* interface;
    norv_linux_can_t* can;
    norv_linux_can_raw_t* channel;
};

static void open_port(struct port* port, const char* interface, uint32_t identifier, uint32_t alternative) {
    port->interface = interface;
    must("open", norv_linux_can_open(interface, &port->can));
    const uint32_t status =
        norv_linux_can_raw_add_with_alt_id(&port->can, 1, identifier, alternative, &port->channel);
    if (status != NORV_STATUS_OK) {
        /* A channel that could not be added is removed nevertheless. */
        norv_linux_can_remove(port->channel);
        norv_linux_can_close(&port->can);
        must(interface, status);
    }
}

static void send_frame(struct port* port, uint32_t identifier, uint8_t number) {
    struct can_frame frame = {.can_id = identifier, .data = {'n', 'o', 'r', 'v', number}};
    uint32_t length = sizeof frame;
    frame.can_dlc = 5;
    must(port->interface, norv_linux_can_write(port->channel, &frame, &length, 1000));
}

static void show_frame(const char* interface, const struct can_frame* frame) {
    const uint32_t extended = frame->can_id & CAN_EFF_FLAG;
    printf("%s  %0*" PRIX32 "  [%d] ", interface, extended ? 8 : 3,
           frame->can_id & (extended ? CAN_EFF_MASK : CAN_SFF_MASK), frame->can_dlc);
    for (int i = 0; i < frame->can_dlc && i < CAN_MAX_DLEN; ++i) {
        printf(" %02X", frame->data[i]);
    }
    printf("%s\n", frame->can_id & CAN_RTR_FLAG ? " remote request" : "");
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s INTERFACE IDENTIFIER [ALTERNATIVE [COUNT [PARTNER]]]\n", argv[0]);
        return 2;
    }
    const uint32_t identifier = (uint32_t)strtoul(argv[2], NULL, 16);
    const uint32_t alternative = argc > 3 ? (uint32_t)strtoul(argv[3], NULL, 16) : identifier;
    const long count = argc > 4 ? strtol(argv[4], NULL, 10) : 10;
    struct port port = {0};
    struct port partner = {0};
    struct can_frame frame;

    open_port(&port, argv[1], identifier, alternative);
    if (argc > 5) {
        open_port(&partner, argv[5], identifier, alternative);
    }
    for (long number = 0; number < count; ++number) {
        uint32_t length = sizeof frame;
        if (partner.channel != NULL) {
            send_frame(&partner, number % 2 == 0 ? identifier : alternative, (uint8_t)number);
        }
        must(argv[1], norv_linux_can_read(port.channel, &frame, &length, 10000));
        show_frame(argv[1], &frame);
    }
    norv_linux_can_close(&partner.can);
    norv_linux_can_close(&port.can);
    printf("%s: %ld frames came\n", argv[1], count);
    return EXIT_SUCCESS;
}
