// SPDX-License-Identifier: MIT
// I2C transfers, and the operations of the bus record, beside the bare request that each of them is. Needs
// the registers of the virtual board.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <norv_linux_i2c.h>
#include <norv_linux_i2c_bus.h>
#include <sys/ioctl.h>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t bus_number = 1;
constexpr uint8_t registers = 0x20;

template <uint32_t count>
void bare_transfer(int descriptor, i2c_msg (&messages)[count]) {
    i2c_rdwr_ioctl_data transaction = {messages, count};
    bench::expect(ioctl(descriptor, I2C_RDWR, &transaction) >= 0, "I2C_RDWR");
}

void bare_read(int descriptor) {
    uint8_t reg = 0x10;
    uint8_t data[1];
    i2c_msg messages[] = {{registers, 0, 1, &reg}, {registers, I2C_M_RD, sizeof data, data}};
    bare_transfer(descriptor, messages);
}

void bare_write(int descriptor) {
    uint8_t data[] = {0x10, 0x01};
    i2c_msg messages[] = {{registers, 0, sizeof data, data}};
    bare_transfer(descriptor, messages);
}

void bare_raw_read(int descriptor) {
    uint8_t data[1];
    i2c_msg messages[] = {{registers, I2C_M_RD, sizeof data, data}};
    bare_transfer(descriptor, messages);
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_i2c");
}

template <typename raw_type, typename ours_type>
void add_row(const char* name, raw_type raw, ours_type ours) {
    bench::add_pair({.name = name, .target = 1.05}, raw, [=] { succeed(ours()); });
}

void add_transfers(const int32_t* bus) {
    const auto read = [=] { bare_read(*bus); };
    const auto write = [=] { bare_write(*bus); };
    add_row("norv_linux_i2c_read", read, [=] {
        uint8_t value = 0;
        return norv_linux_i2c_read(bus, registers, 0x10, &value, 1);
    });
    add_row("norv_linux_i2c_write", write,
            [=] { return norv_linux_i2c_write(bus, registers, 0x10, "x", 1); });
    add_row(
        "norv_linux_i2c_raw_read", [=] { bare_raw_read(*bus); },
        [=] {
            uint8_t value = 0;
            return norv_linux_i2c_raw_read(bus, registers, &value, 1);
        });
    add_row("norv_linux_i2c_raw_write", write,
            [=] { return norv_linux_i2c_raw_write(bus, registers, "\x10x", 2); });
    add_row("norv_linux_i2c_write_then_read", read, [=] {
        uint8_t value = 0;
        return norv_linux_i2c_write_then_read(bus, registers, "\x10", 1, &value, 1);
    });
}

void add_operations(int32_t bare, norv_i2c_bus_t* bus) {
    add_row(
        "I2C bus record, read_reg", [=] { bare_read(bare); },
        [=] {
            uint8_t value = 0;
            return bus->read_reg(bus, registers, 0x10, &value);
        });
    add_row(
        "I2C bus record, write_reg", [=] { bare_write(bare); },
        [=] { return bus->write_reg(bus, registers, 0x10, 1); });
}

}  // namespace

int main(int argc, char** argv) {
    int32_t descriptor = -1;
    norv_i2c_bus_t bus;
    succeed(norv_linux_i2c_open(bus_number, &descriptor));
    succeed(norv_linux_open_i2c_bus(&bus, bus_number));
    add_transfers(&descriptor);
    add_operations(descriptor, &bus);
    const int result = bench::run_rows(argc, argv);
    norv_linux_close_i2c_bus(&bus);
    norv_linux_i2c_close(&descriptor);
    return result;
}
