// SPDX-License-Identifier: GPL-2.0
//
// Limits the transfers of the kernel's driver for a Zynq's SPI controllers to the 128 bytes of their buffer.
// The driver asks the controller how large the buffer is, and the emulator's answer is 64 KiB: of a longer
// transfer everything after the first 128 bytes would be lost. Drivers of flash chips that are loaded later
// transfer in pieces.

#include <linux/module.h>
#include <linux/spi/spi.h>

#define BUFFER_SIZE 128

static size_t largest_transfer(struct spi_device* device) {
    return BUFFER_SIZE;
}

static int set_limit(struct device* device, void* limit) {
    struct spi_controller* controller = to_spi_device(device)->controller;
    const struct device_driver* driver = controller->dev.parent->driver;

    if (driver && strcmp(driver->name, "cdns-spi") == 0) {
        controller->max_transfer_size = limit;
    }
    return 0;
}

static int __init board_spi_limit_init(void) {
    return bus_for_each_dev(&spi_bus_type, NULL, largest_transfer, set_limit);
}

static void __exit board_spi_limit_exit(void) {
    bus_for_each_dev(&spi_bus_type, NULL, NULL, set_limit);
}

module_init(board_spi_limit_init);
module_exit(board_spi_limit_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A limit to the transfers of the SPI controllers of a Zynq");
