// SPDX-License-Identifier: MIT
// UIO devices.
#include "norv_uio.h"

#include <poll.h>
#include <unistd.h>

#include <cstddef>

#include "core/handle.hpp"
#include "core/layout.hpp"
#include "core/poll.hpp"
#include "core/status.hpp"
#include "mapped/mapped_device.hpp"

NORV_LAYOUT(norv_uio_ops_t, 7 * sizeof(void*), open, close, map, unmap, enable_irq, disable_irq, get_info);
NORV_LAYOUT(norv_uio_info_t, 28, kind, vendor, device, domain, bus, slot, function);

namespace {

// ---- the operations of platform devices

uint32_t map(norv_uio_t** uio) {
    return norv::map_region(norv::uio_class, (*uio)->node);
}

void unmap(norv_uio_t** uio) {
    norv::unmap_region((*uio)->node);
}

uint32_t control_irq(norv_uio_t** uio, uint32_t enable) {
    const int64_t count = write((*uio)->node.descriptor, &enable, sizeof enable);
    if (count < 0) {
        return norv::errno_status();
    }
    return count == sizeof enable ? NORV_STATUS_OK : NORV_STATUS_DEVICE_ERROR;
}

uint32_t enable_irq(norv_uio_t** uio) {
    return control_irq(uio, 1);
}

uint32_t disable_irq(norv_uio_t** uio) {
    return control_irq(uio, 0);
}

uint32_t get_info(norv_uio_t** uio, norv_uio_info_t* info) {
    info->kind = (*uio)->kind;
    return NORV_STATUS_OK;
}

constexpr norv_uio_ops_t generic_ops = {nullptr, nullptr, map, unmap, enable_irq, disable_irq, get_info};

// ---- opening

// The caller closes the handle after a failure.
uint32_t open_device(uint32_t index, norv_uio_t** uio) {
    norv_uio_t* device = nullptr;
    NORV_TRY(norv::allocate_record(device));
    *uio = device;
    NORV_TRY(norv::open_node(norv::uio_class, index, "uio_pci_mmap", *device));
    const bool is_pci = device->kind == NORV_UIO_KIND_PCI;
    device->ops.uio = is_pci ? norv_uio_get_pci_ops() : norv_uio_get_generic_ops();
    NORV_TRY(norv::run_hook(device->ops.uio->open, uio));
    return device->ops.uio->map(uio);
}

void run_close_hook(norv_uio_t** uio) {
    const norv_uio_ops_t* operations = (*uio)->ops.uio;
    if (operations != nullptr && operations->close != nullptr) {
        operations->close(uio);
    }
}

}  // namespace

uint32_t norv_uio_get_max_idx(int32_t* index) {
    return index == nullptr ? NORV_STATUS_INVALID_ARG : norv::highest_index("/sys/class/uio", index);
}

uint32_t norv_uio_open_by_idx(uint32_t index, norv_uio_t** uio) {
    if (uio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_device(index, uio);
    if (status != NORV_STATUS_OK) {
        // quirk 157: without memory this closes the handle that the variable still holds.
        norv_uio_close(uio);
    }
    return status;
}

uint32_t norv_uio_open_by_name(const char* name, norv_uio_t** uio) {
    if (name == nullptr || uio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uint32_t index = 0;
    NORV_TRY(norv::find_by_name(norv::uio_class, name, &index));
    return norv_uio_open_by_idx(index, uio);
}

void norv_uio_close(norv_uio_t** uio) {
    if (!norv::is_open(uio)) {
        return;
    }
    run_close_hook(uio);
    if (norv::is_mapped((*uio)->node)) {
        (*uio)->ops.uio->unmap(uio);
    }
    norv::release(*uio);
    *uio = nullptr;
}

int32_t norv_uio_get_fd(norv_uio_t** uio) {
    return (*uio)->node.descriptor;
}

void* norv_uio_get_map(norv_uio_t** uio) {
    return (*uio)->node.map;
}

void norv_uio_write_32(norv_uio_t** uio, uint32_t offset, uint32_t value) {
    *norv::register_at((*uio)->node.map, offset) = value;
}

uint32_t norv_uio_read_32(norv_uio_t** uio, uint32_t offset) {
    return *norv::register_at((*uio)->node.map, offset);
}

uint32_t norv_uio_get_info(norv_uio_t** uio, norv_uio_info_t* info) {
    return !norv::is_open(uio) || info == nullptr ? NORV_STATUS_INVALID_ARG
                                                  : (*uio)->ops.uio->get_info(uio, info);
}

uint32_t norv_uio_enable_irq(norv_uio_t** uio) {
    return norv::is_open(uio) ? (*uio)->ops.uio->enable_irq(uio) : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_uio_disable_irq(norv_uio_t** uio) {
    return norv::is_open(uio) ? (*uio)->ops.uio->disable_irq(uio) : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_uio_wait_irq(norv_uio_t** uio, uint32_t timeout) {
    if (!norv::is_open(uio)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const int32_t descriptor = (*uio)->node.descriptor;
    NORV_TRY(norv::wait_for(descriptor, POLLIN, static_cast<int32_t>(timeout)));
    uint32_t count = 0;
    // quirk 159: a short read is a success.
    return norv::status_of(read(descriptor, &count, sizeof count));
}

const norv_uio_ops_t* norv_uio_get_generic_ops() {
    return &generic_ops;
}
