// SPDX-License-Identifier: MIT
// UIO devices on PCI: binding, finding, and the operations that differ from platform devices.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "core/descriptor.hpp"
#include "core/status.hpp"
#include "mapped/mapped_device.hpp"
#include "norv_base.h"
#include "norv_file.h"
#include "norv_uio.h"

namespace {

// The high byte of the command register, and its Interrupt Disable bit.
constexpr off_t command_high_byte = 5;
constexpr uint8_t interrupt_disable = 0x04;

void close_configuration(norv_uio_t** uio) {
    norv_uio_t* device = *uio;
    if (device->pci != nullptr) {
        norv::close_descriptor(device->pci->descriptor);
        norv_free(device->pci);
        device->pci = nullptr;
    }
    norv::unmap_region(device->node);
}

uint32_t open_configuration(norv_uio_t** uio) {
    norv_uio_t* device = *uio;
    device->pci = static_cast<norv::pci_configuration*>(norv_malloc(sizeof *device->pci));
    if (device->pci == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const uint32_t status =
        norv_open_device(O_RDWR | O_CLOEXEC, &device->pci->descriptor, "/sys/class/uio/uio%d/device/config",
                         static_cast<int32_t>(device->node.index));
    if (status != NORV_STATUS_OK) {
        close_configuration(uio);
    }
    return status;
}

uint32_t map(norv_uio_t** uio) {
    return norv_uio_get_generic_ops()->map(uio);
}

void unmap(norv_uio_t** uio) {
    norv_uio_get_generic_ops()->unmap(uio);
}

// The status of transferring one byte. A count of 0 is a failure too, but one that does not set errno.
uint32_t status_of_byte(int64_t count) {
    return count == 0 ? NORV_STATUS_DEVICE_ERROR : norv::status_of(count);
}

uint32_t change_command(norv_uio_t** uio, uint8_t kept_bits, uint8_t set_bits) {
    const int32_t descriptor = (*uio)->pci->descriptor;
    uint8_t value = 0;  // quirk 1: the value after a failed read whose errno has the status 0
    NORV_TRY(status_of_byte(pread(descriptor, &value, 1, command_high_byte)));
    value = static_cast<uint8_t>((value & kept_bits) | set_bits);
    return status_of_byte(pwrite(descriptor, &value, 1, command_high_byte));
}

uint32_t enable_irq(norv_uio_t** uio) {
    return change_command(uio, static_cast<uint8_t>(~interrupt_disable), 0);
}

uint32_t disable_irq(norv_uio_t** uio) {
    return change_command(uio, 0xFF, interrupt_disable);
}

uint32_t get_info(norv_uio_t** uio, norv_uio_info_t* info) {
    char uevent[42];  // quirk 160: a longer path, that of a number of ten digits, is truncated
    snprintf(uevent, sizeof uevent, "/sys/class/uio/uio%d/device/uevent",
             static_cast<int32_t>((*uio)->node.index));
    info->kind = (*uio)->kind;
    return norv::read_pci_identity(uevent, info);
}

constexpr norv_uio_ops_t pci_ops = {open_configuration, close_configuration, map,     unmap,
                                    enable_irq,         disable_irq,         get_info};

}  // namespace

uint32_t norv_uio_load_pci(int32_t vendor, int32_t device) {
    constexpr const char* new_ids[] = {"/sys/bus/pci/drivers/uio_pci_mmap/new_id",
                                       "/sys/bus/pci/drivers/uio_pci_generic/new_id"};
    for (const char* new_id : new_ids) {
        if (norv_file_access(F_OK, "%s", new_id)) {
            return norv::announce_pci_id(new_id, vendor, device);
        }
    }
    return NORV_STATUS_NOT_AVAILABLE;
}

uint32_t norv_uio_open_by_pci_id(uint16_t vendor, uint16_t device, norv_uio_t** uio) {
    if (uio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uint32_t index = 0;
    NORV_TRY(norv::find_by_pci_id(norv::uio_class, vendor, device, &index));
    return norv_uio_open_by_idx(index, uio);
}

const norv_uio_ops_t* norv_uio_get_pci_ops() {
    return &pci_ops;
}
