// The handle of a mapped device: a record behind the caller's variable. Every such record has the members
// `node`, `kind`, `ops` (the operations of its kind, which may be null) and `pci`.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "mapped/class_device.hpp"
#include "norv_base.h"

namespace norv {

// A PCI device's configuration space.
struct pci_configuration {
    int32_t descriptor;
};

template <typename device>
uint32_t allocate_handle(uint32_t index, device** handle) {
    auto* record = static_cast<device*>(norv_zalloc(sizeof(device)));
    if (record == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    record->node.index = index;
    record->node.descriptor = -1;
    *handle = record;
    return NORV_STATUS_OK;
}

// Allocates the handle and sets the device up. `close` ends every failure, so that the variable is null then:
// without memory this closes what it still held, which is kept.
template <typename device, typename function>
uint32_t open_handle(uint32_t index, device** handle, function set_up, void (*close)(device**)) {
    if (handle == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uint32_t status = allocate_handle(index, handle);
    if (status == NORV_STATUS_OK) {
        status = set_up();
    }
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

// Fills the identity of a PCI device from the "uevent" file of its class. The path has room for `path_size`
// characters with its NUL: that of a number of 10 digits is cut, which is kept.
template <size_t path_size, typename device>
uint32_t read_pci_info(const char* device_class, device** handle, norv_uio_info_t* info) {
    char path[path_size];
    snprintf(path, sizeof path, "/sys/class/%s/%s%d/device/uevent", device_class, device_class,
             static_cast<int32_t>((*handle)->node.index));
    info->kind = (*handle)->kind;
    return read_pci_identity(path, info);
}

// The last step of closing, when nothing is mapped any more.
template <typename device>
void release_handle(device** handle) {
    close_descriptor((*handle)->node.descriptor);
    norv_free(*handle);
    *handle = nullptr;
}

}  // namespace norv
