/**
 * @file norv_linux_i2c_bus.h
 * An I2C bus as a record of operations, so that a device's driver does not see what lies behind it.
 *
 * `norv_linux_open_i2c_bus` fills the caller's record with operations that go to a Linux I2C adapter; see
 * norv_linux_i2c.h for what each transfer does. Beyond those transfers the record offers lists of registers,
 * and an address mode: slave addresses are given as they are (7 bits), or as many data sheets print them
 * (8 bits, the lowest being read/write). A record is used by one thread at a time: its single transfers are
 * atomic in the kernel, but the elements of a list are transactions of their own.
 *
 *     norv_i2c_bus_t bus;
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

/** How `norv_linux_i2c_bus_set_addr_mode` takes slave addresses. */
enum {
    NORV_LINUX_I2C_ADDR_7BIT = 0, /**< as they are: 0x50 */
    NORV_LINUX_I2C_ADDR_8BIT = 1  /**< shifted, with or without the read bit: 0xA0 and 0xA1 both mean 0x50 */
};

/** One element of `write_reg_list`. */
typedef struct {
    uint8_t reg;   /**< the register */
    uint8_t value; /**< what is written into it */
} norv_i2c_reg_value_t;

typedef struct norv_i2c_bus norv_i2c_bus_t;

/** What an open bus keeps: the adapter's descriptor, its number, and the address mode. Private. */
typedef struct norv_i2c_bus_state norv_i2c_bus_state_t;

/**
 * A bus; the storage is the caller's, `norv_linux_open_i2c_bus` fills it.
 *
 * Each operation takes the record and a slave address first, and the address is shifted by the mode that is
 * set at the time of the call. Buffers are the caller's; lengths are in bytes. All return 0;
 * NORV_STATUS_INVALID_ARG when a pointer is null or the record is not open, with nothing sent; otherwise the
 * status of the transfer function named with them (norv_linux_i2c.h). All block for the length of their
 * transactions. After `norv_linux_close_i2c_bus` the pointers are still there, and the operations refuse.
 */
struct norv_i2c_bus {
    /** 0 here; left for other kinds of bus. */
    uint64_t reserved;

    /** Reads one register: `norv_linux_i2c_read` of one byte. */
    uint32_t (*read_reg)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t* value);
    /** Writes one register: `norv_linux_i2c_write` of one byte. */
    uint32_t (*write_reg)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t value);
    /** Reads `length` bytes starting at a register, in one transaction: `norv_linux_i2c_read`. */
    uint32_t (*read_regs)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, void* data, uint16_t length);
    /** Writes `length` bytes, at most 256, starting at a register: `norv_linux_i2c_write`. */
    uint32_t (*write_regs)(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, const void* data,
                           uint16_t length);
    /**
     * Reads `count` registers, each in a transaction of its own (`norv_linux_i2c_read` of one byte): the
     * i-th listed one into values[i]. Stops at the first failure and returns it; the earlier values are
     * read, the later ones untouched. A count of 0 sends nothing and returns 0.
     */
    uint32_t (*read_reg_list)(norv_i2c_bus_t* bus, uint8_t address, const uint8_t* registers, uint8_t* values,
                              uint16_t count);
    /**
     * Writes `count` registers in the order of the list, each in a transaction of its own
     * (`norv_linux_i2c_write` of one byte). Stops at the first failure and returns it; the earlier registers
     * stay written. A count of 0 sends nothing and returns 0.
     */
    uint32_t (*write_reg_list)(norv_i2c_bus_t* bus, uint8_t address, const norv_i2c_reg_value_t* list,
                               uint16_t count);
    /** Reads without a register: `norv_linux_i2c_raw_read`. */
    uint32_t (*raw_read)(norv_i2c_bus_t* bus, uint8_t address, void* data, uint16_t length);
    /** Writes without a register: `norv_linux_i2c_raw_write`. */
    uint32_t (*raw_write)(norv_i2c_bus_t* bus, uint8_t address, const void* data, uint16_t length);
    /** Null here; left for other kinds of bus. */
    uint32_t (*reserved_operation)(norv_i2c_bus_t* bus, uint8_t address);
    /** Writes, then reads, in one transaction: `norv_linux_i2c_write_then_read`. */
    uint32_t (*write_then_read)(norv_i2c_bus_t* bus, uint8_t address, const void* write_data,
                                uint16_t write_length, void* read_data, uint16_t read_length);

    norv_i2c_bus_state_t* state; /**< null when the record is not open */
};

/**
 * Opens the adapter /dev/i2c-N and fills the record. Addresses are taken as 7 bits at first.
 *
 * @param bus         not null; overwritten, so close an open record first; after a failure it is zeroed, and
 *                    closing it does nothing
 * @param bus_number  N of /dev/i2c-N
 * @return 0; NORV_STATUS_INVALID_ARG when `bus` is null; NORV_STATUS_NO_MEMORY; the status of
 *         `norv_linux_i2c_open`, for instance NORV_STATUS_NOT_AVAILABLE for an adapter that knows SMBus only
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_open_i2c_bus(norv_i2c_bus_t* bus, uint32_t bus_number);

/**
 * Closes the adapter and releases the state; a record that is not open is left alone.
 *
 * @param bus  may be null; its state is null afterwards, the operations stay in place; may be opened again
 *
 * Does not block. Never fails.
 */
NORV_API void norv_linux_close_i2c_bus(norv_i2c_bus_t* bus);

/**
 * Chooses how the operations take slave addresses.
 *
 * @param bus   not null, open
 * @param mode  NORV_LINUX_I2C_ADDR_7BIT or NORV_LINUX_I2C_ADDR_8BIT
 * @return 0; NORV_STATUS_NOT_AVAILABLE for any other mode, with the mode left as it was;
 *         NORV_STATUS_INVALID_ARG when `bus` is null or not open
 *
 * Does not block; the kernel is not told.
 */
NORV_API uint32_t norv_linux_i2c_bus_set_addr_mode(norv_i2c_bus_t* bus, uint8_t mode);

NORV_END_DECLS

#endif
