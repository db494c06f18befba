/**
 * @file norv_uart.h
 * One serial port: line settings, raw transfers with or without a time limit, modem lines.
 *
 * Opening allocates a handle, stores it in the caller's variable and programs the port; every other call
 * takes the address of that variable. Closing puts the settings back that the port had before the last
 * `norv_uart_config` (opening counts as one), and makes the variable null. The descriptor stays
 * non-blocking: waiting is done by the transfers, or by the caller's loop. A handle is used by one thread at
 * a time, except that one thread may send while another receives.
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

/** An open port; private, allocated by `norv_uart_open` and released by `norv_uart_close`. */
typedef struct norv_uart norv_uart_t;

/** The stop bits that `norv_uart_settings_t` knows. */
enum { NORV_UART_STOP_BITS_1 = 0, NORV_UART_STOP_BITS_2 = 1 };

/** The parities that `norv_uart_settings_t` knows; mark and space send a parity bit of constant 1 or 0. */
enum {
    NORV_UART_PARITY_NONE = 0,
    NORV_UART_PARITY_ODD = 1,
    NORV_UART_PARITY_EVEN = 2,
    NORV_UART_PARITY_MARK = 3,
    NORV_UART_PARITY_SPACE = 4
};

/** The flow controls that `norv_uart_settings_t` knows. */
enum {
    NORV_UART_FLOW_CONTROL_NONE = 0,
    NORV_UART_FLOW_CONTROL_SOFTWARE = 1, /**< XON/XOFF; without effect as it is, see norv_uart_config */
    NORV_UART_FLOW_CONTROL_HARDWARE = 2  /**< RTS/CTS */
};

/** How a port is programmed; the caller's, only read. */
typedef struct {
    /**
     * Bit/s, one of: 0, 50, 75, 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400,
     * 57600, 115200, 230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000,
     * 3000000, 3500000, 4000000. Nothing is rounded to a neighbour; 134 stands for 134.5, and 0 hangs up.
     */
    uint32_t baud;
    uint32_t data_bits;    /**< 5, 6, 7 or 8; only the low 8 bits count: 264 is 8 */
    uint32_t stop_bits;    /**< NORV_UART_STOP_BITS_1 or _2: 0 or 1, not the number of bits */
    uint32_t parity;       /**< NORV_UART_PARITY_NONE, _ODD, _EVEN, _MARK or _SPACE */
    uint32_t flow_control; /**< NORV_UART_FLOW_CONTROL_NONE, _SOFTWARE or _HARDWARE */
} norv_uart_settings_t;

/**
 * Opens a serial port and programs it as `norv_uart_config` does.
 *
 * @param path      the port, for instance "/dev/ttyS1"; cut after 255 characters; not null
 * @param settings  how to program it; not null
 * @param uart      receives the handle; not null; what it held is overwritten; null after any failure, with
 *                  the port closed, and with its old settings if they had been read already
 * @return 0; NORV_STATUS_INVALID_ARG for an unsupported setting or a null pointer; NORV_STATUS_NO_MEMORY;
 *         the errno status of open(2) with `O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC`, of isatty(3) (that
 *         of ENOTTY: no terminal), tcgetattr(3) or tcsetattr(3)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uart_open(const char* path, const norv_uart_settings_t* settings, norv_uart_t** uart);

/**
 * Closes a port: tcsetattr(3) with the settings that the last `norv_uart_config` (or open) found, close(2).
 *
 * After a second `norv_uart_config` these are the settings that the first one had put in place, not those
 * from before the port was opened. Output that is still on its way is the driver's business: some drivers
 * wait for it in close(2). A port that got the descriptor 0, in a program that had closed its standard
 * input, counts as not open: it is neither restored nor closed.
 *
 * @param uart  its handle is released and it becomes null; may be null or hold null, which does nothing
 *
 * Blocks as long as the driver's close does. Never fails; what the kernel says is ignored.
 */
NORV_API void norv_uart_close(norv_uart_t** uart);

/**
 * Programs an open port: raw input and output with these settings, CLOCAL and CREAD; no control characters.
 *
 * Reads the current settings (tcgetattr(3)), which a close will put back, checks the new ones, discards
 * received bytes that were not read yet (tcflush(3), TCIFLUSH), and programs the port (tcsetattr(3),
 * TCSANOW). Output that is still on its way is kept. A driver takes the nearest speed that it can make, and
 * the call succeeds all the same. May be called again at any time.
 *
 * NORV_UART_FLOW_CONTROL_SOFTWARE sets IXON and IXOFF, but the start and stop characters are 0 like all
 * control characters, which disables them: XON and XOFF are received as data and never sent. Use hardware
 * flow control, or set the two characters after opening and after every `norv_uart_config`:
 *
 *     struct termios port;
 *     tcgetattr(norv_uart_get_fd(&uart), &port);
 *     port.c_cc[VSTART] = 0x11;
 *     port.c_cc[VSTOP] = 0x13;
 *     tcsetattr(norv_uart_get_fd(&uart), TCSANOW, &port);
 *
 * @param uart      not null, holds an open port
 * @param settings  how to program it; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a setting is not supported: the port keeps its settings and its
 *         received bytes, but a close will put back what it has now; NORV_STATUS_INVALID_ARG for a null
 *         pointer or handle, with nothing done; the errno status of tcgetattr(3) or tcsetattr(3)
 *
 * Does not block.
 */
