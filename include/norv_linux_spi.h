/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_spi.h
 * One SPI slave through the kernel's spidev character device, /dev/spidevBUS.SELECT. The conventions of
 * norv_status.h hold.
 *
 * The settings belong to the device node, not to the handle: each other handle on the node uses them too.
 * Mode, word size and bit order stay after a close; the clock returns to that of the slave's device-tree node
 * when the last descriptor of the device node is closed. Threads that share a handle may transfer at the same
 * time, but must not configure it meanwhile.
 *
 * Each transfer call is one message, one ioctl, which the kernel runs without anything in between. It moves
 * up to 4096 bytes in each direction, unless spidev was loaded with a larger "bufsiz".
 *
 * A word of 16 bits is two bytes in memory, in the processor's order. Where a controller refuses 16 bits per
 * word, the slave is run with 8 and the library swaps the two bytes of each word, so that the words of a
 * little-endian processor are sent high byte first. `norv_linux_spi_xfer` never swaps.
 *
 *     norv_spi_config_t config = {.mode = 0, .max_speed_hz = 1000000, .bits_per_word = 8};
 *     norv_spi_t flash;
 *     uint8_t command = 0x9F, identifier[3];
 *     norv_linux_spi_open("/dev/spidev0.0", &config, &flash);
 *     norv_linux_spi_write_then_read(&flash, &command, 1, 0, identifier, sizeof identifier);
 *     norv_linux_spi_close(&flash);
 */
#ifndef NORV_LINUX_SPI_H
#define NORV_LINUX_SPI_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** One slave. */
typedef struct {
    int32_t descriptor; /**< the open device node; -1 when closed */
    uint8_t swap16;     /**< 1: 16-bit words are emulated with 8-bit words */
} norv_spi_t;

/** The settings of a slave. */
typedef struct {
    uint32_t mode;         /**< 0..3: clock polarity (bit 1) and phase (bit 0) */
    uint32_t max_speed_hz; /**< the fastest clock of the slave, in Hz */
    uint8_t bits_per_word; /**< what the controller offers; 16 works wherever 8 does */
    uint8_t lsb_first;     /**< non-zero: least significant bit first */
} norv_spi_config_t;

/** One transfer in the list of `norv_linux_spi_xfer`. */
typedef struct {
    const void* tx_buffer; /**< `length` bytes to send; null: zeros are sent */
    void* rx_buffer;       /**< receives `length` bytes; null: they are discarded */
    uint32_t length;       /**< in bytes */
    uint16_t delay_us;     /**< pause after the transfer, in microseconds */
} norv_spi_transfer_t;

/**
 * Opens and configures a slave: open(2) with `O_RDWR | O_SYNC | O_CLOEXEC`, then `norv_linux_spi_config`.
 *
 * @param path    the device node; used as a printf format without values: write `%%` for a `%` (quirk 61)
 * @param config  the settings
 * @param spi     receives the open slave
 * @retval NORV_STATUS_NOT_FOUND    there is no such device node
 * @retval NORV_STATUS_INVALID_ARG  as for `norv_linux_spi_config`
 * @retval errno                    of open(2)
 * @retval others                   of `norv_linux_spi_config`
 */
NORV_API uint32_t norv_linux_spi_open(const char* path, const norv_spi_config_t* config, norv_spi_t* spi);

/**
 * Closes the device node.
 *
 * @param spi  opened; may be null
 */
NORV_API void norv_linux_spi_close(norv_spi_t* spi);

/**
 * Returns the descriptor of the device node, for requests that this family does not make.
 *
 * @param spi  not checked
 * @return the descriptor; -1 when the slave is closed
 */
NORV_API int32_t norv_linux_spi_get_fd(const norv_spi_t* spi);

