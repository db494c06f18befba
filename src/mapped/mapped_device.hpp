// SPDX-License-Identifier: MIT
// Devices of a class whose registers a program maps: /dev/CLASSn, described in /sys/class/CLASS/CLASSn. UIO
// and UMCB devices have the same record. The functions take the name of the class.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/layout.hpp"
#include "norv_status.h"
#include "norv_uio.h"
#include "norv_umcb.h"

namespace norv {

constexpr char uio_class[] = "uio";
constexpr char umcb_class[] = "umcb";

struct mapped_node {
    uint32_t index;      // n
    int32_t descriptor;  // of /dev/CLASSn
    void* map;           // region 0; null when not mapped, MAP_FAILED after a failure
    uint64_t map_size;
};

// A PCI device's configuration space.
struct pci_configuration {
    int32_t descriptor;
};

// The record to which a handle variable points. `ops` is the table of its kind, in the member of its class.
struct mapped_device {
    mapped_node node;
    uint32_t kind;
    union {
        const norv_uio_ops_t* uio;    // null until the node is open
        const norv_umcb_ops_t* umcb;  // null on a device that is not on PCI
    } ops;
    pci_configuration* pci;  // null on a platform device; of a UMCB device always: it is not used
};

NORV_LAYOUT(mapped_node, 24, index, descriptor, map, map_size);
NORV_OFFSETS(mapped_device, NORV_32_64(40, 48), kind, 24, ops, 24 + sizeof(void*), pci,
             24 + 2 * sizeof(void*));
static_assert(sizeof(void*) <= 8);

// One aligned 32-bit access through the pointer is one bus access.
inline volatile uint32_t* register_at(void* map, uint32_t offset) {
    return reinterpret_cast<volatile uint32_t*>(static_cast<char*>(map) + offset);
}

// Finds the highest N of the entries uioN in a directory, whatever its class (quirk 162), or -1.
uint32_t highest_index(const char* directory, int32_t* index);

// Finds the number of the first device with this name or PCI identity: 0 if the directory cannot be listed,
// but the status is 0 nevertheless.
uint32_t find_by_name(const char* device_class, const char* name, uint32_t* index);
uint32_t find_by_pci_id(const char* device_class, uint16_t vendor, uint16_t device, uint32_t* index);

// Reads the kind of a device and opens its node, into a record of zeros.
uint32_t open_node(const char* device_class, uint32_t index, const char* pci_driver, mapped_device& device);
uint32_t map_region(const char* device_class, mapped_node& node);
void unmap_region(mapped_node& node);
bool is_mapped(const mapped_node& node);

// Runs a hook of a table of operations; null: nothing to do.
template <typename device>
uint32_t run_hook(uint32_t (*hook)(device**), device** handle) {
    return hook == nullptr ? NORV_STATUS_OK : hook(handle);
}

// The last step of closing, after the region was unmapped.
void release(mapped_device* device);

// Announces a PCI identity to a driver through its "new_id".
uint32_t announce_pci_id(const char* new_id, int32_t vendor, int32_t device);

// Fills in the fields that the lines of a PCI device's uevent file hold.
uint32_t read_pci_identity(const char* uevent, norv_uio_info_t* info);

}  // namespace norv

struct norv_uio : norv::mapped_device {};
struct norv_umcb : norv::mapped_device {};
