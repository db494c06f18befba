// SPDX-License-Identifier: GPL-2.0
//
// The SPI controllers of the virtual board, each with one slave that spidev drives: /dev/spidev0.0 takes
// words of 8 and 16 bits, /dev/spidev1.0 refuses 16.
//
// The slave sends back what it is sent, byte by byte. A transfer that sends nothing receives 1, 2, 3, ...
// instead, counted from the moment the slave was selected. Words of 16 bits go over the wire high byte first.
//
// /sys/kernel/debug/norv_board_spi/BUS/ shows what went over the wire while the slave was selected last:
// `wire` holds the bytes that were sent, in their order (the first 8192), `length` their number, `delay_us`
// the pauses between the transfers; and `selections` how often the slave was selected, `mode`, `speed_hz` and
// `bits_per_word` how the last transfer was made.

#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/spi/spi.h>

#include "kernel_versions.h"

#define CONTROLLER_COUNT 2
#define WIRE_SIZE 8192

struct slave {
    u8 wire[WIRE_SIZE];
    struct debugfs_blob_wrapper blob;
    u32 length;
    u32 received;  // bytes that were only received since the selection
    u32 delay_us;
    u32 selections;
    u32 mode;
    u32 speed_hz;
    u32 bits_per_word;
};

static const u32 word_sizes[CONTROLLER_COUNT] = {
    SPI_BPW_MASK(8) | SPI_BPW_MASK(16),
    SPI_BPW_MASK(8),
};
static struct platform_device* parents[CONTROLLER_COUNT];
static struct spi_controller* controllers[CONTROLLER_COUNT];
static struct dentry* directory;

static void put_on_wire(struct slave* slave, u8 byte) {
    if (slave->length < WIRE_SIZE)
        slave->wire[slave->length] = byte;
    slave->length++;
    slave->blob.size = min_t(u32, slave->length, WIRE_SIZE);
}

// Where the byte that goes over the wire as number `index` is in memory: a 16-bit word has its low byte first
// there.
static unsigned int place_in_memory(const struct spi_transfer* transfer, unsigned int index) {
    return transfer->bits_per_word > 8 ? index ^ 1 : index;
}

static void exchange_byte(struct slave* slave, const struct spi_transfer* transfer, unsigned int index) {
    const u8* out = transfer->tx_buf;
    u8* in = transfer->rx_buf;
    u8 byte = out ? out[place_in_memory(transfer, index)] : 0;

    put_on_wire(slave, byte);
    if (!out)
        byte = ++slave->received;
    if (in)
        in[place_in_memory(transfer, index)] = byte;
}

static int run_transfer(struct spi_controller* controller, struct spi_device* spi,
                        struct spi_transfer* transfer) {
    struct slave* slave = spi_controller_get_devdata(controller);
    unsigned int index;

    slave->mode = spi->mode;
    slave->speed_hz = transfer->speed_hz;
    slave->bits_per_word = transfer->bits_per_word;
    slave->delay_us += transfer->delay.value;
    for (index = 0; index < transfer->len; index++)
        exchange_byte(slave, transfer, index);
    return 0;
}

// The line is low while the slave is selected.
static void drive_select(struct spi_device* spi, bool level) {
    struct slave* slave = spi_controller_get_devdata(spi->controller);

    if (level)
        return;
    slave->selections++;
    slave->length = 0;
    slave->blob.size = 0;
    slave->received = 0;
    slave->delay_us = 0;
}

static void show_slave(struct slave* slave, int bus) {
    char name[4];
    struct dentry* own;

    snprintf(name, sizeof(name), "%d", bus);
    own = debugfs_create_dir(name, directory);
    slave->blob.data = slave->wire;
    debugfs_create_blob("wire", 0444, own, &slave->blob);
    debugfs_create_u32("length", 0444, own, &slave->length);
    debugfs_create_u32("delay_us", 0444, own, &slave->delay_us);
    debugfs_create_u32("selections", 0444, own, &slave->selections);
    debugfs_create_u32("mode", 0444, own, &slave->mode);
    debugfs_create_u32("speed_hz", 0444, own, &slave->speed_hz);
    debugfs_create_u32("bits_per_word", 0444, own, &slave->bits_per_word);
}

static int add_slave(int bus) {
    // One of the names that spidev answers to; it has none for a slave of unknown kind.
    struct spi_board_info info = {
        .modalias = BOARD_SPIDEV_NAME,
        .max_speed_hz = 10000000,
    };

    return spi_new_device(controllers[bus], &info) ? 0 : -ENODEV;
}

static int add_controller(int bus) {
    struct spi_controller* controller;
    int error;

    parents[bus] = platform_device_register_simple("norv-board-spi", bus, NULL, 0);
    if (IS_ERR(parents[bus])) {
        error = PTR_ERR(parents[bus]);
        parents[bus] = NULL;
        return error;
    }
    controller = board_spi_alloc(&parents[bus]->dev, sizeof(struct slave));
    if (!controller)
        return -ENOMEM;
    controller->bus_num = bus;
    controller->num_chipselect = 1;
    controller->mode_bits = SPI_CPOL | SPI_CPHA | SPI_LSB_FIRST;
    controller->bits_per_word_mask = word_sizes[bus];
    controller->set_cs = drive_select;
    controller->transfer_one = run_transfer;
    error = spi_register_controller(controller);
    if (error) {
        spi_controller_put(controller);
        return error;
    }
    controllers[bus] = controller;
    show_slave(spi_controller_get_devdata(controller), bus);
    return add_slave(bus);
}

static void remove_controllers(void) {
    int bus;

    debugfs_remove_recursive(directory);
    for (bus = 0; bus < CONTROLLER_COUNT; bus++) {
        if (controllers[bus])
            spi_unregister_controller(controllers[bus]);
        platform_device_unregister(parents[bus]);
    }
}

static int __init board_spi_init(void) {
    int bus;
    int error = 0;

    directory = debugfs_create_dir("norv_board_spi", NULL);
    for (bus = 0; bus < CONTROLLER_COUNT && !error; bus++)
        error = add_controller(bus);
    if (error)
        remove_controllers();
    return error;
}

module_init(board_spi_init);
module_exit(remove_controllers);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("SPI controllers of the virtual board, with and without 16-bit words");
