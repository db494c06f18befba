/* SPDX-License-Identifier: MIT */
/*
 * A device's driver over the I2C bus record: it sets up some registers and reads them back.
 *
 *     i2c_bus_registers [BUS [ADDRESS]]      default: 1 0x40
 *
 * The address is the one of the data sheet, 8 bits with the read/write bit. The device must have readable and
 * writable registers 0x10 to 0x13, as the register device of the virtual board has:
 * board/run --module norv_board_i2c build/release/examples/i2c_bus_registers
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_linux_i2c_bus.h"

enum { CONTROL = 0x10, LIMITS = 0x11, MASK = 0x13 };

/* The driver. It uses the record of operations only, and does not depend on the kind of bus. */
static uint32_t set_up_device(norv_i2c_bus_t* bus, uint8_t address) {
    static const norv_i2c_reg_value_t settings[] = {{MASK, 0xF0}, {CONTROL, 0x01}};
    static const uint8_t limits[] = {20, 80};
    const uint32_t status = bus->write_regs(bus, address, LIMITS, limits, sizeof limits);
    return status != NORV_STATUS_OK ? status : bus->write_reg_list(bus, address, settings, 2);
}

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const uint32_t number = argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 0) : 1;
    const uint8_t address = argc > 2 ? (uint8_t)strtoul(argv[2], NULL, 0) : 0x40;
    const uint8_t wanted[] = {0x01, 20, 80, 0xF0};
    uint8_t found[4] = {0};
    norv_i2c_bus_t bus;

    must("open the bus", norv_linux_open_i2c_bus(&bus, number));
    must("take addresses as 8 bits", norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_8BIT));
    must("set up the device", set_up_device(&bus, address));
    must("read the registers back", bus.read_regs(&bus, address, CONTROL, found, sizeof found));
    norv_linux_close_i2c_bus(&bus);

    printf("device 0x%02x on bus %u: control %u, limits %u to %u, mask 0x%02x\n", address, number, found[0],
           found[1], found[2], found[3]);
    if (memcmp(found, wanted, sizeof wanted) != 0) {
        printf("that is not what was written\n");
        return EXIT_FAILURE;
    }
    printf("all registers read back as written\n");
    return EXIT_SUCCESS;
}
