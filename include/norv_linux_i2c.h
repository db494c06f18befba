/**
 * @file norv_linux_i2c.h
 * I2C transfers through an adapter's character device, /dev/i2c-N (kernel driver i2c-dev).
 *
 * The handle is the adapter's file descriptor, kept by the caller; there is no other state. Every transfer
 * names its 7-bit slave address, and is one `I2C_RDWR` request: its messages go over the bus with a repeated
 * start between them and no stop, so that a register address and the data that belongs to it are never torn
 * apart. Several threads may transfer through one descriptor: the kernel carries out one request at a time.
 * Nothing is ever tried again.
 *
 *     int32_t bus;
 *     uint8_t temperature[2];
 *     if (norv_linux_i2c_open(1, &bus) == NORV_STATUS_OK) {
 *         norv_linux_i2c_read(&bus, 0x48, 0x00, temperature, sizeof temperature);
 *         norv_linux_i2c_close(&bus);
 *     }
 *
 * The kernel's own limit for one message is 8192 bytes (i2c-dev), or less where the adapter's driver says so;
 * it refuses a longer one. It does not check addresses: one above 0x7F goes to the adapter's driver, and most
 * drivers put its low 7 bits on the bus, where another device may answer.
 */
#ifndef NORV_LINUX_I2C_H
#define NORV_LINUX_I2C_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** The greatest lengths that are passed to the kernel, in bytes. */
enum {
    NORV_LINUX_I2C_MAX_WRITE = 256, /**< data of `norv_linux_i2c_write`, without the register */
    NORV_LINUX_I2C_MAX_RAW = 65535  /**< `norv_linux_i2c_raw_read` and `norv_linux_i2c_raw_write` */
};

/**
 * Opens an adapter, and makes sure that it can do plain I2C transfers (ioctl `I2C_FUNCS`).
 *
 * @param bus_number  N of /dev/i2c-N; printed signed, so a number of 2^31 or more finds no device
 * @param descriptor  receives the descriptor; not null; -1 after a failure, so that closing it again closes
 *                    nothing
 * @return 0; NORV_STATUS_INVALID_ARG when `descriptor` is null; the errno status of opening /dev/i2c-N
 *         read-write, for instance NORV_STATUS_NOT_FOUND: no such adapter, or i2c-dev is not loaded;
 *         the errno status of `I2C_FUNCS`; NORV_STATUS_NOT_AVAILABLE when the adapter knows SMBus only
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_i2c_open(uint32_t bus_number, int32_t* descriptor);

/**
 * Closes the descriptor if it is greater than 0.
 *
 * @param descriptor  may be null; the stored value is left as it is: the number is no longer the caller's,
 *                    and closing or using it again would hit whatever file got the number next
 *
 * Does not block. Never fails.
 */
NORV_API void norv_linux_i2c_close(const int32_t* descriptor);

/**
 * Reads registers: writes the one byte of the register address, and reads, in one transaction.
 *
 * @param descriptor  of an open adapter; not null
 * @param address     slave address, 7 bits, not shifted; passed on as it is
 * @param reg         the register to start at
 * @param data        receives `length` bytes; owned by the caller; null only when `length` is 0; left as it
 *                    was on failure
 * @param length      bytes
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null, with nothing sent; the errno status of
 *         `I2C_RDWR`, for instance that of ENXIO or EREMOTEIO when nobody answers at the address (which of
 *         them is the choice of the adapter's driver), and NORV_STATUS_TIMEOUT when the bus is stuck
 *
 * Blocks for the length of the transaction; how long a stuck bus is waited for is the adapter's choice.
 */
NORV_API uint32_t norv_linux_i2c_read(const int32_t* descriptor, uint8_t address, uint8_t reg, void* data,
                                      uint16_t length);

/**
 * Writes registers: the byte of the register address and the data, in one message.
 *
 * @param descriptor  of an open adapter; not null
 * @param address     slave address, 7 bits, not shifted; passed on as it is
 * @param reg         the register to start at
 * @param data        the bytes; owned by the caller; null only when `length` is 0
 * @param length      bytes, 0 to 256; 0 sends the register address alone
 * @return 0; NORV_STATUS_INVALID_ARG for any other length and when a pointer is null, with nothing sent; the
 *         errno status of `I2C_RDWR`, as for `norv_linux_i2c_read`; the device may then have taken some bytes
 *
 * Blocks for the length of the transaction.
 */
NORV_API uint32_t norv_linux_i2c_write(const int32_t* descriptor, uint8_t address, uint8_t reg,
                                       const void* data, int32_t length);

/**
 * Reads without a register address: one read message.
 *
 * @param descriptor  of an open adapter; not null
 * @param address     slave address, 7 bits, not shifted; passed on as it is
 * @param data        receives `length` bytes; owned by the caller; null only when `length` is 0; left as it
 *                    was on failure
 * @param length      bytes, 0 to 65535. A negative length is not refused: its low 16 bits are the length of
 *                    the message, so that -1 reads 65535 bytes and -65534 reads 2
 * @return 0; NORV_STATUS_INVALID_ARG for a length above 65535 and when a pointer is null, with nothing sent;
 *         the errno status of `I2C_RDWR`, as for `norv_linux_i2c_read`
 *
 * Blocks for the length of the transaction.
 */
NORV_API uint32_t norv_linux_i2c_raw_read(const int32_t* descriptor, uint8_t address, void* data,
                                          int32_t length);

/**
 * Writes without a register address: one write message.
 *
 * @param descriptor  of an open adapter; not null
 * @param address     slave address, 7 bits, not shifted; passed on as it is
 * @param data        the bytes; owned by the caller; null only when `length` is 0
 * @param length      bytes, 0 to 65535. A negative length is not refused: its low 16 bits are the length of
 *                    the message, so that -1 sends 65535 bytes and -65534 sends 2
 * @return 0; NORV_STATUS_INVALID_ARG for a length above 65535 and when a pointer is null, with nothing sent;
 *         the errno status of `I2C_RDWR`, as for `norv_linux_i2c_read`; the device may then have taken some
 *         bytes
 *
 * Blocks for the length of the transaction.
 */
NORV_API uint32_t norv_linux_i2c_raw_write(const int32_t* descriptor, uint8_t address, const void* data,
                                           int32_t length);

/**
 * Writes, then reads, in one transaction: for devices whose register addresses or commands are longer than a
 * byte.
 *
 * @param descriptor    of an open adapter; not null
 * @param address       slave address, 7 bits, not shifted; passed on as it is
 * @param write_data    the bytes to write; owned by the caller; null only when `write_length` is 0
 * @param write_length  bytes
 * @param read_data     receives `read_length` bytes; owned by the caller; null only when `read_length` is 0;
 *                      left as it was on failure
 * @param read_length   bytes
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null, with nothing sent; the errno status of
 *         `I2C_RDWR`, as for `norv_linux_i2c_read`; the bytes to write may then have been taken
 *
 * Blocks for the length of the transaction.
 */
NORV_API uint32_t norv_linux_i2c_write_then_read(const int32_t* descriptor, uint8_t address,
                                                 const void* write_data, uint16_t write_length,
                                                 void* read_data, uint16_t read_length);

NORV_END_DECLS

#endif
