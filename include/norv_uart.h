/* SPDX-License-Identifier: MIT */
/**
 * @file norv_uart.h
 * One serial port: line settings, raw transfers with or without a timeout, modem lines. The conventions of
 * norv_status.h hold.
 *
 * Opening allocates a handle and configures the port; a variable without one is an invalid argument. Closing
 * restores the settings that the port had before the last `norv_uart_config` (opening includes one). The
 * descriptor stays non-blocking: the transfers wait, or the caller's loop. One thread may send while another
 * one receives.
 *
 *     norv_uart_t* port = NULL;
 *     const norv_uart_settings_t settings = {.baud = 115200, .data_bits = 8};
 *     char reply[64];
 *     uint32_t length = 4, received = sizeof reply;
 *     norv_uart_open("/dev/ttyS1", &settings, &port);
 *     norv_uart_send(&port, "ping", &length, -1);
 *     norv_uart_recv(&port, reply, &received, 1000);
 *     norv_uart_close(&port);
 */
#ifndef NORV_UART_H
#define NORV_UART_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** An open port; private. */
typedef struct norv_uart norv_uart_t;

/** The stop bits of `norv_uart_settings_t`. */
enum { NORV_UART_STOP_BITS_1 = 0, NORV_UART_STOP_BITS_2 = 1 };

/** The parities of `norv_uart_settings_t`; mark and space send a parity bit of constant 1 or 0. */
enum {
    NORV_UART_PARITY_NONE = 0,
    NORV_UART_PARITY_ODD = 1,
    NORV_UART_PARITY_EVEN = 2,
    NORV_UART_PARITY_MARK = 3,
    NORV_UART_PARITY_SPACE = 4
};

/** The flow controls of `norv_uart_settings_t`. */
enum {
    NORV_UART_FLOW_CONTROL_NONE = 0,
    NORV_UART_FLOW_CONTROL_SOFTWARE = 1, /**< XON/XOFF; has no effect by itself, see norv_uart_config */
    NORV_UART_FLOW_CONTROL_HARDWARE = 2  /**< RTS/CTS */
};

/** The settings of a port. */
typedef struct {
    /**
     * Bit/s, one of: 0, 50, 75, 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400,
     * 57600, 115200, 230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000,
     * 3000000, 3500000, 4000000. Other values are not rounded; 134 means 134.5, and 0 hangs up.
     */
    uint32_t baud;
    uint32_t data_bits;    /**< 5, 6, 7 or 8; only the low 8 bits count: 264 is 8 (quirk 85) */
    uint32_t stop_bits;    /**< NORV_UART_STOP_BITS_1 or _2: 0 or 1, not the number of bits */
    uint32_t parity;       /**< NORV_UART_PARITY_NONE, _ODD, _EVEN, _MARK or _SPACE */
    uint32_t flow_control; /**< NORV_UART_FLOW_CONTROL_NONE, _SOFTWARE or _HARDWARE */
} norv_uart_settings_t;

/**
 * Opens a serial port and configures it as `norv_uart_config` does.
 *
 * After a failure the port is closed, with its old settings if they had been read.
 *
 * @param path      the port, for instance "/dev/ttyS1"; not a format
 * @param settings  the settings
 * @param uart      receives the handle; what it held is overwritten
 * @retval NORV_STATUS_NO_MEMORY    there is no memory for the handle
 * @retval NORV_STATUS_NOT_FOUND    there is no such port
 * @retval ENOTTY                   the path is not a terminal
 * @retval NORV_STATUS_INVALID_ARG  a setting is not supported
 * @retval errno                    of open(2) with `O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC`, isatty(3),
 *                                  tcgetattr(3) or tcsetattr(3)
 */
NORV_API uint32_t norv_uart_open(const char* path, const norv_uart_settings_t* settings, norv_uart_t** uart);

/**
 * Closes a port: tcsetattr(3) with the settings that the last `norv_uart_config` (or open) found, close(2).
 * What the kernel answers is ignored.
 *
 * After a second `norv_uart_config` these are the settings of the first one, not those from before the port
 * was opened (quirk 83). A descriptor of 0 is neither restored nor closed (quirk 3).
 *
 * @param uart  becomes null; may be null
 *
 * Blocks as long as the driver's close does: some drivers wait until pending output is sent.
 */
NORV_API void norv_uart_close(norv_uart_t** uart);

