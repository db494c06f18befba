/* SPDX-License-Identifier: MIT */
/*
 * Sends a line through a serial port and checks that it comes back, at several speeds.
 *
 *     uart_echo [PORT [SPEED...]]      default: /dev/ttyS3 9600 115200
 *
 * Needs a loopback plug, which connects TXD with RXD; on the virtual board /dev/ttyS3 has one.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_uart.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Sends one line and waits at most two seconds until all of it is back. */
static void echo_line(norv_uart_t** port, uint32_t baud) {
    char line[64];
    char back[64] = "";
    uint32_t sent = (uint32_t)snprintf(line, sizeof line, "hello at %" PRIu32 " bit/s", baud);
    uint32_t received = sent;

    must("send the line (without a time limit)", norv_uart_send(port, line, &sent, -1));
    const uint32_t status = norv_uart_recv(port, back, &received, 2000);
    if (status == NORV_STATUS_TIMEOUT) {
        fprintf(stderr, "%" PRIu32 " of %" PRIu32 " bytes came back in 2 s: is the loopback plug in?\n",
                received, sent);
        exit(EXIT_FAILURE);
    }
    must("receive the line", status);
    if (strcmp(line, back) != 0) {
        fprintf(stderr, "sent \"%s\", got \"%s\" back\n", line, back);
        exit(EXIT_FAILURE);
    }
    printf("%7" PRIu32 " bit/s: \"%s\" came back\n", baud, back);
}

static void show_modem_lines(norv_uart_t** port) {
    uint8_t cts = 0;
    uint8_t dsr = 0;
    uint32_t status = norv_uart_get_cts(port, &cts);
    if (status == NORV_STATUS_OK) {
        status = norv_uart_get_dsr(port, &dsr);
    }
    if (status == NORV_STATUS_OK) {
        printf("modem lines: CTS %u, DSR %u\n", cts, dsr);
    } else {
        printf("modem lines: none (%s)\n", norv_status_name(status));
    }
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "/dev/ttyS3";
    char* usual_speeds[] = {"9600", "115200"};
    char** speeds = argc > 2 ? argv + 2 : usual_speeds;
    const int count = argc > 2 ? argc - 2 : 2;
    norv_uart_settings_t settings = {.baud = 9600,
                                     .data_bits = 8,
                                     .stop_bits = NORV_UART_STOP_BITS_1,
                                     .parity = NORV_UART_PARITY_NONE,
                                     .flow_control = NORV_UART_FLOW_CONTROL_NONE};
    norv_uart_t* port = NULL;

    must(path, norv_uart_open(path, &settings, &port));
    show_modem_lines(&port);
    for (int i = 0; i < count; ++i) {
        settings.baud = (uint32_t)strtoul(speeds[i], NULL, 10);
        must(speeds[i], norv_uart_config(&port, &settings));
        echo_line(&port, settings.baud);
    }
    norv_uart_close(&port);
    printf("%s: every line came back\n", path);
    return EXIT_SUCCESS;
}
