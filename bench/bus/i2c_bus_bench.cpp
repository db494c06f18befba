// SPDX-License-Identifier: MIT
// The operations of the I2C bus record beside the bare request that each of them is. Needs the registers of the
// virtual board.
#include <norv_linux_i2c.h>
#include <norv_linux_i2c_bus.h>

#include <cstdint>

#include "support/i2c.hpp"

namespace {

using bench::add_row;
using bench::bare_read;
using bench::bare_write;
using bench::i2c_registers;
using bench::succeed;

void add_operations(int32_t bare, norv_i2c_bus_t* bus) {
    add_row(
        "I2C bus record, read_reg", [=] { bare_read(bare); },
        [=] {
            uint8_t value = 0;
            return bus->read_reg(bus, i2c_registers, 0x10, &value);
        });
    add_row(
        "I2C bus record, write_reg", [=] { bare_write(bare); },
        [=] { return bus->write_reg(bus, i2c_registers, 0x10, 1); });
}

}  // namespace

int main(int argc, char** argv) {
    int32_t descriptor = -1;
    norv_i2c_bus_t bus;
    succeed(norv_linux_i2c_open(bench::i2c_bus_number, &descriptor));
    succeed(norv_linux_open_i2c_bus(&bus, bench::i2c_bus_number));
    add_operations(descriptor, &bus);
    const int result = bench::run_rows(argc, argv);
    norv_linux_close_i2c_bus(&bus);
    norv_linux_i2c_close(&descriptor);
    return result;
}