/**
 * Configures an open port: raw input and output with these settings, CLOCAL and CREAD; no control characters.
 *
 * Reads the current settings (tcgetattr(3)), which closing restores even if this call then fails (quirk 84),
 * checks the new ones, discards received bytes that were not read yet (tcflush(3), TCIFLUSH; a failure is
 * ignored), and sets the port (tcsetattr(3), TCSANOW). Pending output is kept. A driver uses the nearest
 * speed that it can generate, and the call succeeds nevertheless. May be called again at any time.
 *
 * NORV_UART_FLOW_CONTROL_SOFTWARE sets IXON and IXOFF, but the start and stop characters are 0, which
 * disables them (quirk 86): XON and XOFF are received as data and never sent. Use hardware flow control, or
 * set the two characters after opening and after each `norv_uart_config`:
 *
 *     struct termios port;
 *     tcgetattr(norv_uart_get_fd(&uart), &port);
 *     port.c_cc[VSTART] = 0x11;
 *     port.c_cc[VSTOP] = 0x13;
 *     tcsetattr(norv_uart_get_fd(&uart), TCSANOW, &port);
 *
 * @param uart      an open port
 * @param settings  the settings
 * @retval NORV_STATUS_INVALID_ARG  a setting is not supported: the port and its received bytes are unchanged
 * @retval errno                    of tcgetattr(3) or tcsetattr(3)
 */
NORV_API uint32_t norv_uart_config(norv_uart_t** uart, const norv_uart_settings_t* settings);

/**
 * Returns the descriptor, to be polled or added to a loop for `POLLIN` and `POLLOUT`.
 *
 * @param uart  may be null
 * @return the descriptor; -1 if the port is not open
 */
NORV_API int32_t norv_uart_get_fd(norv_uart_t** uart);

/**
 * Sends bytes: write(2).
 *
 * @param uart     an open port
 * @param buffer   the bytes; not checked
 * @param length   in: bytes to send; out: bytes that the driver accepted, after a failure only if `timeout`
 *                 is positive (quirk 9)
 * @param timeout  0: what can be sent at once, with one write; otherwise everything: negative: no limit;
 *                 positive: milliseconds
 * @retval NORV_STATUS_AGAIN    timeout 0: nothing can be sent at once
 * @retval NORV_STATUS_TIMEOUT  positive timeout: not everything was sent in time
 * @retval errno                of poll(2) or write(2)
 *
 * Blocks for up to `timeout`, until the driver has accepted the bytes, which it may still have to send. See
 * `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_uart_send(norv_uart_t** uart, const void* buffer, uint32_t* length, int32_t timeout);

/**
 * Receives bytes: read(2).
 *
 * With timeout 0 on an idle port, the result is that of the driver's read: 0 bytes, or NORV_STATUS_AGAIN.
 *
 * @param uart     an open port
 * @param buffer   receives the bytes; not checked
 * @param length   in: bytes wanted; out: bytes received, after a failure only if `timeout` is positive
 *                 (quirk 9)
 * @param timeout  0: what has arrived, with one read; otherwise waits for all bytes: negative: no limit, not
 *                 even if a USB adapter is unplugged (quirk 8); positive: milliseconds
 * @retval NORV_STATUS_AGAIN    timeout 0: nothing has arrived
 * @retval NORV_STATUS_TIMEOUT  positive timeout: not all bytes arrived; the buffer holds the first `length`
 * @retval errno                of poll(2) or read(2)
 *
 * Blocks for up to `timeout`. See `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout`
 * (norv_file.h).
 */
NORV_API uint32_t norv_uart_recv(norv_uart_t** uart, void* buffer, uint32_t* length, int32_t timeout);

/**
 * Raises or lowers RTS: ioctl TIOCMBIS or TIOCMBIC.
 *
 * @param uart  an open port
 * @param high  non-zero: raise; zero: lower; only the low 8 bits count: 256 lowers (quirk 85)
 * @retval ENOTTY  the port has no modem lines
 * @retval errno   of the ioctl
 */
NORV_API uint32_t norv_uart_set_rts(norv_uart_t** uart, uint32_t high);

/**
 * Raises or lowers DTR; otherwise like `norv_uart_set_rts`.
 *
 * @param uart  an open port
 * @param high  as for `norv_uart_set_rts`
 * @retval errno  as for `norv_uart_set_rts`
 */
NORV_API uint32_t norv_uart_set_dtr(norv_uart_t** uart, uint32_t high);

/**
 * Reads CTS: ioctl TIOCMGET.
 *
 * @param uart  an open port
 * @param high  receives 1 if the line is asserted, else 0
 * @retval ENOTTY  the port has no modem lines
 * @retval errno   of the ioctl
 */
NORV_API uint32_t norv_uart_get_cts(norv_uart_t** uart, uint8_t* high);

/**
 * Reads DSR; otherwise like `norv_uart_get_cts`.
 *
 * @param uart  an open port
 * @param high  receives 1 if the line is asserted, else 0
 * @retval errno  as for `norv_uart_get_cts`
 */
NORV_API uint32_t norv_uart_get_dsr(norv_uart_t** uart, uint8_t* high);

NORV_END_DECLS

#endif
