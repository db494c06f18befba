// SPDX-License-Identifier: MIT
// Register-bus records over mapped devices.
#include "mapped/mcb_bus.hpp"

#include <cstddef>
#include <cstring>

#include "core/layout.hpp"
#include "core/status.hpp"
#include "mapped/mapped_device.hpp"
#include "norv_base.h"

NORV_OFFSETS(norv_mcb_reg_value_t, 8, address, 0, value, 4);
NORV_LAYOUT(norv_mcb_bus_t, 15 * sizeof(void*), flags, read, write, read_list, write_list, read_burst,
            write_burst, read_based, write_based, read_list_based, write_list_based, read_burst_based,
            write_burst_based, close, context);

// One word: the address of the handle variable.
struct norv_mcb_bus_context {
    void* handle_variable;
};

namespace {

// quirk 168: no operation checks its arguments. Each looks up the device once, for `count` accesses: for none
// there need not be one.
void* map_for(const norv_mcb_bus_t* bus, uint32_t count) {
    if (count == 0) {
        return nullptr;
    }
    // The variable has the type of its family's handles; what they point to is the same.
    const void* record = nullptr;
    memcpy(&record, bus->context->handle_variable, sizeof record);
    return static_cast<const norv::mapped_device*>(record)->node.map;
}

uint32_t read(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value) {
    *value = *norv::register_at(map_for(bus, 1), address);
    return NORV_STATUS_OK;
}

uint32_t write(norv_mcb_bus_t* bus, uint32_t address, uint32_t value) {
    *norv::register_at(map_for(bus, 1), address) = value;
    return NORV_STATUS_OK;
}

// ---- lists

// quirk 166: the base is added to each address.
uint32_t read_list_based(norv_mcb_bus_t* bus, uint32_t base, const uint32_t* addresses, uint32_t* values,
                         uint32_t count) {
    void* const map = map_for(bus, count);
    for (uint32_t index = 0; index < count; ++index) {
        values[index] = *norv::register_at(map, base + addresses[index]);
    }
    return NORV_STATUS_OK;
}

// quirk 166: as by read_list_based.
uint32_t write_list_based(norv_mcb_bus_t* bus, uint32_t base, const norv_mcb_reg_value_t* list,
                          uint32_t count) {
    void* const map = map_for(bus, count);
    for (uint32_t index = 0; index < count; ++index) {
        *norv::register_at(map, base + list[index].address) = list[index].value;
    }
    return NORV_STATUS_OK;
}

uint32_t read_list(norv_mcb_bus_t* bus, const uint32_t* addresses, uint32_t* values, uint32_t count) {
    return read_list_based(bus, 0, addresses, values, count);
}

uint32_t write_list(norv_mcb_bus_t* bus, const norv_mcb_reg_value_t* list, uint32_t count) {
    return write_list_based(bus, 0, list, count);
}

// quirk 167: register maps for a UIO device list their addresses in full, and the base is ignored.
uint32_t read_full_list(norv_mcb_bus_t* bus, uint32_t /*base*/, const uint32_t* addresses, uint32_t* values,
                        uint32_t count) {
    return read_list(bus, addresses, values, count);
}

// quirk 167: as by read_full_list.
uint32_t write_full_list(norv_mcb_bus_t* bus, uint32_t /*base*/, const norv_mcb_reg_value_t* list,
                         uint32_t count) {
    return write_list(bus, list, count);
}

// ---- bursts

// Added to the address after each element.
uint32_t burst_step(int32_t mode) {
    switch (mode) {
        case NORV_MCB_BURST_UP:
            return 4;
        case NORV_MCB_BURST_DOWN:
            return static_cast<uint32_t>(-4);
        default:
            return 0;
    }
}

uint32_t read_burst(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count, int32_t mode) {
    void* const map = map_for(bus, count);
    const uint32_t step = burst_step(mode);
    uint32_t address = start;
    for (uint32_t index = 0; index < count; ++index, address += step) {
        values[index] = *norv::register_at(map, address);
    }
    return NORV_STATUS_OK;
}

uint32_t write_burst(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                     int32_t mode) {
    void* const map = map_for(bus, count);
    const uint32_t step = burst_step(mode);
    uint32_t address = start;
    for (uint32_t index = 0; index < count; ++index, address += step) {
        *norv::register_at(map, address) = values[index];
    }
    return NORV_STATUS_OK;
}

// ---- opening and closing

// quirk 168: the operations stay in the record.
void close(norv_mcb_bus_t* bus) {
    if (bus != nullptr) {
        norv_free(bus->context);
        bus->context = nullptr;
    }
}

void fill(norv_mcb_bus_t* bus) {
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

}  // namespace

uint32_t norv::open_mcb_bus(void* handle_variable, norv_mcb_bus_t* bus) {
    if (handle_variable == nullptr || bus == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *bus = {};
    bus->context = static_cast<norv_mcb_bus_context_t*>(norv_malloc(sizeof *bus->context));
    if (bus->context == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    bus->context->handle_variable = handle_variable;
    fill(bus);
    return NORV_STATUS_OK;
}

uint32_t norv_uio_open_mcb_bus(norv_uio_t** uio, norv_mcb_bus_t* bus) {
    NORV_TRY(norv::open_mcb_bus(uio, bus));
    bus->read_list_based = read_full_list;
    bus->write_list_based = write_full_list;
    return NORV_STATUS_OK;
}
