// SPDX-License-Identifier: MIT
// Serial ports through termios.
#include "norv_uart.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstddef>

#include "bus/transfer.hpp"
#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_file.h"

struct norv_uart {
    int32_t descriptor;
    termios saved;   // the settings that the last configuration found
    bool has_saved;  // an open that fails early must not restore settings that were never read
};

NORV_OFFSETS(norv_uart, 8 + sizeof(termios), descriptor, 0, saved, 4);
NORV_OFFSETS(norv_uart_settings_t, 20, baud, 0, data_bits, 4, stop_bits, 8, parity, 12, flow_control, 16);

namespace {

struct line_speed {
    uint32_t baud;
    speed_t code;
};

constexpr line_speed line_speeds[] = {
    {0, B0},
    {50, B50},
    {75, B75},
    {110, B110},
    {134, B134},
    {150, B150},
    {200, B200},
    {300, B300},
    {600, B600},
    {1200, B1200},
    {1800, B1800},
    {2400, B2400},
    {4800, B4800},
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
    {230400, B230400},
    {460800, B460800},
    {500000, B500000},
    {576000, B576000},
    {921600, B921600},
    {1000000, B1000000},
    {1152000, B1152000},
    {1500000, B1500000},
    {2000000, B2000000},
    {2500000, B2500000},
    {3000000, B3000000},
    {3500000, B3500000},
    {4000000, B4000000},
};

constexpr tcflag_t data_bits_flags[] = {CS5, CS6, CS7, CS8};
constexpr uint32_t fewest_data_bits = 5;

constexpr tcflag_t stop_bits_flags[] = {0, CSTOPB};

constexpr tcflag_t parity_flags[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};

struct flow_control_flags {
    tcflag_t input;
    tcflag_t control;
};

constexpr flow_control_flags flow_controls[] = {{0, 0}, {IXON | IXOFF, 0}, {0, CRTSCTS}};

const line_speed* find_speed(uint32_t baud) {
    for (const line_speed& candidate : line_speeds) {
        if (candidate.baud == baud) {
            return &candidate;
        }
    }
    return nullptr;
}

// The entry of a table; null if it has no entry with this index.
template <typename entry, size_t size>
const entry* find(const entry (&table)[size], uint32_t index) {
    return index < size ? &table[index] : nullptr;
}

// Builds the port's settings; false if one is not supported. All else is zero, so the port is raw: no line
// editing, no translation, no control characters. quirk 86: not even those of software flow control.
bool build_raw(const norv_uart_settings_t& wanted, termios& built) {
    const line_speed* speed = find_speed(wanted.baud);
    // quirk 85: callers use the upper bits for themselves.
    const tcflag_t* data_bits = find(data_bits_flags, (wanted.data_bits & 0xFFU) - fewest_data_bits);
    const tcflag_t* stop_bits = find(stop_bits_flags, wanted.stop_bits);
    const tcflag_t* parity = find(parity_flags, wanted.parity);
    const flow_control_flags* flow_control = find(flow_controls, wanted.flow_control);
    if (speed == nullptr || data_bits == nullptr || stop_bits == nullptr || parity == nullptr ||
        flow_control == nullptr) {
        return false;
    }
    built = {};
    built.c_iflag = flow_control->input;
    built.c_cflag = CLOCAL | CREAD | *data_bits | *stop_bits | *parity | flow_control->control;
    cfsetispeed(&built, speed->code);
    cfsetospeed(&built, speed->code);
    return true;
}

// Saves the port's settings for the close. quirk 83, quirk 84: each configuration does, even one that then
// fails.
uint32_t save_settings(norv_uart& port) {
    const int result = tcgetattr(port.descriptor, &port.saved);
    port.has_saved = port.has_saved || result == 0;
    return norv::status_of(result);
}

void restore_settings(const norv_uart& port) {
    // quirk 3: 0 counts as not open, here as in `close_descriptor`.
    if (port.descriptor > 0 && port.has_saved) {
        tcsetattr(port.descriptor, TCSANOW, &port.saved);
    }
}

uint32_t open_port(norv_uart_t** uart, const char* path, const norv_uart_settings_t* settings) {
    int32_t& descriptor = (*uart)->descriptor;
    NORV_TRY(norv_open_device(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, &descriptor, "%s", path));
    if (isatty(descriptor) == 0) {
        NORV_TRY(norv::errno_status());
    }
    return norv_uart_config(uart, settings);
}

uint32_t transfer(norv_uart_t** uart, void* buffer, uint32_t* length, int32_t timeout, bool write) {
    const norv_uart_t* port = norv::record_of(uart);
    return port == nullptr ? NORV_STATUS_INVALID_ARG
                           : norv::transfer_bytes(port->descriptor, buffer, length, timeout, write);
}

uint32_t set_modem_line(norv_uart_t** uart, int line, uint32_t high) {
    const norv_uart_t* port = norv::record_of(uart);
    if (port == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const bool raise = (high & 0xFFU) != 0;  // quirk 85
    return norv::device_ioctl(port->descriptor, raise ? TIOCMBIS : TIOCMBIC, &line);
}

uint32_t get_modem_line(norv_uart_t** uart, int line, uint8_t* high) {
    const norv_uart_t* port = norv::record_of(uart);
    if (port == nullptr || high == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    int lines = 0;
    NORV_TRY(norv::device_ioctl(port->descriptor, TIOCMGET, &lines));
    *high = (lines & line) != 0 ? 1 : 0;
    return NORV_STATUS_OK;
}

}  // namespace

uint32_t norv_uart_open(const char* path, const norv_uart_settings_t* settings, norv_uart_t** uart) {
    if (uart == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *uart = nullptr;
    if (path == nullptr || settings == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(norv::allocate_record(*uart));
    (*uart)->descriptor = -1;
    const uint32_t status = open_port(uart, path, settings);
    if (status != NORV_STATUS_OK) {
        norv_uart_close(uart);
    }
    return status;
}

void norv_uart_close(norv_uart_t** uart) {
    norv_uart_t* port = norv::record_of(uart);
    if (port == nullptr) {
        return;
    }
    restore_settings(*port);
    norv::close_descriptor(port->descriptor);
    norv_free(port);
    *uart = nullptr;
}

uint32_t norv_uart_config(norv_uart_t** uart, const norv_uart_settings_t* settings) {
    norv_uart_t* port = norv::record_of(uart);
    if (port == nullptr || settings == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(save_settings(*port));
    termios wanted;
    if (!build_raw(*settings, wanted)) {
        return NORV_STATUS_INVALID_ARG;
    }
    // What was received with the old settings is garbage with the new ones. A port that cannot discard it is
    // configured nevertheless.
    tcflush(port->descriptor, TCIFLUSH);
    return norv::status_of(tcsetattr(port->descriptor, TCSANOW, &wanted));
}

int32_t norv_uart_get_fd(norv_uart_t** uart) {
    const norv_uart_t* port = norv::record_of(uart);
    return port == nullptr ? -1 : port->descriptor;
}

uint32_t norv_uart_send(norv_uart_t** uart, const void* buffer, uint32_t* length, int32_t timeout) {
    return transfer(uart, const_cast<void*>(buffer), length, timeout, true);
}

uint32_t norv_uart_recv(norv_uart_t** uart, void* buffer, uint32_t* length, int32_t timeout) {
    return transfer(uart, buffer, length, timeout, false);
}

uint32_t norv_uart_set_rts(norv_uart_t** uart, uint32_t high) {
    return set_modem_line(uart, TIOCM_RTS, high);
}

uint32_t norv_uart_set_dtr(norv_uart_t** uart, uint32_t high) {
    return set_modem_line(uart, TIOCM_DTR, high);
}

uint32_t norv_uart_get_cts(norv_uart_t** uart, uint8_t* high) {
    return get_modem_line(uart, TIOCM_CTS, high);
}

uint32_t norv_uart_get_dsr(norv_uart_t** uart, uint8_t* high) {
    return get_modem_line(uart, TIOCM_DSR, high);
}
