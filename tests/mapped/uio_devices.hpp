// SPDX-License-Identifier: MIT
// UIO devices as the kernel shows them: entries of /sys/class/uio and their nodes.
#pragma once

#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "norv_uio.h"
#include "support/kernel_double.hpp"
#include "support/standard_input.hpp"

namespace norv::test {

// A device with events that a test raises and poll(2) reports.
class polled_device : public device {
  public:
    uint32_t pending = 0;    // events that were not taken
    short ready_events = 0;  // also reported by poll(2), for instance POLLERR
    int interruptions = 0;   // number of polls that a signal interrupts first
    std::vector<int> poll_timeouts;
    std::vector<short> poll_events;

    long poll(short events, int timeout) override {
        poll_events.push_back(events);
        poll_timeouts.push_back(timeout);
        if (interruptions > 0) {
            --interruptions;
            return -EINTR;
        }
        return static_cast<long>((pending > 0 ? events : 0) | ready_events);
    }
};

// A node with one page of registers and an interrupt that tests raise; a read takes all pending ones.
class uio_node : public polled_device {
  public:
    alignas(4096) std::array<uint32_t, 1024> registers = {};
    std::vector<size_t> read_sizes;
    std::vector<uint32_t> control;  // the values that were written
    bool takes_control = true;      // otherwise a write takes no bytes
    // How region 0 was last mapped.
    size_t mapped_size = 0;
    int protection = 0;
    int flags = 0;
    off_t offset = -1;

    long read(void* buffer, size_t size, off_t) override {
        read_sizes.push_back(size);
        memcpy(buffer, &pending, size < sizeof pending ? size : sizeof pending);
        pending = 0;
        return static_cast<long>(size);
    }
    long write(const void* buffer, size_t size, off_t) override {
        uint32_t value = 0;
        memcpy(&value, buffer, size < sizeof value ? size : sizeof value);
        control.push_back(value);
        return takes_control ? static_cast<long>(size) : 0;
    }
    intptr_t map(size_t size, int given_protection, int given_flags, off_t given_offset) override {
        mapped_size = size;
        protection = given_protection;
        flags = given_flags;
        offset = given_offset;
        return reinterpret_cast<intptr_t>(registers.data());
    }
};

// A model that gets descriptor 0: the process loses its standard input just before.
template <typename model>
class at_descriptor_0 : public model {
  public:
    using model::model;

    long open(int /*flags*/) override {
        without_input_.emplace();
        return 0;
    }

  private:
    std::optional<no_standard_input> without_input_;
};

// The beginning of a device's record, for tests that give it another table of operations.
template <typename operations>
struct device_record {
    uint32_t index;
    int32_t descriptor;
    void* map;
    uint64_t map_size;
    uint32_t kind;
    const operations* ops;
};

// A size that a 64-bit unsigned long can hold; a 32-bit one gets its largest value.
constexpr char large_size[] = "0x8000000000001000";
constexpr size_t large_size_read = sizeof(long) == 8 ? static_cast<size_t>(0x8000000000001000) : ULONG_MAX;

// Shows a node as an entry of a class, for instance "uio0" of "uio".
inline void add_mapped_device(kernel_double& kernel, const std::string& device_class,
                              const std::string& entry, const std::string& name,
                              std::shared_ptr<device> node) {
    const std::string directory = "/sys/devices/platform/" + entry;
    kernel.add_file(directory + "/name", name + "\n");
    kernel.add_file(directory + "/maps/map0/size", "0x0000000000001000\n");
    kernel.add_link("/sys/class/" + device_class + "/" + entry, directory);
    kernel.add_device("/dev/" + entry, std::move(node));
}

// Adds the attributes that such an entry has on a PCI device.
inline void add_pci_attributes(kernel_double& kernel, const std::string& entry, const std::string& driver,
                               const std::string& vendor, const std::string& device) {
    const std::string directory = "/sys/devices/platform/" + entry + "/device";
    kernel.add_file(directory + "/vendor", vendor + "\n");
    kernel.add_file(directory + "/device", device + "\n");
    kernel.add_file(directory + "/uevent", "DRIVER=" + driver +
                                               "\nPCI_CLASS=FF00\nPCI_ID=1234:11E8\nPCI_SUBSYS_ID=1AF4:1100\n"
                                               "PCI_SLOT_NAME=0001:02:1f.3\nMODALIAS=pci:v00001234\n");
}

// Adds a platform device: `entry` is its name in the class directory, for instance "uio0".
inline std::shared_ptr<uio_node> add_uio(kernel_double& kernel, const std::string& entry,
                                         const std::string& name) {
    auto node = std::make_shared<uio_node>();
    add_mapped_device(kernel, "uio", entry, name, node);
    return node;
}

// The first node that was opened, or "none".
inline std::string opened_node(const kernel_double& kernel) {
    for (const auto& made : kernel.calls("open")) {
        if (made.path.starts_with("/dev/")) {
            return made.path;
        }
    }
    return "none";
}

// Kind, vendor, device, domain, bus, slot, function.
inline std::array<uint32_t, 7> words_of(const norv_uio_info_t& info) {
    return std::bit_cast<std::array<uint32_t, 7>>(info);
}

// The search by identity skips a device whose identity cannot be read.
inline bool hides_identity(const strike& struck) {
    const bool of_search = struck.path.ends_with("/vendor") || struck.path.ends_with("/device/device");
    return of_search && struck.how == fault::kind::error && struck.name != "close";
}

// An error while the uevent file is read is its end.
inline bool ends_uevent_file(const strike& struck) {
    return struck.name == "getline" || struck.name == "fclose";
}

// A configuration space: the standard header, with the command register at 4 and 5.
inline std::string configuration_space(char command_high_byte) {
    std::string space(256, '\0');
    space[4] = 0x06;
    space[5] = command_high_byte;
    return space;
}

// Adds a PCI device of the driver "uio_pci_mmap".
inline std::shared_ptr<uio_node> add_pci_uio(kernel_double& kernel, const std::string& entry,
                                             const std::string& vendor = "0x1234",
                                             const std::string& device = "0x11e8") {
    auto node = add_uio(kernel, entry, "uio_pci_mmap");
    add_pci_attributes(kernel, entry, "uio_pci_mmap", vendor, device);
    kernel.add_file("/sys/devices/platform/" + entry + "/device/config", configuration_space(0));
    return node;
}

}  // namespace norv::test
