// SPDX-License-Identifier: MIT
// UMCB devices as the kernel shows them: entries of /sys/class/umcb, their nodes, and the descriptors of
// their interrupt sources.
#pragma once

#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "mapped/uio_devices.hpp"

namespace norv::test {

// A request as the driver received it. `argument` holds the bytes of a record.
struct umcb_request {
    unsigned long number;
    std::string argument;

    bool operator==(const umcb_request&) const = default;
};

inline umcb_request received(unsigned long number, const void* argument) {
    const size_t size = _IOC_SIZE(number);
    if (size == 0) {
        return {number, argument == nullptr ? "" : "an argument that should be 0"};
    }
    return {number, std::string(static_cast<const char*>(argument), size)};
}

// The bytes of 32-bit words, as a driver receives them.
inline std::string bytes_of(std::initializer_list<uint32_t> values) {
    return {reinterpret_cast<const char*>(std::data(values)), values.size() * sizeof(uint32_t)};
}

// An interrupt source; `pending` is its event.
class umcb_source : public polled_device {
  public:
    std::vector<umcb_request> requests;

    long ioctl(unsigned long number, void* argument) override {
        requests.push_back(received(number, argument));
        if (number == 0x7202) {
            pending = 0;
        }
        return number >= 0x7200 && number <= 0x7202 ? 0 : -ENOTTY;
    }
};

// A node with one page of registers, which hands out its sources.
class umcb_node : public uio_node {
  public:
    explicit umcb_node(kernel_double& kernel) : kernel_(kernel) {}

    std::vector<umcb_request> requests;
    std::shared_ptr<umcb_source> source = std::make_shared<umcb_source>();

    long ioctl(unsigned long number, void* argument) override {
        requests.push_back(received(number, argument));
        switch (number) {
            case 0x40046D00:
            case 0x40046D04:
            case 0x6D01:
            case 0x6D02:
                return 0;
            case 0xC0086D03:
                return hand_out(static_cast<uint32_t*>(argument));
            default:
                return -ENOTTY;
        }
    }

  private:
    long hand_out(uint32_t* registration) {
        registration[1] = static_cast<uint32_t>(kernel_.hand_out("umcb-irq", source));
        return 0;
    }

    kernel_double& kernel_;
};

// Adds a device: `entry` is its name in the class directory, for instance "umcb0".
inline std::shared_ptr<umcb_node> add_umcb(kernel_double& kernel, const std::string& entry,
                                           const std::string& name) {
    auto node = std::make_shared<umcb_node>(kernel);
    add_mapped_device(kernel, "umcb", entry, name, node);
    return node;
}

// Adds a PCI device.
inline std::shared_ptr<umcb_node> add_pci_umcb(kernel_double& kernel, const std::string& entry,
                                               const std::string& vendor = "0x1234",
                                               const std::string& device = "0x11e8") {
    auto node = add_umcb(kernel, entry, "umcb_pci_mmap");
    add_pci_attributes(kernel, entry, "umcb_pci_generic", vendor, device);
    return node;
}

}  // namespace norv::test
