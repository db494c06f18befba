/* SPDX-License-Identifier: MIT */
/*
 * Binds a PCI device to the kernel's UIO driver, and prints its PCI address and, through a register-bus
 * record, its first registers.
 *
 *     uio_pci_registers [VENDOR [DEVICE [COUNT]]]      default: 0x1234 0x11e8 2
 *
 * On the virtual board:
 * board/run --module norv_board_uio_pci_mmap build/release/examples/uio_pci_registers
 */
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_mcb_bus.h"
#include "norv_uio.h"

enum { MOST_REGISTERS = 16 };

/* Ends the program if a call failed; the kernel closes the device. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* It is not a failure if the driver has the identity already. */
static void bind(uint16_t vendor, uint16_t device) {
    const uint32_t status = norv_uio_load_pci(vendor, device);
    if (status != norv_get_status_by_errno(EEXIST)) {
        must("bind to the driver", status);
    }
}

static void show_identity(const norv_uio_info_t* info) {
    if (info->kind == NORV_UIO_KIND_PCI) {
        printf("%04" PRIx32 ":%04" PRIx32 " at %04" PRIx32 ":%02" PRIx32 ":%02" PRIx32 ".%" PRIu32 "\n",
               info->vendor, info->device, info->domain, info->bus, info->slot, info->function);
    } else {
        printf("bound to another driver than uio_pci_mmap: no identity\n");
    }
}

static void show_registers(norv_uio_t** device, uint32_t count) {
    uint32_t values[MOST_REGISTERS];
    norv_mcb_bus_t bus;
    must("open the bus", norv_uio_open_mcb_bus(device, &bus));
    bus.read_burst(&bus, 0, values, count, NORV_MCB_BURST_UP);
    bus.close(&bus);
    for (uint32_t index = 0; index < count; ++index) {
        printf("0x%02" PRIx32 ": 0x%08" PRIx32 "\n", index * 4, values[index]);
    }
}

int main(int argc, char** argv) {
    const uint16_t vendor = (uint16_t)strtoul(argc > 1 ? argv[1] : "0x1234", NULL, 0);
    const uint16_t id = (uint16_t)strtoul(argc > 2 ? argv[2] : "0x11e8", NULL, 0);
    const unsigned long count = argc > 3 ? strtoul(argv[3], NULL, 0) : 2;
    norv_uio_t* device = NULL;
    norv_uio_info_t info = {0};

    bind(vendor, id);
    must("open", norv_uio_open_by_pci_id(vendor, id, &device));
    must("read the identity", norv_uio_get_info(&device, &info));
    show_identity(&info);
    show_registers(&device, count < MOST_REGISTERS ? (uint32_t)count : (uint32_t)MOST_REGISTERS);
    norv_uio_close(&device);
    return EXIT_SUCCESS;
}
