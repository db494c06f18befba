// SPDX-License-Identifier: GPL-2.0
//
// Two serial ports of the virtual board, /dev/ttyNORV0 and /dev/ttyNORV1, with a null-modem cable between
// them that has all its wires, unlike the one between the emulated 16550s:
//
//   TXD to RXD, RTS to CTS, DTR to DSR and DCD, both ways
//
// Bytes take the time that the speed gives them. They arrive as they were sent where both ports have the same
// speed, word length and parity; otherwise they arrive as other bytes, each counted as a framing error, or,
// where only the parity differs, as a parity error. A port that is not open receives nothing.

#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/serial.h>
#include <linux/serial_core.h>
#include <linux/timer.h>
#include <linux/tty_flip.h>

#include "kernel_versions.h"

#define PORT_COUNT 2
#define MOST_BYTES 64  // in one tick of the kernel

struct line {
    struct uart_port port;
    struct timer_list timer;
    struct line* other;
    bool is_open;
    bool is_sending;
    unsigned int mctrl;   // the lines that the port drives
    unsigned int inputs;  // CTS, DSR and DCD as they were seen last
    unsigned int baud;
    unsigned int cflag;
    unsigned int credit;  // the bits that the speed has left time for, times HZ
};

static struct platform_device* parent;
static struct line lines[PORT_COUNT];

static struct line* line_of(struct uart_port* port) {
    return container_of(port, struct line, port);
}

static unsigned int inputs_of(const struct line* line) {
    unsigned int driven = READ_ONCE(line->other->mctrl);

    return (driven & TIOCM_RTS ? TIOCM_CTS : 0) | (driven & TIOCM_DTR ? TIOCM_DSR | TIOCM_CAR : 0);
}

// ---- from one end to the other

static unsigned int data_bits_of(unsigned int cflag) {
    return 5 + ((cflag & CSIZE) == CS6) + 2 * ((cflag & CSIZE) == CS7) + 3 * ((cflag & CSIZE) == CS8);
}

static unsigned int bits_of_frame(const struct line* line) {
    return 1 + data_bits_of(line->cflag) + !!(line->cflag & PARENB) + (line->cflag & CSTOPB ? 2 : 1);
}

static void receive_byte(struct line* line, const struct line* sender, u8 byte) {
    const unsigned int parity = PARENB | PARODD | CMSPAR;
    char flag = TTY_NORMAL;

    line->port.icount.rx++;
    if (line->baud != sender->baud || (line->cflag & CSIZE) != (sender->cflag & CSIZE) ||
        (line->cflag & PARENB) != (sender->cflag & PARENB)) {
        line->port.icount.frame++;
        flag = TTY_FRAME;
        byte = ~byte;
    } else if ((line->cflag & parity) != (sender->cflag & parity)) {
        line->port.icount.parity++;
        flag = TTY_PARITY;
    }
    // The terminal gets a bad byte reported only when it has asked for the check, as with other drivers.
    if (!(line->port.read_status_mask & INPCK)) {
        flag = TTY_NORMAL;
    }
    byte &= (1U << data_bits_of(line->cflag)) - 1;
    if (!tty_insert_flip_char(&line->port.state->port, byte, flag)) {
        line->port.icount.buf_overrun++;
    }
}

static void receive_bytes(struct line* line, const struct line* sender, const u8* bytes, unsigned int count) {
    unsigned int index;

    if (!READ_ONCE(line->is_open) || count == 0) {
        return;
    }
    for (index = 0; index < count; index++) {
        receive_byte(line, sender, bytes[index]);
    }
    tty_flip_buffer_push(&line->port.state->port);
}

// Returns how many bytes the speed has had time for since the tick before.
static unsigned int take_bytes(struct line* line, u8* bytes) {
    unsigned int frame = HZ * bits_of_frame(line);
    unsigned int room, count = 0;

    line->credit += line->baud;
    room = min_t(unsigned int, line->credit / frame, MOST_BYTES);
    if (room > 0 && line->port.x_char) {
        bytes[count++] = line->port.x_char;
        line->port.x_char = 0;
        line->port.icount.tx++;
    }
    if (!uart_tx_stopped(&line->port)) {
        count += board_uart_take(&line->port, bytes + count, room - count);
    }
    line->credit = count < room ? 0 : line->credit - count * frame;
    return count;
}

static void see_inputs(struct line* line) {
    unsigned int inputs = inputs_of(line);
    unsigned int changed = inputs ^ line->inputs;

    line->inputs = inputs;
    if (changed & TIOCM_CTS) {
        uart_handle_cts_change(&line->port, !!(inputs & TIOCM_CTS));
    }
    if (changed & TIOCM_DSR) {
        line->port.icount.dsr++;
    }
    if (changed & TIOCM_CAR) {
        uart_handle_dcd_change(&line->port, !!(inputs & TIOCM_CAR));
    }
    if (changed) {
        wake_up_interruptible(&line->port.state->port.delta_msr_wait);
    }
}

static void tick(struct timer_list* timer) {
    struct line* line = container_of(timer, struct line, timer);
    u8 bytes[MOST_BYTES];
    unsigned int count = 0;
    unsigned long flags;

    spin_lock_irqsave(&line->port.lock, flags);
    if (line->is_open) {
        see_inputs(line);
        if (line->is_sending) {
            count = take_bytes(line, bytes);
            line->is_sending = count > 0 || line->port.x_char ||
                               (!uart_tx_stopped(&line->port) && board_uart_has_bytes(&line->port));
            uart_write_wakeup(&line->port);
        }
        if (line->is_sending) {
            mod_timer(&line->timer, jiffies + 1);
        }
    }
    spin_unlock_irqrestore(&line->port.lock, flags);
    receive_bytes(line->other, line, bytes, count);
}

