// SPDX-License-Identifier: GPL-2.0
// An I2C adapter that knows SMBus only: single bytes to and from the registers of a chip at 0x50.
#include <linux/i2c.h>
#include <linux/module.h>

#define CHIP 0x50

static u8 registers[256];

static s32 smbus_transfer(struct i2c_adapter* adapter, u16 address, unsigned short flags, char direction,
                          u8 command, int size, union i2c_smbus_data* data) {
    if (address != CHIP) {
        return -ENXIO;
    }
    if (size != I2C_SMBUS_BYTE_DATA) {
        return -EOPNOTSUPP;
    }
    if (direction == I2C_SMBUS_READ) {
        data->byte = registers[command];
    } else {
        registers[command] = data->byte;
    }
    return 0;
}

static u32 smbus_functionality(struct i2c_adapter* adapter) {
    return I2C_FUNC_SMBUS_BYTE_DATA;
}

static const struct i2c_algorithm algorithm = {
    .smbus_xfer = smbus_transfer,
    .functionality = smbus_functionality,
};

static struct i2c_adapter adapter = {
    .owner = THIS_MODULE,
    .name = "norv-board-smbus",
    .algo = &algorithm,
};

static int __init board_smbus_init(void) {
    request_module("i2c-dev");  // user space reaches the bus through it
    return i2c_add_adapter(&adapter);
}

static void __exit board_smbus_exit(void) {
    i2c_del_adapter(&adapter);
}

module_init(board_smbus_init);
module_exit(board_smbus_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("SMBus adapter of the virtual board");
