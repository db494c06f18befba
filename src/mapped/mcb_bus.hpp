// SPDX-License-Identifier: MIT
// The bus record's operations over any record that begins with a mapped node.
#pragma once

#include <cstdint>

#include "mapped/class_device.hpp"
#include "norv_base.h"
#include "norv_mcb_bus.h"

// One word: the address of the handle variable.
struct norv_mcb_bus_context {
    void* handle_variable;
};

namespace norv {

// Added to the address after each element of a burst.
constexpr uint32_t burst_step(int32_t mode) {
    switch (mode) {
        case NORV_MCB_BURST_UP:
            return 4;
        case NORV_MCB_BURST_DOWN:
            return static_cast<uint32_t>(-4);
        default:
            return 0;
    }
}

// quirk 168: no operation checks its arguments. `adds_base`: the lists of the based group add their base to
// each address (quirk 166), or ignore it (quirk 167).
template <typename device, bool adds_base>
struct mcb_operations {
    static const mapped_node& node_of(const norv_mcb_bus_t* bus) {
        return (*static_cast<device**>(bus->context->handle_variable))->node;
    }

    static uint32_t read(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value) {
        *value = *register_at(node_of(bus), address);
        return NORV_STATUS_OK;
    }

    static uint32_t write(norv_mcb_bus_t* bus, uint32_t address, uint32_t value) {
        *register_at(node_of(bus), address) = value;
        return NORV_STATUS_OK;
    }

    static uint32_t read_list_based(norv_mcb_bus_t* bus, uint32_t base, const uint32_t* addresses,
                                    uint32_t* values, uint32_t count) {
        for (uint32_t index = 0; index < count; ++index) {
            read(bus, addresses[index] + (adds_base ? base : 0), &values[index]);
        }
        return NORV_STATUS_OK;
    }

    static uint32_t write_list_based(norv_mcb_bus_t* bus, uint32_t base, const norv_mcb_reg_value_t* list,
                                     uint32_t count) {
        for (uint32_t index = 0; index < count; ++index) {
            write(bus, list[index].address + (adds_base ? base : 0), list[index].value);
        }
        return NORV_STATUS_OK;
    }

    static uint32_t read_list(norv_mcb_bus_t* bus, const uint32_t* addresses, uint32_t* values,
                              uint32_t count) {
        return read_list_based(bus, 0, addresses, values, count);
    }

    static uint32_t write_list(norv_mcb_bus_t* bus, const norv_mcb_reg_value_t* list, uint32_t count) {
        return write_list_based(bus, 0, list, count);
    }

    static uint32_t read_burst(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count,
                               int32_t mode) {
        const uint32_t step = burst_step(mode);
        uint32_t address = start;
        for (uint32_t index = 0; index < count; ++index, address += step) {
            read(bus, address, &values[index]);
        }
        return NORV_STATUS_OK;
    }

    static uint32_t write_burst(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                                int32_t mode) {
        const uint32_t step = burst_step(mode);
        uint32_t address = start;
        for (uint32_t index = 0; index < count; ++index, address += step) {
            write(bus, address, values[index]);
        }
        return NORV_STATUS_OK;
    }

    // quirk 168: the operations stay in the record.
    static void close(norv_mcb_bus_t* bus) {
        if (bus != nullptr) {
            norv_free(bus->context);
            bus->context = nullptr;
        }
    }

    static void fill(norv_mcb_bus_t* bus) {
        bus->read = bus->read_based = read;
        bus->write = bus->write_based = write;
        bus->read_list = read_list;
        bus->write_list = write_list;
        bus->read_burst = bus->read_burst_based = read_burst;
        bus->write_burst = bus->write_burst_based = write_burst;
        bus->read_list_based = read_list_based;
        bus->write_list_based = write_list_based;
        bus->close = close;
    }
};

// Fills a record over the device that a handle variable holds.
template <typename device, bool adds_base>
uint32_t open_mcb_bus(device** handle_variable, norv_mcb_bus_t* bus) {
    if (handle_variable == nullptr || bus == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *bus = {};
    bus->context = static_cast<norv_mcb_bus_context_t*>(norv_malloc(sizeof *bus->context));
    if (bus->context == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    bus->context->handle_variable = handle_variable;
    mcb_operations<device, adds_base>::fill(bus);
    return NORV_STATUS_OK;
}

}  // namespace norv
