// SPDX-License-Identifier: MIT
// Registers and interrupts of UIO devices beside the bare volatile access and the bare system calls. Needs
// the UIO devices of the virtual board.
#include <fcntl.h>
#include <norv_mcb_bus.h>
#include <norv_uio.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "support/expect.hpp"
#include "support/registers.hpp"
#include "support/rows.hpp"

namespace {

using bench::register_offset;
constexpr uint32_t burst_length = 64;
using burst = std::array<uint32_t, burst_length>;

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_uio");
}

// What a program without the library calls: not inlined, because neither is the library.
[[gnu::noinline]] void bare_read_burst(volatile uint32_t* registers, burst& values) {
    for (uint32_t index = 0; index < burst_length; ++index) {
        values[index] = registers[register_offset / sizeof(uint32_t) + index];
    }
}

[[gnu::noinline]] void bare_write_burst(volatile uint32_t* registers, const burst& values) {
    for (uint32_t index = 0; index < burst_length; ++index) {
        registers[register_offset / sizeof(uint32_t) + index] = values[index];
    }
}

void bare_interrupt(int descriptor) {
    uint32_t word = 1;
    bench::expect(write(descriptor, &word, sizeof word) == sizeof word, "write");
    pollfd request = {descriptor, POLLIN, 0};
    bench::expect(poll(&request, 1, 1000) == 1, "poll");
    bench::expect(read(descriptor, &word, sizeof word) == sizeof word, "read");
}

void bare_mask(int configuration, uint8_t bit) {
    uint8_t value = 0;
    bench::expect(pread(configuration, &value, 1, 5) == 1, "pread");
    value = static_cast<uint8_t>((value & 0xFB) | bit);
    bench::expect(pwrite(configuration, &value, 1, 5) == 1, "pwrite");
}

void add_bursts(norv_uio_t** device, norv_mcb_bus_t* bus) {
    static burst values = {};
    auto* registers = static_cast<volatile uint32_t*>(norv_uio_get_map(device));
    bench::add_pair(
        {.name = "register bus, read_burst of 64", .target = 1.5},
        [=] { bare_read_burst(registers, values); },
        [=] { succeed(bus->read_burst(bus, register_offset, values.data(), burst_length, 0)); });
    bench::add_pair(
        {.name = "register bus, write_burst of 64", .target = 1.5},
        [=] { bare_write_burst(registers, values); },
        [=] { succeed(bus->write_burst(bus, register_offset, values.data(), burst_length, 0)); });
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

void add_mask(norv_uio_t** device, int configuration) {
    bench::add_pair(
        {.name = "UIO on PCI: disable, enable", .target = 1.05},
        [=] {
            bare_mask(configuration, 0x04);
            bare_mask(configuration, 0);
        },
        [=] {
            succeed(norv_uio_disable_irq(device));
            succeed(norv_uio_enable_irq(device));
        });
}

// More than all runs take.
void raise_interrupts() {
    FILE* raise = fopen("/sys/kernel/debug/norv_board_uio/raise", "w");
    bench::expect(raise != nullptr && fputs("1000000", raise) >= 0 && fclose(raise) == 0, "raise");
}

int open_configuration(norv_uio_t** device) {
    norv_uio_info_t info = {};
    char path[64];
    succeed(norv_uio_get_info(device, &info));
    snprintf(path, sizeof path, "/sys/bus/pci/devices/%04x:%02x:%02x.%u/config", info.domain, info.bus,
             info.slot, info.function);
    const int configuration = open(path, O_RDWR | O_CLOEXEC);
    bench::expect(configuration >= 0, path);
    return configuration;
}

}  // namespace

int main(int argc, char** argv) {
    norv_uio_t* device = nullptr;
    norv_uio_t* pci_device = nullptr;
    norv_mcb_bus_t bus;
    succeed(norv_uio_open_by_name("norv-board-regs", &device));
    succeed(norv_uio_open_mcb_bus(&device, &bus));
    norv_uio_load_pci(0x1234, 0x11E8);  // refused when an earlier run has done it
    succeed(norv_uio_open_by_pci_id(0x1234, 0x11E8, &pci_device));
    const int configuration = open_configuration(&pci_device);
    raise_interrupts();
    bench::add_register_rows("norv_uio", &device, norv_uio_get_map(&device), norv_uio_read_32,
                             norv_uio_write_32);
    add_bursts(&device, &bus);
    add_interrupt(&device);
    add_mask(&pci_device, configuration);
    const int result = bench::run_rows(argc, argv);
    close(configuration);
    norv_uio_close(&pci_device);
    bus.close(&bus);
    norv_uio_close(&device);
    return result;
}
