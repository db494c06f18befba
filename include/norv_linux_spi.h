/**
 * @file norv_linux_spi.h
 * One SPI slave through the kernel's spidev character device, /dev/spidevBUS.SELECT.
 *
 * Opening configures the slave: clock mode, word size, clock and bit order. The settings belong to the device
 * node, not to the handle: every other handle on the node works with them too. Mode, word size and bit order
 * stay after a close; the clock goes back to that of the slave's description (its device-tree node) when the
 * last descriptor of the node is closed. Every transfer call is one message, one ioctl, which the kernel runs
 * without anything in between. It moves 4096 bytes in each direction at most, unless spidev was loaded with a
 * larger "bufsiz". A handle is used by one thread at a time; threads that share one must not configure it
 * while transfers run.
 *
 * Words of 16 bits are two bytes in memory, in the processor's order. Where a controller refuses 16 bits per
 * word, the slave is run with 8 and the library exchanges the two bytes of every word itself, so that a
 * little-endian processor's words still go out high byte first. `norv_linux_spi_xfer` exchanges nothing.
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

/** One slave; the storage is the caller's, `norv_linux_spi_open` fills it. */
typedef struct {
    int32_t descriptor; /**< the open device node; -1 when closed */
    uint8_t swap16;     /**< 1: 16-bit words are emulated on a device that is run with 8-bit words */
} norv_spi_t;

/** How a slave is talked to. */
typedef struct {
    uint32_t mode;         /**< 0..3: clock polarity (bit 1) and phase (bit 0) */
    uint32_t max_speed_hz; /**< the fastest clock that the slave takes, in Hz */
    uint8_t bits_per_word; /**< what the controller offers; 16 always works where 8 does */
    uint8_t lsb_first;     /**< non-zero: least significant bit first */
} norv_spi_config_t;

/** One transfer of the list that `norv_linux_spi_xfer` takes. */
typedef struct {
    const void* tx_buffer; /**< `length` bytes to send; null: zeros are sent */
    void* rx_buffer;       /**< receives `length` bytes; null: what comes in is dropped */
    uint32_t length;       /**< in bytes */
    uint16_t delay_us;     /**< pause after the transfer, in microseconds */
} norv_spi_transfer_t;

/**
 * Opens and configures a slave: open(2) with `O_RDWR | O_SYNC | O_CLOEXEC`, then `norv_linux_spi_config`.
 *
 * @param path    the device node, used as a printf format without values: a `%` in the path is written `%%`;
 *                cut silently after 255 characters; not null
 * @param config  only read; not null
 * @param spi     filled; not null; after a failure it is closed and its descriptor is -1
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null, with nothing opened; the errno status of
 *         open(2); the status of `norv_linux_spi_config`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_spi_open(const char* path, const norv_spi_config_t* config, norv_spi_t* spi);

/**
 * Closes the device node; only a descriptor above 0 counts as open.
 *
 * @param spi  may be null; its descriptor is -1 afterwards, so that a second close closes nothing
 *
 * Does not block. Never fails.
 */
NORV_API void norv_linux_spi_close(norv_spi_t* spi);

/**
 * Tells the descriptor of the device node, for requests that this family does not make.
 *
 * @param spi  not null
 * @return the descriptor, which stays the handle's; -1 when the handle is closed
 */
NORV_API int32_t norv_linux_spi_get_fd(const norv_spi_t* spi);

