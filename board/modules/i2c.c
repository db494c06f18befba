// SPDX-License-Identifier: GPL-2.0
//
// The I2C bus of the virtual board: an adapter with a fixed number and three chips, each of 256 cells. The
// first byte of a write chooses a cell, each further byte is written there and moves on; a read starts at the
// chosen cell and moves on, from the last cell to the first.
//
//   0x20  registers, 0 at load
//   0x21  registers, 0 at load; register 2 refuses to be written (-EREMOTEIO), as a chip does that does not
//         acknowledge a byte, and at register 0x10 the chip holds the clock low, so that a transfer which
//         reaches it ends by the adapter's timeout (-ETIMEDOUT)
//   0x50  an EEPROM like a 24C02, erased (0xFF) at load: a write stays within its page of 8 bytes, and for
//         5 ms after one the chip does not answer
//
// No chip answers at any other address (-ENXIO). The kernel passes addresses above 0x7F on to its adapters;
// like most of them, this one puts their low 7 bits on the bus. It cannot do 10-bit addressing (-EOPNOTSUPP).
//
// Its limits are those that adapters have: a message is at most 255 bytes long (i2c-mt65xx; i2c-xiic when it
// reads) and never empty (i2c-mt65xx), others are refused with -EOPNOTSUPP. Parameters lift the limits.

#include <linux/i2c.h>
#include <linux/kmod.h>
#include <linux/ktime.h>
#include <linux/module.h>

#define CELL_COUNT 256

static int bus = 1;
module_param(bus, int, 0444);
MODULE_PARM_DESC(bus, "number of the bus (default 1)");

// The longest messages; 0: unlimited.
static struct i2c_adapter_quirks quirks = {.max_read_len = 255, .max_write_len = 255};
module_param_named(max_read_length, quirks.max_read_len, ushort, 0644);
MODULE_PARM_DESC(max_read_length, "longest message that is read (default 255; 0: no limit)");
module_param_named(max_write_length, quirks.max_write_len, ushort, 0644);
MODULE_PARM_DESC(max_write_length, "longest message that is written (default 255; 0: no limit)");

static bool empty_messages;
module_param(empty_messages, bool, 0644);
MODULE_PARM_DESC(empty_messages, "whether messages without data are possible (default N)");

struct chip {
    u16 address;
    u8 page_size_less_one;  // a write stays within its page
    int refusing_cell;      // -1: none
    int stretching_cell;    // -1: none
    unsigned int store_ms;  // how long the chip stores what was written
    u8 cells[CELL_COUNT];
    u8 chosen;
    bool written;    // since the last stop
    ktime_t stored;  // when it answers again
};

static struct chip chips[] = {
    {.address = 0x20, .page_size_less_one = 255, .refusing_cell = -1, .stretching_cell = -1},
    {.address = 0x21, .page_size_less_one = 255, .refusing_cell = 2, .stretching_cell = 0x10},
    {.address = 0x50,
     .page_size_less_one = 7,
     .refusing_cell = -1,
     .stretching_cell = -1,
     .store_ms = 5,
     .cells = {[0 ... CELL_COUNT - 1] = 0xFF}},
};

static struct i2c_adapter adapter;

// The chip that acknowledges the address, or null.
static struct chip* answering_chip(u16 address) {
    struct chip* chip;

    for (chip = chips; chip < chips + ARRAY_SIZE(chips); chip++) {
        if (chip->address == address) {
            return ktime_before(ktime_get(), chip->stored) ? NULL : chip;
        }
    }
    return NULL;
}

// The clock stays low for longer than the adapter waits.
static int stretch_clock(void) {
    schedule_timeout_uninterruptible(adapter.timeout);
    return -ETIMEDOUT;
}

static int read_cells(struct chip* chip, struct i2c_msg* message) {
    unsigned int i;

    for (i = 0; i < message->len; i++) {
        if (chip->chosen == chip->stretching_cell) {
            return stretch_clock();
        }
        message->buf[i] = chip->cells[chip->chosen++];
    }
    return 0;
}

static int write_cell(struct chip* chip, u8 value) {
    u8 in_page = chip->page_size_less_one;

    if (chip->chosen == chip->refusing_cell) {
        return -EREMOTEIO;
    }
    if (chip->chosen == chip->stretching_cell) {
        return stretch_clock();
    }
    chip->cells[chip->chosen] = value;
    chip->chosen = (chip->chosen & ~in_page) | ((chip->chosen + 1) & in_page);
    chip->written = true;
    return 0;
}

static int write_cells(struct chip* chip, const struct i2c_msg* message) {
    unsigned int i;
    int error = 0;

    if (message->len > 0) {
        chip->chosen = message->buf[0];
    }
    for (i = 1; i < message->len && !error; i++) {
        error = write_cell(chip, message->buf[i]);
    }
    return error;
}

static int transfer_message(struct i2c_msg* message) {
    struct chip* chip;

    if (message->flags & I2C_M_TEN || (message->len == 0 && !empty_messages)) {
        return -EOPNOTSUPP;
    }
    chip = answering_chip(i2c_8bit_addr_from_msg(message) >> 1);
    if (!chip) {
        return -ENXIO;
    }
    if (!(message->flags & I2C_M_RD)) {
        return write_cells(chip, message);
    }
    return read_cells(chip, message);
}

// The end of a transaction: what was written begins to be stored.
static void stop(void) {
    struct chip* chip;

    for (chip = chips; chip < chips + ARRAY_SIZE(chips); chip++) {
        if (chip->written) {
            chip->stored = ktime_add_ms(ktime_get(), chip->store_ms);
        }
        chip->written = false;
    }
}

// The I2C core lets one transaction through at a time.
static int i2c_transfer_messages(struct i2c_adapter* adapter, struct i2c_msg* messages, int count) {
    int error = 0;
    int i;

    for (i = 0; i < count && !error; i++) {
        error = transfer_message(&messages[i]);
    }
    stop();
    return error ? error : count;
}

static u32 i2c_functionality(struct i2c_adapter* adapter) {
    return I2C_FUNC_I2C |
           (empty_messages ? I2C_FUNC_SMBUS_EMUL : I2C_FUNC_SMBUS_EMUL & ~I2C_FUNC_SMBUS_QUICK);
}

static const struct i2c_algorithm algorithm = {
    .master_xfer = i2c_transfer_messages,
    .functionality = i2c_functionality,
};

static struct i2c_adapter adapter = {
    .owner = THIS_MODULE,
    .name = "norv-board-i2c",
    .algo = &algorithm,
    .quirks = &quirks,
    .timeout = HZ,
};

static int __init board_i2c_init(void) {
    request_module("i2c-dev");  // user space reaches the bus through it
    adapter.nr = bus;
    return i2c_add_numbered_adapter(&adapter);
}

static void __exit board_i2c_exit(void) {
    i2c_del_adapter(&adapter);
}

module_init(board_i2c_init);
module_exit(board_i2c_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("I2C bus of the virtual board, with registers and an EEPROM");