NORV_API uint32_t norv_uart_config(norv_uart_t** uart, const norv_uart_settings_t* settings);

/**
 * Tells the descriptor, to be polled or added to a loop for `POLLIN` and `POLLOUT`.
 *
 * @param uart  not null
 * @return the descriptor, which stays the handle's; -1 when `uart` holds no open port
 */
NORV_API int32_t norv_uart_get_fd(norv_uart_t** uart);

/**
 * Sends bytes: write(2).
 *
 * @param uart     not null, holds an open port
 * @param buffer   the bytes; the caller's, only read
 * @param length   in: bytes to send; out: bytes that the driver took; as it was when a send without waiting
 *                 or without limit fails; not null
 * @param timeout  0: what can be sent at once, with one write; below 0: everything, without limit; above 0:
 *                 milliseconds for everything
 * @return 0; NORV_STATUS_AGAIN when nothing could be sent at once (time-out 0 only); NORV_STATUS_TIMEOUT
 *         when the time was up before everything was sent (time-out above 0 only);
 *         NORV_STATUS_INVALID_ARG for a null handle or length; the errno status of poll(2) or write(2)
 *
 * Blocks as `timeout` says, until the driver has taken the bytes; they may still be on their way. See
 * `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_uart_send(norv_uart_t** uart, const void* buffer, uint32_t* length, int32_t timeout);

/**
 * Receives bytes: read(2).
 *
 * @param uart     not null, holds an open port
 * @param buffer   receives the bytes; the caller's
 * @param length   in: bytes wanted; out: bytes received; as it was when a receive without waiting or without
 *                 limit fails; not null
 * @param timeout  0: what has arrived, with one read; below 0: waits for all bytes, without limit; above 0:
 *                 waits for all bytes, so many milliseconds
 * @return 0; with time-out 0 on an idle port what the driver's read says: success with a length of 0, or
 *         NORV_STATUS_AGAIN; NORV_STATUS_TIMEOUT when the time was up before all bytes came (time-out above
 *         0 only): those that came are in the buffer; NORV_STATUS_INVALID_ARG for a null handle or length;
 *         the errno status of poll(2) or read(2)
 *
 * Blocks as `timeout` says. See `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout`
 * (norv_file.h).
 */
NORV_API uint32_t norv_uart_recv(norv_uart_t** uart, void* buffer, uint32_t* length, int32_t timeout);

/**
 * Raises or lowers RTS: ioctl TIOCMBIS or TIOCMBIC.
 *
 * @param uart  not null, holds an open port
 * @param high  non-zero: raise; zero: lower; only the low 8 bits count: 256 lowers
 * @return 0; NORV_STATUS_INVALID_ARG for a null handle; the errno status of the ioctl, for instance that of
 *         ENOTTY when the port has no modem lines
 *
 * Does not block.
 */
NORV_API uint32_t norv_uart_set_rts(norv_uart_t** uart, uint32_t high);

/**
 * Raises or lowers DTR; otherwise like `norv_uart_set_rts`.
 *
 * @param uart  not null, holds an open port
 * @param high  non-zero: raise; zero: lower; only the low 8 bits count: 256 lowers
 * @return as `norv_uart_set_rts`
 *
 * Does not block.
 */
NORV_API uint32_t norv_uart_set_dtr(norv_uart_t** uart, uint32_t high);

/**
 * Samples CTS: ioctl TIOCMGET.
 *
 * @param uart  not null, holds an open port
 * @param high  receives 1 when the line is asserted, else 0; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG for a null handle or `high`; the errno status of the ioctl, for instance
 *         that of ENOTTY when the port has no modem lines
 *
 * Does not block.
 */
NORV_API uint32_t norv_uart_get_cts(norv_uart_t** uart, uint8_t* high);

/**
 * Samples DSR; otherwise like `norv_uart_get_cts`.
 *
 * @param uart  not null, holds an open port
 * @param high  receives 1 when the line is asserted, else 0; untouched on failure; not null
 * @return as `norv_uart_get_cts`
 *
 * Does not block.
 */
NORV_API uint32_t norv_uart_get_dsr(norv_uart_t** uart, uint8_t* high);

NORV_END_DECLS

#endif
