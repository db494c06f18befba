// SPDX-License-Identifier: MIT
// Register-bus records over mapped devices.
#pragma once

#include <cstdint>

#include "norv_mcb_bus.h"

namespace norv {

// Fills a record over the device that a handle variable holds. The lists of the based group add their base.
uint32_t open_mcb_bus(void* handle_variable, norv_mcb_bus_t* bus);

}  // namespace norv
