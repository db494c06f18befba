/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_i2c.h
 * I2C transfers through an adapter's character device, /dev/i2c-N (kernel driver i2c-dev). The conventions of
 * norv_status.h hold.
 *
 * The handle is the adapter's file descriptor, kept by the caller; there is no other state. Several threads
 * may transfer through one descriptor: the kernel runs one request at a time.
 *
 * Each transfer names its 7-bit slave address, not shifted, and is one `I2C_RDWR` request: its messages are
 * sent with a repeated start between them and no stop, so that no other master comes between a register
 * address and its data. Nothing is retried, not even an interrupted request (quirk 53), and the number of
 * messages that the kernel reports as done is not checked (quirk 50).
 *
 *     int32_t bus;
 *     uint8_t temperature[2];
 *     if (norv_linux_i2c_open(1, &bus) == NORV_STATUS_OK) {
 *         norv_linux_i2c_read(&bus, 0x48, 0x00, temperature, sizeof temperature);
 *         norv_linux_i2c_close(&bus);
 *     }
 *
 * An address above 0x7F is passed on unchanged (quirk 52), and the kernel passes it to the adapter's driver:
 * most drivers put its low 7 bits on the bus, where another device may answer. The kernel refuses messages of
 * more than 8192 bytes, and an adapter's driver may refuse shorter ones.
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
 * Opens an adapter, and checks that it can make plain I2C transfers (ioctl `I2C_FUNCS`).
 *
 * @param bus_number  N of /dev/i2c-N
 * @param descriptor  receives the descriptor; -1 after a failure
 * @retval NORV_STATUS_NOT_FOUND      there is no such adapter, or i2c-dev is not loaded
 * @retval NORV_STATUS_NOT_AVAILABLE  the adapter supports SMBus only
 * @retval errno                      of open(2) or `I2C_FUNCS`
 */
NORV_API uint32_t norv_linux_i2c_open(uint32_t bus_number, int32_t* descriptor);

/**
 * Closes the descriptor, and leaves the stored number unchanged (quirk 49): do not use or close it again, as
 * another file may have that number by then.
 *
 * @param descriptor  may be null
 */
NORV_API void norv_linux_i2c_close(const int32_t* descriptor);

/**
 * Reads registers: writes the byte of the register address, then reads, in one transaction.
 *
 * @param descriptor  an open adapter
 * @param address     7-bit slave address
 * @param reg         the first register
 * @param data        receives `length` bytes; may be null if `length` is 0
 * @param length      bytes
 * @retval ENXIO                no device answers at the address
 * @retval EREMOTEIO            the same, from other adapters' drivers
 * @retval NORV_STATUS_TIMEOUT  the bus is stuck
 * @retval errno                of `I2C_RDWR`
 *
 * Blocks for the transaction; how long it waits for a stuck bus is up to the adapter's driver.
 */
NORV_API uint32_t norv_linux_i2c_read(const int32_t* descriptor, uint8_t address, uint8_t reg, void* data,
                                      uint16_t length);

/**
 * Writes registers: the byte of the register address and the data, in one message.
 *
 * After a failure the device may have taken some of the bytes.
 *
 * @param descriptor  an open adapter
 * @param address     7-bit slave address
 * @param reg         the first register
 * @param data        the bytes; may be null if `length` is 0
 * @param length      bytes, 0 to 256; 0 sends the register address alone
 * @retval NORV_STATUS_INVALID_ARG  any other length; nothing is sent
 * @retval errno                    as for `norv_linux_i2c_read`
 *
 * Blocks for the transaction.
 */
NORV_API uint32_t norv_linux_i2c_write(const int32_t* descriptor, uint8_t address, uint8_t reg,
                                       const void* data, int32_t length);

/**
 * Reads without a register address: one read message.
 *
 * @param descriptor  an open adapter
 * @param address     7-bit slave address
 * @param data        receives `length` bytes; may be null if `length` is 0
 * @param length      bytes, 0 to 65535; a negative length is not refused: its low 16 bits are the length, so
 *                    that -1 reads 65535 bytes and -65534 reads 2 (quirk 51)
 * @retval NORV_STATUS_INVALID_ARG  a length above 65535; nothing is sent
 * @retval errno                    as for `norv_linux_i2c_read`
 *
 * Blocks for the transaction.
 */
NORV_API uint32_t norv_linux_i2c_raw_read(const int32_t* descriptor, uint8_t address, void* data,
                                          int32_t length);

/**
 * Writes without a register address: one write message.
 *
 * After a failure the device may have taken some of the bytes.
 *
 * @param descriptor  an open adapter
 * @param address     7-bit slave address
 * @param data        the bytes; may be null if `length` is 0
 * @param length      bytes, 0 to 65535; a negative length is not refused: its low 16 bits are the length, so
 *                    that -1 sends 65535 bytes and -65534 sends 2 (quirk 51)
 * @retval NORV_STATUS_INVALID_ARG  a length above 65535; nothing is sent
 * @retval errno                    as for `norv_linux_i2c_read`
 *
 * Blocks for the transaction.
 */
NORV_API uint32_t norv_linux_i2c_raw_write(const int32_t* descriptor, uint8_t address, const void* data,
                                           int32_t length);

/**
 * Writes, then reads, in one transaction: for register addresses and commands of more than one byte.
 *
 * After a failure the device may have taken some of the written bytes.
 *
 * @param descriptor    an open adapter
 * @param address       7-bit slave address
 * @param write_data    the bytes to write; may be null if `write_length` is 0
 * @param write_length  bytes
 * @param read_data     receives `read_length` bytes; may be null if `read_length` is 0
 * @param read_length   bytes
 * @retval errno  as for `norv_linux_i2c_read`
 *
 * Blocks for the transaction.
 */
NORV_API uint32_t norv_linux_i2c_write_then_read(const int32_t* descriptor, uint8_t address,
                                                 const void* write_data, uint16_t write_length,
                                                 void* read_data, uint16_t read_length);

NORV_END_DECLS

#endif
