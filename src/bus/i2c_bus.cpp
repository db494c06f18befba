// SPDX-License-Identifier: MIT
// The I2C bus record, and its operations on a Linux I2C adapter.
#include "norv_linux_i2c_bus.h"

#include <cstddef>

#include "core/handle.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_linux_i2c.h"

struct norv_i2c_bus_state {
    int32_t descriptor;
    uint32_t bus_number;
    uint8_t address_mode;  // number of bits by which a given address is shifted right
};

namespace {

NORV_LAYOUT(norv_i2c_bus_t, NORV_32_64(56, 96), reserved, read_reg, write_reg, read_regs, write_regs,
            read_reg_list, write_reg_list, raw_read, raw_write, reserved_operation, write_then_read, state);
NORV_OFFSETS(norv_i2c_reg_value_t, 2, reg, 0, value, 1);
NORV_OFFSETS(norv_i2c_bus_state_t, 12, descriptor, 0, bus_number, 4, address_mode, 8);

// The target of an operation. For a bus that is not open the descriptor is null, which each transfer refuses.
struct slave {
    slave(const norv_i2c_bus_t* bus, uint8_t given_address) {
        if (bus != nullptr && bus->state != nullptr) {
            descriptor = &bus->state->descriptor;
            address = static_cast<uint8_t>(given_address >> bus->state->address_mode);
        }
    }

    const int32_t* descriptor = nullptr;
    uint8_t address = 0;
};

uint32_t read_regs(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, void* data, uint16_t length) {
    const slave to(bus, address);
    return norv_linux_i2c_read(to.descriptor, to.address, reg, data, length);
}

uint32_t write_regs(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, const void* data, uint16_t length) {
    const slave to(bus, address);
    return norv_linux_i2c_write(to.descriptor, to.address, reg, data, length);
}

uint32_t read_reg(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t* value) {
    return read_regs(bus, address, reg, value, 1);
}

uint32_t write_reg(norv_i2c_bus_t* bus, uint8_t address, uint8_t reg, uint8_t value) {
    return write_regs(bus, address, reg, &value, 1);
}

// quirk 55: after a failure the earlier registers of a list stay read or written.
uint32_t read_reg_list(norv_i2c_bus_t* bus, uint8_t address, const uint8_t* registers, uint8_t* values,
                       uint16_t count) {
    if (count != 0 && (registers == nullptr || values == nullptr)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const slave to(bus, address);
    for (uint32_t index = 0; index < count; ++index) {
        NORV_TRY(norv_linux_i2c_read(to.descriptor, to.address, registers[index], &values[index], 1));
    }
    return NORV_STATUS_OK;
}

uint32_t write_reg_list(norv_i2c_bus_t* bus, uint8_t address, const norv_i2c_reg_value_t* list,
                        uint16_t count) {
    if (count != 0 && list == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const slave to(bus, address);
    for (uint32_t index = 0; index < count; ++index) {
        NORV_TRY(norv_linux_i2c_write(to.descriptor, to.address, list[index].reg, &list[index].value, 1));
    }
    return NORV_STATUS_OK;
}

uint32_t raw_read(norv_i2c_bus_t* bus, uint8_t address, void* data, uint16_t length) {
    const slave to(bus, address);
    return norv_linux_i2c_raw_read(to.descriptor, to.address, data, length);
}

uint32_t raw_write(norv_i2c_bus_t* bus, uint8_t address, const void* data, uint16_t length) {
    const slave to(bus, address);
    return norv_linux_i2c_raw_write(to.descriptor, to.address, data, length);
}

uint32_t write_then_read(norv_i2c_bus_t* bus, uint8_t address, const void* write_data, uint16_t write_length,
                         void* read_data, uint16_t read_length) {
    const slave to(bus, address);
    return norv_linux_i2c_write_then_read(to.descriptor, to.address, write_data, write_length, read_data,
                                          read_length);
}

void fill_operations(norv_i2c_bus_t* bus) {
    bus->read_reg = read_reg;
    bus->write_reg = write_reg;
    bus->read_regs = read_regs;
    bus->write_regs = write_regs;
    bus->read_reg_list = read_reg_list;
    bus->write_reg_list = write_reg_list;
    bus->raw_read = raw_read;
    bus->raw_write = raw_write;
    bus->write_then_read = write_then_read;
}

}  // namespace

uint32_t norv_linux_open_i2c_bus(norv_i2c_bus_t* bus, uint32_t bus_number) {
    if (bus == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *bus = {};
    NORV_TRY(norv::allocate_record(bus->state));
    bus->state->bus_number = bus_number;
    const uint32_t status = norv_linux_i2c_open(bus_number, &bus->state->descriptor);
    if (status != NORV_STATUS_OK) {
        norv_linux_close_i2c_bus(bus);
        return status;
    }
    fill_operations(bus);
    return NORV_STATUS_OK;
}

void norv_linux_close_i2c_bus(norv_i2c_bus_t* bus) {
    if (bus == nullptr || bus->state == nullptr) {
        return;
    }
    norv_linux_i2c_close(&bus->state->descriptor);
    norv_free(bus->state);
    // quirk 54: the operations stay. One that is called now finds no state and fails.
    bus->state = nullptr;
}

uint32_t norv_linux_i2c_bus_set_addr_mode(norv_i2c_bus_t* bus, uint8_t mode) {
    if (bus == nullptr || bus->state == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    if (mode > NORV_LINUX_I2C_ADDR_8BIT) {
        return NORV_STATUS_NOT_AVAILABLE;
    }
    bus->state->address_mode = mode;
    return NORV_STATUS_OK;
}
