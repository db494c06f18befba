// SPDX-License-Identifier: MIT
// The owners of devices beside the calls of the C interface that they make, which are "raw" here. Needs the UIO device
// of the virtual board, and its GPIO line 16.
#include <norv/gpio.hpp>
#include <norv/uio.hpp>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr double target = 1.01;
constexpr uint32_t offset = 0x100;
constexpr norv::reg control(offset);

void add_registers(norv::uio& device, norv_uio_t** handle) {
    bench::add_pair(
        {.name = "C++: register read", .target = target},
        [=] { benchmark::DoNotOptimize(norv_uio_read_32(handle, offset)); },
        [&] { benchmark::DoNotOptimize(device.read(control)); });
    bench::add_pair(
        {.name = "C++: register write", .target = target}, [=] { norv_uio_write_32(handle, offset, 5); },
        [&] { device.write(control, 5); });
}

void add_gpio(norv::gpio& line) {
    bench::add_pair(
        {.name = "C++: GPIO read", .target = target},
        [record = line.get()] {
            uint8_t value = 0;
            bench::expect(norv_linux_gpio_get_value(record, &value) == NORV_STATUS_OK, "get_value");
            benchmark::DoNotOptimize(value);
        },
        [&] { benchmark::DoNotOptimize(line.get_value().value()); });
}

}  // namespace

int main(int argc, char** argv) {
    norv::uio device = norv::uio::open_by_name("norv-board-regs").value();
    norv_uio_t* handle = device.get();
    norv::gpio line = norv::gpio::open(16).value();
    line.set_direction(norv::gpio::direction::output).value();
    add_registers(device, &handle);
    add_gpio(line);
    return bench::run_rows(argc, argv);
}
