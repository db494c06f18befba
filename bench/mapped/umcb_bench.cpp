// SPDX-License-Identifier: MIT
// Registers and interrupt sources of UMCB devices beside the bare volatile access and the bare system calls.
// Needs the UMCB device of the virtual board.
#include <poll.h>
#include <sys/ioctl.h>
#include <norv/umcb.hpp>

#include <cstdint>
#include <cstdio>

#include "support/expect.hpp"
#include "support/registers.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t source_number = 1;
constexpr uint32_t quiet_number = 2;  // never interrupts

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_umcb");
}

void bare_interrupt(int source) {
    pollfd request = {source, POLLPRI, 0};
    bench::expect(poll(&request, 1, 1000) == 1, "poll");
    bench::expect(ioctl(source, _IO('r', 2)) == 0, "ioctl");
}

void add_interrupt(int32_t source) {
    bench::add_pair(
        {.name = "UMCB interrupt: wait, clear", .target = 1.05, .wall_clock = true},
        [=] { bare_interrupt(source); }, [=] { succeed(norv_umcb_irq_wait(source, 1000)); });
}

void add_clear(int32_t source) {
    bench::add_pair(
        {.name = "UMCB source: clear event", .target = 1.05},
        [=] { bench::expect(ioctl(source, _IO('r', 2)) == 0, "ioctl"); },
        [=] { succeed(norv_umcb_irq_clear_event(source)); });
}

// More than all runs take.
void raise_interrupts() {
    FILE* raise = fopen("/sys/kernel/debug/norv_board_umcb/source1/raise", "w");
    bench::expect(raise != nullptr && fputs("1000000", raise) >= 0 && fclose(raise) == 0, "raise");
}

norv::umcb_irq open_source(norv::umcb& device, uint32_t number) {
    norv::umcb_irq source = device.register_irq(number).value();
    source.enable().value();
    return source;
}

}  // namespace

int main(int argc, char** argv) {
    norv::umcb device = norv::umcb::open(0).value();
    norv_umcb_t* handle = device.get();
    device.enable_irqs().value();
    const norv::umcb_irq source = open_source(device, source_number);
    const norv::umcb_irq quiet_source = open_source(device, quiet_number);
    raise_interrupts();
    bench::add_register_rows("norv_umcb", &handle, device.map(), norv_umcb_read_32, norv_umcb_write_32);
    add_interrupt(source.descriptor());
    add_clear(quiet_source.descriptor());
    return bench::run_rows(argc, argv);
}
