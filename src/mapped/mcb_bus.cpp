// SPDX-License-Identifier: MIT
// Register-bus records over UIO devices.
#include "mapped/mcb_bus.hpp"

#include <cstddef>

#include "core/layout.hpp"
#include "mapped/class_device.hpp"

static_assert(sizeof(norv_mcb_reg_value_t) == 8 && offsetof(norv_mcb_reg_value_t, value) == 4);
static_assert(sizeof(norv_mcb_bus_t) == 15 * sizeof(void*) && offsetof(norv_mcb_bus_t, flags) == 0 &&
              offsetof(norv_mcb_bus_t, read) == sizeof(void*));
static_assert(NORV_FOLLOWS(norv_mcb_bus_t, read, write) && NORV_FOLLOWS(norv_mcb_bus_t, write, read_list) &&
              NORV_FOLLOWS(norv_mcb_bus_t, read_list, write_list) &&
              NORV_FOLLOWS(norv_mcb_bus_t, write_list, read_burst) &&
              NORV_FOLLOWS(norv_mcb_bus_t, read_burst, write_burst) &&
              NORV_FOLLOWS(norv_mcb_bus_t, write_burst, read_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, read_based, write_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, write_based, read_list_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, read_list_based, write_list_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, write_list_based, read_burst_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, read_burst_based, write_burst_based) &&
              NORV_FOLLOWS(norv_mcb_bus_t, write_burst_based, close) &&
              NORV_FOLLOWS(norv_mcb_bus_t, close, context));

uint32_t norv_uio_open_mcb_bus(norv_uio_t** uio, norv_mcb_bus_t* bus) {
    // quirk 167: register maps for this bus list their addresses in full.
    return norv::open_mcb_bus<norv_uio_t, false>(uio, bus);
}
