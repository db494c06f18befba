// SPDX-License-Identifier: MIT
// Registers and interrupts of a UIO device beside the bare volatile access and the bare system calls. Needs the
// UIO device of the virtual board.
#include <poll.h>
#include <unistd.h>
#include <norv/uio.hpp>

#include <cstdint>
#include <cstdio>

#include "support/expect.hpp"
#include "support/registers.hpp"
#include "support/rows.hpp"

namespace {

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_uio");
}

void bare_interrupt(int descriptor) {
    uint32_t word = 1;
    bench::expect(write(descriptor, &word, sizeof word) == sizeof word, "write");
    pollfd request = {descriptor, POLLIN, 0};
    bench::expect(poll(&request, 1, 1000) == 1, "poll");
    bench::expect(read(descriptor, &word, sizeof word) == sizeof word, "read");
}

void add_interrupt(norv_uio_t** device) {
    const int descriptor = norv_uio_get_fd(device);
    bench::add_pair(
        {.name = "UIO interrupt: enable, wait", .target = 1.05, .wall_clock = true},
        [=] { bare_interrupt(descriptor); },
        [=] {
            succeed(norv_uio_enable_irq(device));
            succeed(norv_uio_wait_irq(device, 1000));
        });
}

// More than all runs take.
void raise_interrupts() {
    FILE* raise = fopen("/sys/kernel/debug/norv_board_uio/raise", "w");
    bench::expect(raise != nullptr && fputs("1000000", raise) >= 0 && fclose(raise) == 0, "raise");
}

}  // namespace

int main(int argc, char** argv) {
    const norv::uio device = norv::uio::open_by_name("norv-board-regs").value();
    norv_uio_t* handle = device.get();
    raise_interrupts();
    bench::add_register_rows("norv_uio", &handle, device.map(), norv_uio_read_32, norv_uio_write_32);
    add_interrupt(&handle);
    return bench::run_rows(argc, argv);
}
