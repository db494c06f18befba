/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_i2c_bus.h
 * An I2C bus as a record of operations, so that a device's driver does not depend on the kind of bus. The
 * conventions of norv_status.h hold.
 *
 * `norv_linux_open_i2c_bus` fills the record with operations on a Linux I2C adapter, which make the transfers
 * of norv_linux_i2c.h. The record adds lists of registers and an address mode: slave addresses are given
 * unshifted (7 bits), or shifted as many data sheets print them (8 bits, the lowest one being read/write).
 *
 *     norv_i2c_bus_t bus;
 *     uint8_t value;
 *     if (norv_linux_open_i2c_bus(&bus, 1) == NORV_STATUS_OK) {
 *         bus.read_reg(&bus, 0x48, 0x00, &value);
 *         norv_linux_close_i2c_bus(&bus);
 *     }
 */
#ifndef NORV_LINUX_I2C_BUS_H
#define NORV_LINUX_I2C_BUS_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** The forms of slave addresses that `norv_linux_i2c_bus_set_addr_mode` selects. */
enum {
    NORV_LINUX_I2C_ADDR_7BIT = 0, /**< unshifted: 0x50 */
    NORV_LINUX_I2C_ADDR_8BIT = 1  /**< shifted, with or without the read bit: 0xA0 and 0xA1 both mean 0x50 */
};

/** One element of `write_reg_list`. */
typedef struct {
    uint8_t reg;   /**< the register */
    uint8_t value; /**< its new value */
} norv_i2c_reg_value_t;

typedef struct norv_i2c_bus norv_i2c_bus_t;

/** Private: the descriptor, number and address mode of an open bus. */
typedef struct norv_i2c_bus_state norv_i2c_bus_state_t;

/**
 * A bus.
 *
 * Each operation takes the record and a slave address, in the mode that is set at the time of the call.
 * Lengths are in bytes. An operation returns NORV_STATUS_INVALID_ARG if the record is not open, even one that
 * was closed, as closing leaves the operations in place (quirk 54); otherwise the status of the function that
 * is named with it (norv_linux_i2c.h). All block for their transactions.
 */
struct norv_i2c_bus {
    /** 0; reserved for other kinds of bus. */
    uint64_t reserved;

    /** Reads one register: `norv_linux_i2c_read` of one byte. */
    uint32_t (*read_reg)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t* value);
    /** Writes one register: `norv_linux_i2c_write` of one byte. */
    uint32_t (*write_reg)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t value);
    /** Reads `length` bytes from a register on, in one transaction: `norv_linux_i2c_read`. */
    uint32_t (*read_regs)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, void* data, uint16_t length);
    /** Writes `length` bytes, at most 256, from a register on: `norv_linux_i2c_write`. */
    uint32_t (*write_regs)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, const void* data,
                           uint16_t length);
    /**
     * Reads `count` registers, the i-th one into values[i], each in a transaction of its own:
     * `norv_linux_i2c_read` of one byte. The first failure ends it; the earlier values have been read then,
     * the later ones are unchanged (quirk 55). A count of 0 returns 0 at once, whatever the other arguments.
     */
    uint32_t (*read_reg_list)(norv_i2c_bus_t* bus, uint8_t address, const uint8_t* registers, uint8_t* values,
                              uint16_t count);
    /**
     * Writes `count` registers in the order of the list, each in a transaction of its own:
     * `norv_linux_i2c_write` of one byte. The first failure ends it; the earlier registers stay written
     * (quirk 55). A count of 0 returns 0 at once, whatever the other arguments.
     */
    uint32_t (*write_reg_list)(norv_i2c_bus_t* bus, uint8_t address, const norv_i2c_reg_value_t* list,
                               uint16_t count);
    /** Reads without a register: `norv_linux_i2c_raw_read`. */
    uint32_t (*raw_read)(norv_i2c_bus_t* bus, uint8_t address, void* data, uint16_t length);
    /** Writes without a register: `norv_linux_i2c_raw_write`. */
    uint32_t (*raw_write)(norv_i2c_bus_t* bus, uint8_t address, const void* data, uint16_t length);
    /** Null; reserved for other kinds of bus. */
    uint32_t (*reserved_operation)(norv_i2c_bus_t* bus, uint8_t address);
    /** Writes, then reads, in one transaction: `norv_linux_i2c_write_then_read`. */
    uint32_t (*write_then_read)(norv_i2c_bus_t* bus, uint8_t address, const void* write_data,
                                uint16_t write_length, void* read_data, uint16_t read_length);

    norv_i2c_bus_state_t* state; /**< null when the record is not open */
};

/**
 * Opens the adapter /dev/i2c-N and fills the record, with 7-bit addresses.
 *
 * @param bus         overwritten, so close an open record first; zeroed after a failure
 * @param bus_number  N of /dev/i2c-N
 * @retval NORV_STATUS_NO_MEMORY      nothing is opened
 * @retval NORV_STATUS_NOT_AVAILABLE  the adapter supports SMBus only
 * @retval others                     of `norv_linux_i2c_open`
 */
NORV_API uint32_t norv_linux_open_i2c_bus(norv_i2c_bus_t* bus, uint32_t bus_number);

/**
 * Closes the adapter and releases the state. The operations stay in the record (quirk 54), which may be
 * opened again.
 *
 * @param bus  may be null
 */
NORV_API void norv_linux_close_i2c_bus(norv_i2c_bus_t* bus);

/**
 * Selects the form of the slave addresses that the operations take. The kernel is not involved.
 *
 * @param bus   an open bus
 * @param mode  NORV_LINUX_I2C_ADDR_7BIT or NORV_LINUX_I2C_ADDR_8BIT
 * @retval NORV_STATUS_NOT_AVAILABLE  any other mode
 * @retval NORV_STATUS_INVALID_ARG    the bus is not open
 */
NORV_API uint32_t norv_linux_i2c_bus_set_addr_mode(norv_i2c_bus_t* bus, uint8_t mode);

NORV_END_DECLS

#endif
