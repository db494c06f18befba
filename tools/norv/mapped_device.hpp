// SPDX-License-Identifier: MIT
// Devices whose registers are mapped into a program. The classes uio and umcb look alike in sysfs: each
// device has a number, a name, and the size of its region 0, the one that is used.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report.hpp"

namespace norv::tool {

struct pci_identity {
    uint16_t vendor;
    uint16_t device;

    std::string words() const;  // "1234:11e8"
};

// Of words like 1234:11e8, which are hexadecimal, as lspci prints them; nothing for any other.
std::optional<pci_identity> parse_pci_identity(const std::string& words);

// The same; throws usage_error for any other.
pci_identity required_pci_identity(const std::string& words);

struct mapped_device {
    std::string kind;  // "uio"
    uint32_t number;
    std::string name;
    uint64_t size;  // 0: it has no region 0
    std::optional<pci_identity> pci;

    std::string title() const;  // "uio 0"
};

// All devices of a class, by number.
std::vector<mapped_device> mapped_devices(const std::string& kind);

// The device with this number, this name or this PCI identity; the first one that fits. Throws a failure when
// there is none.
mapped_device find_mapped_device(const std::string& kind, const std::string& designation);

void show_mapped_devices(const std::string& kind, const report& out);

}  // namespace norv::tool
