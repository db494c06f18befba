// SPDX-License-Identifier: MIT
// The operations of the I2C bus record beside the bare request that each of them is. Needs the registers of the
// virtual board.
#include <norv/i2c.hpp>
#include <norv/i2c_bus.hpp>

#include <cstdint>

#include "support/i2c.hpp"

namespace {

using bench::add_row;
using bench::bare_read;
using bench::bare_write;
using bench::i2c_registers;

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
    const norv::i2c bare = norv::i2c::open(bench::i2c_bus_number).value();
    norv::i2c_bus bus = norv::i2c_bus::open(bench::i2c_bus_number).value();
    add_operations(bare.descriptor(), bus.get());
    return bench::run_rows(argc, argv);
}
