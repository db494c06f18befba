// SPDX-License-Identifier: MIT
// Serial-port calls beside the bare system calls they must make: transfers through a pseudo-terminal,
// everything else on the 16550 /dev/ttyS3 of the virtual board.
#include <fcntl.h>
#include <norv_uart.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

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

// A pseudo-terminal: the port, and the end at which the bench takes and gives the bytes.
class pseudo_terminal {
  public:
    pseudo_terminal() {
        char path[64];
        bench::expect(
            grantpt(far_end_) == 0 && unlockpt(far_end_) == 0 && ptsname_r(far_end_, path, sizeof path) == 0,
            "posix_openpt");
        succeed(norv_uart_open(path, &settings, &port_));
    }
    ~pseudo_terminal() {
        norv_uart_close(&port_);
        close(far_end_);
    }
    pseudo_terminal(const pseudo_terminal&) = delete;
    pseudo_terminal& operator=(const pseudo_terminal&) = delete;

    norv_uart_t** port() { return &port_; }
    int descriptor() { return norv_uart_get_fd(&port_); }

    // The far end sends back what it gets.
    void echo() const {
        wait_for(far_end_, POLLIN);
        bench::expect(read(far_end_, buffer, size) == size, "read");
        bench::expect(write(far_end_, buffer, size) == size, "write");
    }

  private:
    int far_end_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    norv_uart_t* port_ = nullptr;
};

void bare_exchange(const pseudo_terminal& terminal, int descriptor) {
    wait_for(descriptor, POLLOUT);
    bench::expect(write(descriptor, buffer, size) == size, "write");
    terminal.echo();
    wait_for(descriptor, POLLIN);
    bench::expect(read(descriptor, buffer, size) == size, "read");
}

void exchange(const pseudo_terminal& terminal, norv_uart_t** port) {
    uint32_t length = size;
    succeed(norv_uart_send(port, buffer, &length, limit));
    terminal.echo();
    succeed(norv_uart_recv(port, buffer, &length, limit));
}

// The kernel's worker that carries the bytes over answers ten times faster in the first tenth of a second
// than afterwards, which the contender that comes first would have to itself.
void settle(pseudo_terminal& terminal) {
    for (int round = 0; round < 5000; ++round) {
        bare_exchange(terminal, terminal.descriptor());
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

void add_rows(pseudo_terminal& terminal) {
    const int descriptor = terminal.descriptor();
    norv_uart_t** port = terminal.port();
    bench::add_pair(
        {.name = "norv_uart_send and recv", .target = 1.05},
        [=, &terminal] { bare_exchange(terminal, descriptor); },
        [=, &terminal] { exchange(terminal, port); });
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
    pseudo_terminal terminal;
    settle(terminal);
    add_rows(terminal);
    return bench::run_rows(argc, argv);
}
