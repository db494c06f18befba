// SPDX-License-Identifier: MIT
// Bursts through a register-bus record beside the bare volatile accesses. Needs the UIO device of the virtual board.
#include <norv/mcb_bus.hpp>
#include <norv/uio.hpp>

#include <array>
#include <cstdint>

#include "support/expect.hpp"
#include "support/registers.hpp"
#include "support/rows.hpp"

namespace {

using bench::register_offset;
constexpr uint32_t burst_length = 64;
using burst = std::array<uint32_t, burst_length>;

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_mcb_bus");
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

void add_bursts(void* map, norv_mcb_bus_t* bus) {
    static burst values = {};
    auto* registers = static_cast<volatile uint32_t*>(map);
    bench::add_pair(
        {.name = "register bus, read_burst of 64", .target = 1.5},
        [=] { bare_read_burst(registers, values); },
        [=] { succeed(bus->read_burst(bus, register_offset, values.data(), burst_length, 0)); });
    bench::add_pair(
        {.name = "register bus, write_burst of 64", .target = 1.5},
        [=] { bare_write_burst(registers, values); },
        [=] { succeed(bus->write_burst(bus, register_offset, values.data(), burst_length, 0)); });
}

}  // namespace

int main(int argc, char** argv) {
    norv::uio device = norv::uio::open_by_name("norv-board-regs").value();
    norv::mcb_bus bus = norv::mcb_bus::open(device).value();
    add_bursts(device.map(), bus.get());
    return bench::run_rows(argc, argv);
}
