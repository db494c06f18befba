// SPDX-License-Identifier: MIT
// Devices of a class whose registers a program maps: /dev/CLASSn, described in /sys/class/CLASS/CLASSn. The
// functions take the name of the class.
#pragma once

#include <cstdint>

#include "norv_uio.h"

namespace norv {

// The beginning of the record of such a device.
struct mapped_node {
    uint32_t index;      // n
    int32_t descriptor;  // of /dev/CLASSn
    void* map;           // region 0; null when not mapped, MAP_FAILED after a failure
    uint64_t map_size;
};

static_assert(sizeof(mapped_node) == 16 + sizeof(uint64_t) && sizeof(void*) <= 8);

// One aligned 32-bit access through the pointer is one bus access.
inline volatile uint32_t* register_at(const mapped_node& node, uint32_t offset) {
    return reinterpret_cast<volatile uint32_t*>(static_cast<char*>(node.map) + offset);
}

// Finds the highest N of the entries uioN in a directory, whatever its class (quirk 162), or -1.
uint32_t highest_index(const char* directory, int32_t* index);

// Finds the number of the first device with this name or PCI identity: 0 if the directory cannot be listed,
// but the status is 0 nevertheless.
uint32_t find_by_name(const char* device_class, const char* name, uint32_t* index);
uint32_t find_by_pci_id(const char* device_class, uint16_t vendor, uint16_t device, uint32_t* index);

// Reads the device's name: NORV_UIO_KIND_PCI if it is that of the PCI driver, otherwise NORV_UIO_KIND_PLAIN.
uint32_t read_kind(const char* device_class, uint32_t index, const char* pci_driver, uint32_t* kind);

uint32_t open_node(const char* device_class, mapped_node& node);
uint32_t map_region(const char* device_class, mapped_node& node);
void unmap_region(mapped_node& node);
bool is_mapped(const mapped_node& node);

// Announces a PCI identity to a driver through its "new_id".
uint32_t announce_pci_id(const char* new_id, int32_t vendor, int32_t device);

// Fills in the fields that the lines of a PCI device's uevent file hold.
uint32_t read_pci_identity(const char* uevent, norv_uio_info_t* info);

}  // namespace norv
