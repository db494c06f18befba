// SPDX-License-Identifier: MIT
// The record of a UIO device, for the sources that share it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mapped/device_handle.hpp"
#include "norv_uio.h"

struct norv_uio {
    norv::mapped_node node;
    uint32_t kind;
    const norv_uio_ops_t* ops;
    norv::pci_configuration* pci;  // null on a platform device
};

static_assert(offsetof(norv_uio, kind) == 24 && offsetof(norv_uio, ops) == 24 + sizeof(void*) &&
              offsetof(norv_uio, pci) == 24 + 2 * sizeof(void*));

namespace norv {

constexpr char uio_class[] = "uio";

}  // namespace norv
