// SPDX-License-Identifier: MIT
// UMCB devices and their interrupt sources.
#include "norv_umcb.h"

#include <poll.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "core/handle.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/poll.hpp"
#include "core/status.hpp"
#include "mapped/mapped_device.hpp"
#include "mapped/mcb_bus.hpp"
#include "norv_file.h"

NORV_LAYOUT(norv_umcb_ops_t, 3 * sizeof(void*), open, close, get_info);

namespace {

// The driver's ioctls; it has no header.
struct irq_registration {
    uint32_t irq;
    uint32_t descriptor;  // out
};

constexpr unsigned long set_mode = _IOW('m', 0, int32_t);
constexpr unsigned long enable_all = _IO('m', 1);
constexpr unsigned long disable_all = _IO('m', 2);
constexpr unsigned long register_irq = _IOWR('m', 3, irq_registration);
constexpr unsigned long set_type = _IOW('m', 4, uint32_t);
constexpr unsigned long enable_source = _IO('r', 0);
constexpr unsigned long disable_source = _IO('r', 1);
constexpr unsigned long clear_event = _IO('r', 2);

NORV_OFFSETS(irq_registration, 8, irq, 0, descriptor, 4);
static_assert(set_mode == 0x40046D00 && register_irq == 0xC0086D03 && set_type == 0x40046D04);
static_assert(enable_all == 0x6D01 && disable_all == 0x6D02);
static_assert(enable_source == 0x7200 && disable_source == 0x7201 && clear_event == 0x7202);

// ---- the operations of PCI devices

uint32_t get_pci_info(norv_umcb_t** umcb, norv_uio_info_t* info) {
    char uevent[44];  // quirk 164: a longer path, that of a number of ten digits, is truncated
    snprintf(uevent, sizeof uevent, "/sys/class/umcb/umcb%d/device/uevent",
             static_cast<int32_t>((*umcb)->node.index));
    info->kind = (*umcb)->kind;
    return norv::read_pci_identity(uevent, info);
}

constexpr norv_umcb_ops_t pci_ops = {nullptr, nullptr, get_pci_info};

// ---- opening

uint32_t apply_mode(const norv::mapped_node& node, int32_t mode) {
    return mode < 0 ? NORV_STATUS_OK : norv::device_ioctl(node.descriptor, set_mode, &mode);
}

// The caller closes the handle after a failure.
uint32_t open_device(uint32_t index, int32_t mode, norv_umcb_t** umcb) {
    norv_umcb_t* device = nullptr;
    NORV_TRY(norv::allocate_record(device));
    *umcb = device;
    NORV_TRY(norv::open_node(norv::umcb_class, index, "umcb_pci_mmap", *device));
    if (device->kind == NORV_UIO_KIND_PCI) {
        device->ops.umcb = norv_umcb_get_pci_ops();
        NORV_TRY(norv::run_hook(device->ops.umcb->open, umcb));
    }
    NORV_TRY(apply_mode(device->node, mode));
    return norv::map_region(norv::umcb_class, device->node);
}

void run_close_hook(norv_umcb_t** umcb) {
    const norv_umcb_ops_t* operations = (*umcb)->ops.umcb;
    if (operations != nullptr && operations->close != nullptr) {
        operations->close(umcb);
    }
}

// ---- requests

uint32_t command(int32_t descriptor, unsigned long request) {
    return norv::device_ioctl<void>(descriptor, request, nullptr);
}

uint32_t command_device(norv_umcb_t** umcb, unsigned long request) {
    return norv::is_open(umcb) ? command((*umcb)->node.descriptor, request) : NORV_STATUS_INVALID_ARG;
}

}  // namespace

uint32_t norv_umcb_get_max_idx(int32_t* index) {
    // quirk 162: entries uioN are counted in this class too, and not umcbN.
    return index == nullptr ? NORV_STATUS_INVALID_ARG : norv::highest_index("/sys/class/umcb", index);
}

