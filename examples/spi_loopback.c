/* SPDX-License-Identifier: MIT */
/*
 * Sends a text to an SPI slave and checks that it comes back: the first thing to try on a new board, with
 * MOSI and MISO wired together.
 *
 *     spi_loopback [DEVICE [BITS_PER_WORD [HZ]]]      default: /dev/spidev0.0 8 1000000
 *
 * On the virtual board /dev/spidev0.0 and /dev/spidev1.0 loop back; the controller of the latter refuses
 * 16-bit words, so that the library emulates them.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_linux_spi.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static unsigned long number(int count, char** arguments, int index, unsigned long otherwise) {
    return count > index ? strtoul(arguments[index], NULL, 0) : otherwise;
}

int main(int count, char** arguments) {
    static const char sent[] = "norv: anybody there? "; /* an even number of bytes, including its NUL */
    const char* device = count > 1 ? arguments[1] : "/dev/spidev0.0";
    const norv_spi_config_t config = {.mode = 0,
                                      .max_speed_hz = (uint32_t)number(count, arguments, 3, 1000000),
                                      .bits_per_word = (uint8_t)number(count, arguments, 2, 8),
                                      .lsb_first = 0};
    char received[sizeof sent] = {0};
    norv_spi_t spi;

    must(device, norv_linux_spi_open(device, &config, &spi));
    printf("%s: %u bits per word%s, mode %u, %u Hz\n", device, config.bits_per_word,
           spi.swap16 ? " (emulated with 8)" : "", config.mode, config.max_speed_hz);
    must("transfer", norv_linux_spi_dplx(&spi, sent, received, sizeof sent));
    norv_linux_spi_close(&spi);

    if (memcmp(sent, received, sizeof sent) != 0) {
        fprintf(stderr, "%s: the bytes did not come back; are MOSI and MISO wired together?\n", device);
        return EXIT_FAILURE;
    }
    printf("%s: %zu bytes came back as they were sent\n", device, sizeof sent);
    return EXIT_SUCCESS;
}
