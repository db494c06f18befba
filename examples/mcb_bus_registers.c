/* SPDX-License-Identifier: MIT */
/*
 * A device's driver over a register-bus record: it sets up some registers and reads them back.
 *
 *     mcb_bus_registers [NAME]      default: norv-board-regs
 *
 * NAME is the content of /sys/class/uio/uioN/name. The device must have readable and writable registers 0x10
 * to 0x1c, as that of the virtual board has:
 * board/run --module norv_board_uio build/release/examples/mcb_bus_registers
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_mcb_bus.h"
#include "norv_uio.h"

enum { CONTROL = 0x10, LOWEST = 0x14, HIGHEST = 0x18, MASK = 0x1C };

/* The driver. It uses the record of operations only, and does not depend on the kind of device. */
static void set_up_device(norv_mcb_bus_t* bus) {
    static const norv_mcb_reg_value_t settings[] = {{LOWEST, 20}, {HIGHEST, 80}, {MASK, 0xF0}};
    bus->write_list(bus, settings, 3);
    bus->write(bus, CONTROL, 1);
}

/* Ends the program if a call failed; the kernel closes the device. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const char* name = argc > 1 ? argv[1] : "norv-board-regs";
    const uint32_t wanted[] = {1, 20, 80, 0xF0};
    uint32_t found[4] = {0};
    norv_uio_t* device = NULL;
    norv_mcb_bus_t bus;

    must(name, norv_uio_open_by_name(name, &device));
    must("open the bus", norv_uio_open_mcb_bus(&device, &bus));
    set_up_device(&bus);
    bus.read_burst(&bus, CONTROL, found, 4, NORV_MCB_BURST_UP);
    bus.close(&bus);
    norv_uio_close(&device);

    printf("%s: control %" PRIu32 ", from %" PRIu32 " to %" PRIu32 ", mask 0x%02" PRIx32 "\n", name, found[0],
           found[1], found[2], found[3]);
    if (memcmp(found, wanted, sizeof wanted) != 0) {
        printf("that is not what was written\n");
        return EXIT_FAILURE;
    }
    printf("all registers read back as written\n");
    return EXIT_SUCCESS;
}
