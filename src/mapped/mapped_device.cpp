// SPDX-License-Identifier: MIT
// Devices of a class whose registers a program maps.
#include "mapped/mapped_device.hpp"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/directory.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_file.h"

namespace norv {
namespace {

constexpr char counted_prefix[] = "uio";
constexpr uint32_t prefix_length = 3;

// The N of an entry's whole name "uioN", or -1.
int32_t index_of(const char* name) {
    if (strncmp(name, counted_prefix, prefix_length) != 0 || name[prefix_length] == '\0') {
        return -1;
    }
    int64_t index = 0;
    for (const char* digit = name + prefix_length; *digit != '\0'; ++digit) {
        if (*digit < '0' || *digit > '9') {
            return -1;
        }
        index = std::min<int64_t>(index * 10 + (*digit - '0'), INT32_MAX);
    }
    return static_cast<int32_t>(index);
}

// quirk 158, quirk 163: the text after the third character of any name, read as a C literal; 0 if it is not a
// number. quirk 77: as a long.
uint32_t literal_index_of(const char* name) {
    return static_cast<uint32_t>(strtol(name + std::min<size_t>(strlen(name), prefix_length), nullptr, 0));
}

template <typename condition>
uint32_t find_link(const char* device_class, uint32_t* index, condition matches) {
    char directory[32];
    snprintf(directory, sizeof directory, "/sys/class/%s/", device_class);
    const directory_entries entries(directory);
    if (!entries.listed()) {
        *index = 0;  // quirk 1: device 0 is opened
        return entries.status();
    }
    for (const dirent* entry : entries) {
        if (entry->d_type == DT_LNK && matches(entry->d_name)) {
            *index = literal_index_of(entry->d_name);
            return NORV_STATUS_OK;
        }
    }
    return NORV_STATUS_NOT_FOUND;
}

bool has_id(const char* device_class, const char* entry, const char* attribute_name, uint16_t id) {
    long number;
    return read_number({"/sys/class/%s/%s/device/%s", device_class, entry, attribute_name},
                       number_base::literal, &number) == NORV_STATUS_OK &&
           static_cast<uint16_t>(number) == id;  // quirk 77
}

void parse_uevent_line(const char* line, norv_uio_info_t* info) {
    // quirk 161: only the fields of a line that is there are set.
    if (strstr(line, "PCI_ID") != nullptr) {
        sscanf(line, "PCI_ID=%04X:%04X", &info->vendor, &info->device);
    } else {  // does nothing for a line with another key
        sscanf(line, "PCI_SLOT_NAME=%04x:%02x:%02x.%d", &info->domain, &info->bus, &info->slot,
               reinterpret_cast<int32_t*>(&info->function));
    }
}

}  // namespace

uint32_t highest_index(const char* directory, int32_t* index) {
    const directory_entries entries(directory);
    NORV_TRY(entries.status());
    *index = -1;
    for (const dirent* entry : entries) {
        *index = std::max(*index, index_of(entry->d_name));
    }
    return *index < 0 ? NORV_STATUS_NOT_FOUND : NORV_STATUS_OK;
}

uint32_t find_by_name(const char* device_class, const char* name, uint32_t* index) {
    return find_link(device_class, index, [=](const char* entry) {
        char text[128];
        return read_text({"/sys/class/%s/%s/name", device_class, entry}, text, last_byte::dropped) ==
                   NORV_STATUS_OK &&
               strcmp(text, name) == 0;
    });
}

uint32_t find_by_pci_id(const char* device_class, uint16_t vendor, uint16_t device, uint32_t* index) {
    return find_link(device_class, index, [=](const char* entry) {
        return has_id(device_class, entry, "vendor", vendor) && has_id(device_class, entry, "device", device);
    });
}

namespace {

// NORV_UIO_KIND_PCI if the device's name is that of the PCI driver, otherwise NORV_UIO_KIND_PLAIN.
uint32_t read_kind(const char* device_class, uint32_t index, const char* pci_driver, uint32_t* kind) {
    char name[128];
    const uint32_t status =
        read_text({"/sys/class/%s/%s%d/name", device_class, device_class, index}, name, last_byte::dropped);
    *kind = strcmp(name, pci_driver) == 0 ? NORV_UIO_KIND_PCI : NORV_UIO_KIND_PLAIN;
    return status;
}

}  // namespace

uint32_t open_node(const char* device_class, uint32_t index, const char* pci_driver, mapped_device& device) {
    device.node.index = index;
    device.node.descriptor = -1;
    NORV_TRY(read_kind(device_class, index, pci_driver, &device.kind));
    return norv_open_device(O_RDWR | O_CLOEXEC, &device.node.descriptor, "/dev/%s%d", device_class,
                            static_cast<int32_t>(index));
}

uint32_t map_region(const char* device_class, mapped_node& node) {
    char size[24];
    NORV_TRY(read_text({"/sys/class/%s/%s%d/maps/map0/size", device_class, device_class, node.index}, size,
                       last_byte::dropped));
    node.map_size = strtoul(size, nullptr, 0);
    node.map =
        mmap(nullptr, memory_size(node.map_size), PROT_READ | PROT_WRITE, MAP_SHARED, node.descriptor, 0);
    return node.map == MAP_FAILED ? errno_status() : NORV_STATUS_OK;
}

void unmap_region(mapped_node& node) {
    if (is_mapped(node)) {
        munmap(node.map, memory_size(node.map_size));
    }
    node.map = nullptr;
}

bool is_mapped(const mapped_node& node) {
    return node.map != nullptr && node.map != MAP_FAILED;
}

void release(mapped_device* device) {
    close_descriptor(device->node.descriptor);
    norv_free(device);
}

uint32_t announce_pci_id(const char* new_id, int32_t vendor, int32_t device) {
    char text[10];
    snprintf(text, sizeof text, "%04x %04x", static_cast<uint16_t>(vendor), static_cast<uint16_t>(device));
    // "new_id" gets these nine characters, without the NUL that most attributes get.
    uint32_t length = sizeof text - 1;
    return norv_write_device(text, &length, "%s", new_id);
}

uint32_t read_pci_identity(const char* uevent, norv_uio_info_t* info) {
    FILE* file = fopen(uevent, "re");
    if (file == nullptr) {
        return errno_status();
    }
    char* line = nullptr;
    size_t size = 0;
    while (getline(&line, &size, file) >= 0) {
        parse_uevent_line(line, info);
    }
    fclose(file);
    free(line);
    return NORV_STATUS_OK;
}

}  // namespace norv
