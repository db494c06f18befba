// SPDX-License-Identifier: MIT
// I2C transfers beside the bare request that each of them is. Needs the registers of the virtual board.
#include <norv/i2c.hpp>

#include <cstdint>

#include "support/i2c.hpp"

namespace {

using bench::add_row;
using bench::bare_read;
using bench::bare_write;
using bench::i2c_registers;

void bare_raw_read(int descriptor) {
    uint8_t data[1];
    i2c_msg messages[] = {{i2c_registers, I2C_M_RD, sizeof data, data}};
    bench::bare_transfer(descriptor, messages);
}

void add_transfers(const int32_t* bus) {
    const auto read = [=] { bare_read(*bus); };
    const auto write = [=] { bare_write(*bus); };
    add_row("norv_linux_i2c_read", read, [=] {
        uint8_t value = 0;
        return norv_linux_i2c_read(bus, i2c_registers, 0x10, &value, 1);
    });
    add_row("norv_linux_i2c_write", write,
            [=] { return norv_linux_i2c_write(bus, i2c_registers, 0x10, "x", 1); });
    add_row(
        "norv_linux_i2c_raw_read", [=] { bare_raw_read(*bus); },
        [=] {
            uint8_t value = 0;
            return norv_linux_i2c_raw_read(bus, i2c_registers, &value, 1);
        });
    add_row("norv_linux_i2c_raw_write", write,
            [=] { return norv_linux_i2c_raw_write(bus, i2c_registers, "\x10x", 2); });
    add_row("norv_linux_i2c_write_then_read", read, [=] {
        uint8_t value = 0;
        return norv_linux_i2c_write_then_read(bus, i2c_registers, "\x10", 1, &value, 1);
    });
}

}  // namespace

int main(int argc, char** argv) {
    const norv::i2c bus = norv::i2c::open(bench::i2c_bus_number).value();
    const int32_t descriptor = bus.descriptor();
    add_transfers(&descriptor);
    return bench::run_rows(argc, argv);
}
