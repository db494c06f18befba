// SPDX-License-Identifier: MIT
// The handle of a mapped device: a record to which the caller's variable points. Each type of record has the
// members `node`, `kind`, `ops` (the operations of its kind, which may be null) and `pci`.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/status.hpp"
#include "mapped/class_device.hpp"
#include "norv_base.h"

namespace norv {

// A PCI device's configuration space.
struct pci_configuration {
    int32_t descriptor;
};

template <typename device, typename function>
uint32_t allocate_and_set_up(uint32_t index, device** handle, function set_up) {
    device* record = nullptr;
    NORV_TRY(allocate_record(record));
    record->node.index = index;
    record->node.descriptor = -1;
    *handle = record;
    return set_up();
}

// Allocates the handle and sets the device up. Each failure ends in `close`, which makes the variable null.
// quirk 157: without memory that closes the handle which the variable still held.
template <typename device, typename function>
uint32_t open_handle(uint32_t index, device** handle, function set_up, void (*close)(device**)) {
    if (handle == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = allocate_and_set_up(index, handle, set_up);
    if (status != NORV_STATUS_OK) {
        close(handle);
    }
    return status;
}

template <typename device>
uint32_t run_open_hook(device** handle) {
    const auto* operations = (*handle)->ops;
    return operations == nullptr || operations->open == nullptr ? NORV_STATUS_OK : operations->open(handle);
}

template <typename device>
void run_close_hook(device** handle) {
    const auto* operations = (*handle)->ops;
    if (operations != nullptr && operations->close != nullptr) {
        operations->close(handle);
    }
}

// Fills in the identity of a PCI device from the "uevent" file of its class. A path of `path_size` characters
// or more is truncated: that of a number of ten digits (quirk 160, quirk 164).
template <size_t path_size, typename device>
uint32_t read_pci_info(const char* device_class, device** handle, norv_uio_info_t* info) {
    char path[path_size];
    snprintf(path, sizeof path, "/sys/class/%s/%s%d/device/uevent", device_class, device_class,
             static_cast<int32_t>((*handle)->node.index));
    info->kind = (*handle)->kind;
    return read_pci_identity(path, info);
}

// The last step of closing, after the region was unmapped.
template <typename device>
void release_handle(device** handle) {
    close_descriptor((*handle)->node.descriptor);
    norv_free(*handle);
    *handle = nullptr;
}

}  // namespace norv