/**
 * Configures the slave: mode (`SPI_IOC_WR_MODE`), word size (`SPI_IOC_WR_BITS_PER_WORD`), clock
 * (`SPI_IOC_WR_MAX_SPEED_HZ`) and bit order (`SPI_IOC_WR_LSB_FIRST`), in this order.
 *
 * The first failure ends the call, and the settings made before stay. If a word size of 16 is refused, 8 is
 * tried, and `swap16` becomes 1: the library swaps bytes from then on. `swap16` is cleared first, even by a
 * call that refuses the mode and leaves the settings unchanged (quirk 56).
 *
 * @param spi     an open slave
 * @param config  the settings
 * @retval NORV_STATUS_INVALID_ARG  a mode above 3; a mode, word size or bit order that the controller does
 *                                  not offer
 * @retval errno                    of the failed request
 */
NORV_API uint32_t norv_linux_spi_config(norv_spi_t* spi, const norv_spi_config_t* config);

/**
 * Sends and receives at the same time: one transfer, `SPI_IOC_MESSAGE(1)`.
 *
 * With `swap16` set, a copy with swapped bytes is sent, and the received bytes are swapped in place, unless
 * the call fails; the last byte of an odd length stays where it is. Allocates only then.
 *
 * @param spi        an open slave
 * @param tx_buffer  `length` bytes to send; null: zeros are sent
 * @param rx_buffer  receives `length` bytes; may be `tx_buffer`; null: they are discarded
 * @param length     in bytes
 * @retval NORV_STATUS_NO_MEMORY  for the copy; nothing is sent
 * @retval EMSGSIZE               `length` is above the limit of spidev
 * @retval errno                  of the request
 *
 * Blocks until the controller has run the message.
 */
NORV_API uint32_t norv_linux_spi_dplx(const norv_spi_t* spi, const void* tx_buffer, void* rx_buffer,
                                      uint32_t length);

/**
 * Sends, pauses and then receives, with the slave selected throughout: two transfers, `SPI_IOC_MESSAGE(2)`.
 *
 * With `swap16` set, `tx_length` zeros are sent instead of the caller's bytes (quirk 57), and the received
 * bytes are swapped in place, unless the call fails. On such a handle use `norv_linux_spi_dplx`, or
 * `norv_linux_spi_xfer` with bytes that are already swapped. Allocates only with `swap16` set.
 *
 * @param spi        an open slave
 * @param tx_buffer  `tx_length` bytes to send; null: zeros are sent
 * @param tx_length  in bytes
 * @param delay_us   pause between the two transfers, in microseconds
 * @param rx_buffer  receives `rx_length` bytes; null: they are discarded
 * @param rx_length  in bytes
 * @retval NORV_STATUS_NO_MEMORY  for the zeros: the message was run nevertheless, with the caller's bytes,
 *                                whatever its result, and nothing was swapped (quirk 58)
 * @retval errno                  as for `norv_linux_spi_dplx`
 *
 * Blocks until the controller has run the message.
 */
NORV_API uint32_t norv_linux_spi_write_then_read(const norv_spi_t* spi, const void* tx_buffer,
                                                 uint32_t tx_length, uint16_t delay_us, void* rx_buffer,
                                                 uint32_t rx_length);

/**
 * Runs a list of transfers as one message, `SPI_IOC_MESSAGE(count)`, with the slave selected throughout.
 *
 * Bytes are never swapped, whatever `swap16` is (quirk 59). A request can name at most 511 transfers: with
 * more, its size is 0, the kernel runs none of them, and Linux reports a success (quirk 60). Allocates 32
 * bytes for each transfer.
 *
 * @param spi        an open slave
 * @param transfers  `count` elements; may be null if `count` is 0
 * @param count      0..511
 * @retval NORV_STATUS_NO_MEMORY  nothing is sent
 * @retval errno                  as for `norv_linux_spi_dplx`
 *
 * Blocks until the controller has run the message.
 */
NORV_API uint32_t norv_linux_spi_xfer(const norv_spi_t* spi, const norv_spi_transfer_t* transfers,
                                      uint32_t count);

NORV_END_DECLS

#endif
