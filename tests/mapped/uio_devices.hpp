// UIO devices as the kernel shows them: entries of /sys/class/uio and their nodes.
#pragma once

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

// A node with one page of registers and an interrupt that tests raise.
class uio_node : public device {
  public:
    alignas(4096) std::array<uint32_t, 1024> registers = {};
    uint32_t pending = 0;    // interrupts since the last read; a read takes them all
    short ready_events = 0;  // reported by poll besides, for instance POLLERR
    int interruptions = 0;   // so many polls are interrupted by a signal first
    std::vector<int> poll_timeouts;
    std::vector<short> poll_events;
    std::vector<size_t> read_sizes;
    std::vector<uint32_t> control;  // the values that were written
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
        return static_cast<long>(size);
    }
    long poll(short events, int timeout) override {
        poll_events.push_back(events);
        poll_timeouts.push_back(timeout);
        if (interruptions > 0) {
            --interruptions;
            return -EINTR;
        }
        return static_cast<long>((pending > 0 ? events : 0) | ready_events);
    }
    intptr_t map(size_t size, int given_protection, int given_flags, off_t given_offset) override {
        mapped_size = size;
        protection = given_protection;
        flags = given_flags;
        offset = given_offset;
        return reinterpret_cast<intptr_t>(registers.data());
    }
};

// Adds a platform device: `entry` is its name in the class directory, for instance "uio0".
inline std::shared_ptr<uio_node> add_uio(kernel_double& kernel, const std::string& entry,
                                         const std::string& name) {
    const std::string place = "/sys/devices/platform/" + entry;
    auto node = std::make_shared<uio_node>();
    kernel.add_file(place + "/name", name + "\n");
    kernel.add_file(place + "/maps/map0/size", "0x0000000000001000\n");
    kernel.add_link("/sys/class/uio/" + entry, place);
    kernel.add_device("/dev/" + entry, node);
    return node;
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
    const std::string place = "/sys/devices/platform/" + entry + "/device";
    kernel.add_file(place + "/vendor", vendor + "\n");
    kernel.add_file(place + "/device", device + "\n");
    kernel.add_file(place + "/config", configuration_space(0));
    kernel.add_file(place + "/uevent",
                    "DRIVER=uio_pci_mmap\nPCI_CLASS=FF00\nPCI_ID=1234:11E8\nPCI_SUBSYS_ID=1AF4:1100\n"
                    "PCI_SLOT_NAME=0001:02:1f.3\nMODALIAS=pci:v00001234\n");
    return node;
}

}  // namespace norv::test
