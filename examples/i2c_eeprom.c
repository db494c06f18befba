/* SPDX-License-Identifier: MIT */
/*
 * Writes a text into an I2C EEPROM and reads it back.
 *
 *     i2c_eeprom [BUS [ADDRESS [TEXT]]]      default: 1 0x50 "the quick brown fox ..."
 *
 * For a 24C02 or a larger one with one address byte: 256 bytes, written in pages of 8. Its contents are
 * restored afterwards. On the virtual board:
 * board/run --module norv_board_i2c build/release/examples/i2c_eeprom
 */
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_linux_i2c.h"

enum { EEPROM_SIZE = 256, PAGE_SIZE = 8, WRITE_CYCLE_LIMIT_MS = 50 };

typedef struct {
    int32_t bus;
    uint8_t address;
} eeprom_t;

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/*
 * While an EEPROM stores a page it does not answer. A write of the address alone stores nothing, and succeeds
 * when it answers again. So does an empty write, where the adapter can send one.
 */
static void wait_until_stored(const eeprom_t* eeprom) {
    const uint64_t start = norv_time_get_ms();
    const uint8_t first = 0;
    uint32_t status;
    bool last;
    do {
        last = norv_time_get_ms() - start >= WRITE_CYCLE_LIMIT_MS;
        status = norv_linux_i2c_raw_write(&eeprom->bus, eeprom->address, &first, sizeof first);
    } while (status != NORV_STATUS_OK && !last);
    must("wait for the write cycle", status);
}

/* Page by page: a write that runs over the end of a page continues at the page's start. */
static void write_eeprom(const eeprom_t* eeprom, uint8_t offset, const char* data, size_t length) {
    while (length > 0) {
        const size_t room = PAGE_SIZE - offset % PAGE_SIZE;
        const size_t part = length < room ? length : room;
        must("write a page",
             norv_linux_i2c_write(&eeprom->bus, eeprom->address, offset, data, (int32_t)part));
        wait_until_stored(eeprom);
        offset = (uint8_t)(offset + part);
        data += part;
        length -= part;
    }
}

/* The EEPROM increments its address. Some adapters read at most 255 bytes at once; there are fewer here. */
static void read_eeprom(const eeprom_t* eeprom, uint8_t offset, char* data, size_t length) {
    must("read", norv_linux_i2c_read(&eeprom->bus, eeprom->address, offset, data, (uint16_t)length));
}

int main(int argc, char** argv) {
    const uint32_t number = argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 0) : 1;
    const uint8_t address = argc > 2 ? (uint8_t)strtoul(argv[2], NULL, 0) : 0x50;
    const char* text = argc > 3 ? argv[3] : "the quick brown fox jumps over the lazy dog";
    const size_t length = strlen(text);
    const uint8_t offset = 5; /* deliberately not at the start of a page */
    eeprom_t eeprom = {-1, address};
    char before[EEPROM_SIZE] = "";
    char found[EEPROM_SIZE] = "";
    if (length > (size_t)EEPROM_SIZE - offset) {
        fprintf(stderr, "the text is longer than the EEPROM\n");
        return EXIT_FAILURE;
    }

    must("open the bus", norv_linux_i2c_open(number, &eeprom.bus));
    read_eeprom(&eeprom, offset, before, length);
    write_eeprom(&eeprom, offset, text, length);
    read_eeprom(&eeprom, offset, found, length);
    write_eeprom(&eeprom, offset, before, length);
    norv_linux_i2c_close(&eeprom.bus);

    printf("EEPROM 0x%02x on bus %u: \"%.*s\"\n", address, number, (int)length, found);
    if (memcmp(found, text, length) != 0) {
        printf("that is not what was written\n");
        return EXIT_FAILURE;
    }
    printf("%zu bytes written, read back and equal; what stood there before is back\n", length);
    return EXIT_SUCCESS;
}