// ---- what the serial core asks for

static unsigned int line_tx_empty(struct uart_port* port) {
    return line_of(port)->is_sending ? 0 : TIOCSER_TEMT;
}

static void line_set_mctrl(struct uart_port* port, unsigned int mctrl) {
    struct line* line = line_of(port);

    WRITE_ONCE(line->mctrl, mctrl);
    if (READ_ONCE(line->other->is_open)) {
        mod_timer(&line->other->timer, jiffies);
    }
}

static unsigned int line_get_mctrl(struct uart_port* port) {
    return inputs_of(line_of(port));
}

static void line_stop_tx(struct uart_port* port) {
    line_of(port)->is_sending = false;
}

static void line_start_tx(struct uart_port* port) {
    struct line* line = line_of(port);

    line->is_sending = true;
    mod_timer(&line->timer, jiffies + 1);
}

static void line_stop_rx(struct uart_port* port) {}

static void line_break(struct uart_port* port, int on) {
    struct line* other = line_of(port)->other;

    if (on && READ_ONCE(other->is_open)) {
        other->port.icount.brk++;
        tty_insert_flip_char(&other->port.state->port, 0, TTY_BREAK);
        tty_flip_buffer_push(&other->port.state->port);
    }
}

static int line_startup(struct uart_port* port) {
    struct line* line = line_of(port);

    line->credit = 0;
    line->is_sending = false;
    line->inputs = inputs_of(line);
    WRITE_ONCE(line->is_open, true);
    return 0;
}

static void line_shutdown(struct uart_port* port) {
    struct line* line = line_of(port);

    WRITE_ONCE(line->is_open, false);
    board_timer_delete_sync(&line->timer);
}

static void line_set_termios(struct uart_port* port, struct ktermios* termios, board_old_termios* old) {
    struct line* line = line_of(port);
    unsigned long flags;
    unsigned int baud = uart_get_baud_rate(port, termios, old, 50, 4000000);

    spin_lock_irqsave(&port->lock, flags);
    line->baud = baud;
    line->cflag = termios->c_cflag;
    port->read_status_mask = termios->c_iflag & INPCK;
    uart_update_timeout(port, termios->c_cflag, baud);
    spin_unlock_irqrestore(&port->lock, flags);
}

static const char* line_type(struct uart_port* port) {
    return "norv-board-uart";
}

static void line_release(struct uart_port* port) {}

static int line_request(struct uart_port* port) {
    return 0;
}

static void line_configure(struct uart_port* port, int flags) {}

static int line_verify(struct uart_port* port, struct serial_struct* wanted) {
    return -EINVAL;
}

static const struct uart_ops operations = {
    .tx_empty = line_tx_empty,
    .set_mctrl = line_set_mctrl,
    .get_mctrl = line_get_mctrl,
    .stop_tx = line_stop_tx,
    .start_tx = line_start_tx,
    .stop_rx = line_stop_rx,
    .break_ctl = line_break,
    .startup = line_startup,
    .shutdown = line_shutdown,
    .set_termios = line_set_termios,
    .type = line_type,
    .release_port = line_release,
    .request_port = line_request,
    .config_port = line_configure,
    .verify_port = line_verify,
};

static struct uart_driver driver = {
    .owner = THIS_MODULE,
    .driver_name = "norv_board_uart",
    .dev_name = "ttyNORV",
    .nr = PORT_COUNT,
};

// ---- module

static int add_line(int index) {
    struct line* line = &lines[index];

    line->other = &lines[PORT_COUNT - 1 - index];
    line->port.dev = &parent->dev;
    line->port.line = index;
    line->port.ops = &operations;
    line->port.type = PORT_16550A;  // any that is not unknown
    line->port.iotype = UPIO_MEM;
    line->port.mapbase = index + 1;  // not used: there are no registers
    line->port.fifosize = MOST_BYTES;
    line->port.uartclk = 16 * 4000000;
    spin_lock_init(&line->port.lock);
    timer_setup(&line->timer, tick, 0);
    return uart_add_one_port(&driver, &line->port);
}

static void remove_lines(int count) {
    int index;

    while (count-- > 0) {
        uart_remove_one_port(&driver, &lines[count].port);
    }
    for (index = 0; index < PORT_COUNT && lines[index].other; index++) {
        board_timer_delete_sync(&lines[index].timer);
    }
    uart_unregister_driver(&driver);
    platform_device_unregister(parent);
}

static int __init board_uart_init(void) {
    int added = 0;
    int error;

    parent = platform_device_register_simple("norv-board-uart", PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(parent)) {
        return PTR_ERR(parent);
    }
    error = uart_register_driver(&driver);
    if (error) {
        platform_device_unregister(parent);
        return error;
    }
    while (added < PORT_COUNT && !error) {
        error = add_line(added);
        added += error ? 0 : 1;
    }
    if (error) {
        remove_lines(added);
    }
    return error;
}

static void __exit board_uart_exit(void) {
    remove_lines(PORT_COUNT);
}

module_init(board_uart_init);
module_exit(board_uart_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Serial ports of the virtual board, with all wires between them");