/**
 * Configures the slave: mode (`SPI_IOC_WR_MODE`), word size (`SPI_IOC_WR_BITS_PER_WORD`), clock
 * (`SPI_IOC_WR_MAX_SPEED_HZ`) and bit order (`SPI_IOC_WR_LSB_FIRST`), in this order.
 *
 * A word size of 16 that is refused is tried again as 8; the handle's `swap16` tells that from then on the
 * library exchanges bytes. Any other refused size is a failure.
 *
 * @param spi     not null, open; `swap16` is cleared at first, also when the call fails afterwards
 * @param config  only read; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null or the mode is above 3, with no setting changed;
 *         the errno status of the first request that fails: the settings before it are made, those after it
 *         are not. NORV_STATUS_INVALID_ARG is also what the kernel says of a word size, a mode or a bit order
 *         that the controller does not offer
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_spi_config(norv_spi_t* spi, const norv_spi_config_t* config);

/**
 * Sends and receives at the same time: one transfer, `SPI_IOC_MESSAGE(1)`.
 *
 * With `swap16` set a copy is sent whose bytes are exchanged pairwise, and the received bytes are exchanged
 * in place; the last byte of an odd length stays where it is.
 *
 * @param spi        not null, open
 * @param tx_buffer  `length` bytes to send, never changed; null: zeros are sent
 * @param rx_buffer  receives `length` bytes; may be `tx_buffer`; null: what comes in is dropped; not
 *                   exchanged when the call fails
 * @param length     in bytes
 * @return 0; NORV_STATUS_INVALID_ARG when `spi` is null; NORV_STATUS_NO_MEMORY when there is none for the
 *         copy, with nothing sent; the errno status of the request, for instance that of EMSGSIZE when
 *         `length` is above spidev's limit
 *
 * Blocks until the controller has run the message. Allocates only with `swap16` set.
 */
NORV_API uint32_t norv_linux_spi_dplx(const norv_spi_t* spi, const void* tx_buffer, void* rx_buffer,
                                      uint32_t length);

/**
 * Sends, pauses and then receives, with the slave selected throughout: two transfers, `SPI_IOC_MESSAGE(2)`.
 *
 * With `swap16` set this call does not send the caller's bytes, unlike `norv_linux_spi_dplx`: `tx_length`
 * zeros go out in their place. The received bytes are exchanged pairwise. On such a handle use
 * `norv_linux_spi_dplx`, or `norv_linux_spi_xfer` with bytes that are exchanged already.
 *
 * @param spi        not null, open
 * @param tx_buffer  `tx_length` bytes to send, never changed; null: zeros are sent
 * @param tx_length  in bytes
 * @param delay_us   pause between the two transfers, in microseconds
 * @param rx_buffer  receives `rx_length` bytes; null: what comes in is dropped; not exchanged when the call
 *                   fails
 * @param rx_length  in bytes
 * @return 0; NORV_STATUS_INVALID_ARG when `spi` is null; NORV_STATUS_NO_MEMORY when `swap16` is set and there
 *         is no memory: the message has been run all the same, with the bytes of `tx_buffer` as they are, and
 *         what it received is not exchanged; the errno status of the request
 *
 * Blocks until the controller has run the message. Allocates only with `swap16` set.
 */
NORV_API uint32_t norv_linux_spi_write_then_read(const norv_spi_t* spi, const void* tx_buffer,
                                                 uint32_t tx_length, uint16_t delay_us, void* rx_buffer,
                                                 uint32_t rx_length);

/**
 * Runs a list of transfers as one message, `SPI_IOC_MESSAGE(count)`, with the slave selected throughout.
 *
 * Bytes are sent and received as they are, whatever `swap16` says. 511 transfers are the most that a request
 * can name: with more its size is 0, and the kernel runs none of them. Linux answers such a request with
 * success, so the call returns 0 although nothing was sent.
 *
 * @param spi        not null, open
 * @param transfers  `count` elements, only read; may be null when `count` is 0
 * @param count      0..511
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; NORV_STATUS_NO_MEMORY when there is none for the
 *         kernel's list, with nothing sent; the errno status of the request
 *
 * Blocks until the controller has run the message. Allocates 32 bytes for each transfer.
 */
NORV_API uint32_t norv_linux_spi_xfer(const norv_spi_t* spi, const norv_spi_transfer_t* transfers,
                                      uint32_t count);

NORV_END_DECLS

#endif
