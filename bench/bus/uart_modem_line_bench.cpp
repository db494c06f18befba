// SPDX-License-Identifier: MIT
// The modem-line calls of a serial port beside the bare ioctl, on /dev/ttyS3 of the virtual board: a
// pseudo-terminal has no such lines.
#include <sys/ioctl.h>
#include <norv/uart.hpp>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void bare_set_rts(int descriptor) {
    int lines = TIOCM_RTS;
    bench::expect(ioctl(descriptor, TIOCMBIS, &lines) == 0, "TIOCMBIS");
}

void bare_get_cts(int descriptor) {
    int lines = 0;
    bench::expect(ioctl(descriptor, TIOCMGET, &lines) == 0, "TIOCMGET");
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_uart");
}

void add_rows(norv_uart_t** port) {
    const int descriptor = norv_uart_get_fd(port);
    bench::add_pair(
        {.name = "norv_uart_set_rts", .target = 1.05}, [=] { bare_set_rts(descriptor); },
        [=] { succeed(norv_uart_set_rts(port, 1)); });
    bench::add_pair(
        {.name = "norv_uart_get_cts", .target = 1.05}, [=] { bare_get_cts(descriptor); },
        [=] {
            uint8_t level = 0;
            succeed(norv_uart_get_cts(port, &level));
        });
}

}  // namespace

int main(int argc, char** argv) {
    const norv::uart port = norv::uart::open("/dev/ttyS3", {.baud = 115200}).value();
    norv_uart_t* handle = port.get();
    add_rows(&handle);
    return bench::run_rows(argc, argv);
}
