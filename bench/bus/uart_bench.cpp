// SPDX-License-Identifier: MIT
// Serial-port calls beside the bare system calls they must make: transfers through a pseudo-terminal,
// everything else on the 16550 /dev/ttyS3 of the virtual board.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <norv/file.hpp>
#include <norv/uart.hpp>

#include <cstdint>
#include <cstdlib>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr norv_uart_settings_t settings = {
    .baud = 115200, .data_bits = 8, .stop_bits = 0, .parity = 0, .flow_control = 0};
constexpr uint32_t size = 64;
constexpr int limit = 1000;
char buffer[size];

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_uart");
}

void wait_for(int descriptor, int16_t events) {
    pollfd request = {descriptor, events, 0};
    bench::expect(poll(&request, 1, limit) == 1, "poll");
}

// The port of a pseudo-terminal, at whose far end the bench takes and gives the bytes.
norv::uart open_port(int far_end) {
    char path[64];
    bench::expect(
        grantpt(far_end) == 0 && unlockpt(far_end) == 0 && ptsname_r(far_end, path, sizeof path) == 0,
        "posix_openpt");
    return norv::uart::open(path, {.baud = settings.baud}).value();
}

// The far end sends back what it gets.
void echo(int far_end) {
    wait_for(far_end, POLLIN);
    bench::expect(read(far_end, buffer, size) == size, "read");
    bench::expect(write(far_end, buffer, size) == size, "write");
}

void bare_exchange(int far_end, int descriptor) {
    wait_for(descriptor, POLLOUT);
    bench::expect(write(descriptor, buffer, size) == size, "write");
    echo(far_end);
    wait_for(descriptor, POLLIN);
    bench::expect(read(descriptor, buffer, size) == size, "read");
}

void exchange(int far_end, norv_uart_t** port) {
    uint32_t length = size;
    succeed(norv_uart_send(port, buffer, &length, limit));
    echo(far_end);
    succeed(norv_uart_recv(port, buffer, &length, limit));
}

// The kernel's worker that carries the bytes over answers ten times faster in the first tenth of a second
// than afterwards, which the contender that comes first would have to itself.
void settle(int far_end, int descriptor) {
    for (int round = 0; round < 5000; ++round) {
        bare_exchange(far_end, descriptor);
    }
}

void bare_config(int descriptor) {
    termios found;
    termios wanted = {};
    wanted.c_cflag = CLOCAL | CREAD | CS8;
    cfsetspeed(&wanted, B115200);
    bench::expect(tcgetattr(descriptor, &found) == 0, "tcgetattr");
    tcflush(descriptor, TCIFLUSH);
    bench::expect(tcsetattr(descriptor, TCSANOW, &wanted) == 0, "tcsetattr");
}

void add_rows(int far_end, norv_uart_t** port) {
    const int descriptor = norv_uart_get_fd(port);
    bench::add_pair(
        {.name = "norv_uart_send and recv", .target = 1.05}, [=] { bare_exchange(far_end, descriptor); },
        [=] { exchange(far_end, port); });
    bench::add_pair(
        {.name = "norv_uart_recv, idle", .target = 1.05},
        [=] { bench::expect(read(descriptor, buffer, size) == 0, "read"); },
        [=] {
            uint32_t length = size;
            succeed(norv_uart_recv(port, buffer, &length, 0));
        });
    bench::add_pair(
        {.name = "norv_uart_config", .target = 1.05}, [=] { bare_config(descriptor); },
        [=] { succeed(norv_uart_config(port, &settings)); });
}

}  // namespace

int main(int argc, char** argv) {
    const norv::file far_end = norv::file::adopt(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)).value();
    const norv::uart port = open_port(far_end.descriptor());
    norv_uart_t* handle = port.get();
    settle(far_end.descriptor(), port.descriptor());
    add_rows(far_end.descriptor(), &handle);
    return bench::run_rows(argc, argv);
}