uint32_t norv_umcb_open_by_idx(uint32_t index, int32_t mode, norv_umcb_t** umcb) {
    if (umcb == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_device(index, mode, umcb);
    if (status != NORV_STATUS_OK) {
        // quirk 157: without memory this closes the handle that the variable still holds.
        norv_umcb_close(umcb);
    }
    return status;
}

uint32_t norv_umcb_open_by_name(const char* name, int32_t mode, norv_umcb_t** umcb) {
    if (name == nullptr || umcb == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uint32_t index = 0;
    // quirk 163: the number is parsed from the fourth character on, which gives 0 for an entry umcbN.
    NORV_TRY(norv::find_by_name(norv::umcb_class, name, &index));
    return norv_umcb_open_by_idx(index, mode, umcb);
}

uint32_t norv_umcb_open_by_pci_id(uint16_t vendor, uint16_t device, int32_t mode, norv_umcb_t** umcb) {
    if (umcb == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uint32_t index = 0;
    // quirk 163: as by name.
    NORV_TRY(norv::find_by_pci_id(norv::umcb_class, vendor, device, &index));
    return norv_umcb_open_by_idx(index, mode, umcb);
}

void norv_umcb_close(norv_umcb_t** umcb) {
    if (!norv::is_open(umcb)) {
        return;
    }
    run_close_hook(umcb);
    norv::unmap_region((*umcb)->node);
    norv::release(*umcb);
    *umcb = nullptr;
}

uint32_t norv_umcb_load_pci(uint16_t vendor, uint16_t device) {
    constexpr char new_id[] = "/sys/bus/pci/drivers/umcb_pci_generic/new_id";
    return norv_file_access(F_OK, "%s", new_id) ? norv::announce_pci_id(new_id, vendor, device)
                                                : NORV_STATUS_NOT_AVAILABLE;
}

void* norv_umcb_get_map(norv_umcb_t** umcb) {
    return (*umcb)->node.map;
}

void norv_umcb_write_32(norv_umcb_t** umcb, uint32_t offset, uint32_t value) {
    *norv::register_at((*umcb)->node.map, offset) = value;
}

uint32_t norv_umcb_read_32(norv_umcb_t** umcb, uint32_t offset) {
    return *norv::register_at((*umcb)->node.map, offset);
}

uint32_t norv_umcb_open_mcb_bus(norv_umcb_t** umcb, norv_mcb_bus_t* bus) {
    return norv::open_mcb_bus(umcb, bus);
}

uint32_t norv_umcb_get_info(norv_umcb_t** umcb, norv_uio_info_t* info) {
    if (!norv::is_open(umcb) || info == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const norv_umcb_ops_t* operations = (*umcb)->ops.umcb;
    if (operations != nullptr && operations->get_info != nullptr) {
        return operations->get_info(umcb, info);
    }
    info->kind = (*umcb)->kind;
    return NORV_STATUS_OK;
}

const norv_umcb_ops_t* norv_umcb_get_pci_ops() {
    return &pci_ops;
}

uint32_t norv_umcb_irq_register(norv_umcb_t** umcb, uint32_t irq, int32_t* descriptor) {
    if (!norv::is_open(umcb) || descriptor == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    irq_registration registration = {irq, 0};
    NORV_TRY(norv::device_ioctl((*umcb)->node.descriptor, register_irq, &registration));
    *descriptor = static_cast<int32_t>(registration.descriptor);
    return NORV_STATUS_OK;
}

uint32_t norv_umcb_irq_global_enable(norv_umcb_t** umcb) {
    return command_device(umcb, enable_all);
}

uint32_t norv_umcb_irq_global_disable(norv_umcb_t** umcb) {
    return command_device(umcb, disable_all);
}

uint32_t norv_umcb_irq_set_type(norv_umcb_t** umcb, uint32_t type) {
    return norv::is_open(umcb) ? norv::device_ioctl((*umcb)->node.descriptor, set_type, &type)
                               : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_umcb_irq_enable(int32_t descriptor) {
    return command(descriptor, enable_source);
}

uint32_t norv_umcb_irq_disable(int32_t descriptor) {
    return command(descriptor, disable_source);
}

uint32_t norv_umcb_irq_clear_event(int32_t descriptor) {
    return command(descriptor, clear_event);
}

uint32_t norv_umcb_irq_wait(int32_t descriptor, uint32_t timeout) {
    NORV_TRY(norv::wait_for(descriptor, POLLPRI, static_cast<int32_t>(timeout)));
    // quirk 165: whatever poll(2) reported, an error condition too.
    return norv_umcb_irq_clear_event(descriptor);
}
