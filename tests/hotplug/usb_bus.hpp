// SPDX-License-Identifier: MIT
// USB devices and their nodes in sysfs, for an enumeration. Entries are listed in the order in which they are
// added here.
#pragma once

#include <linux/videodev2.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "support/kernel_double.hpp"

namespace norv::test {

inline std::string lines(std::initializer_list<std::string> texts) {
    std::string content;
    for (const std::string& text : texts) {
        content += text + "\n";
    }
    return content;
}

class usb_bus {
  public:
    explicit usb_bus(kernel_double& kernel) : kernel_(kernel) {
        kernel.add_directory("/sys/bus/usb/devices");
    }

    // A root hub, and its entry on the bus.
    void add_root_hub(const std::string& name = "usb1") {
        add_device(name, "001", "Host Controller");
        add_bus_entry(name, name);
    }

    // An entry of the bus: a link to a directory below the host controller.
    void add_bus_entry(const std::string& name, const std::string& path) {
        kernel_.add_link("/sys/bus/usb/devices/" + name, "../../../devices/pci0/" + path);
    }

    // A device; the path is below the host controller.
    void add_device(const std::string& path, const std::string& number, const std::string& product_name) {
        add_uevent(path, lines({"MAJOR=189", "MINOR=" + number, "DEVNAME=bus/usb/001/" + number,
                                "DEVTYPE=usb_device", "DRIVER=usb", "PRODUCT=46d/825/" + number}));
        kernel_.add_file(place(path) + "/product", product_name + "\n");
    }

    // A device node of one of a device's interfaces.
    void add_node(const std::string& path, const std::string& devname, const std::string& major = "81",
                  const std::string& minor = "5") {
        add_uevent(path, lines({"MAJOR=" + major, "MINOR=" + minor, "DEVNAME=" + devname}));
    }

    void add_uevent(const std::string& path, const std::string& content) {
        kernel_.add_file(place(path) + "/uevent", content);
    }

    static std::string place(const std::string& path) { return "/sys/devices/pci0/" + path; }

  private:
    kernel_double& kernel_;
};

// A video node: a camera's picture node can capture, its metadata node cannot.
class video_node : public device {
  public:
    explicit video_node(bool can_capture) : can_capture_(can_capture) {}

    v4l2_fmtdesc asked = {};

    long ioctl(unsigned long request, void* argument) override {
        if (request != VIDIOC_ENUM_FMT) {
            return -ENOTTY;
        }
        asked = *static_cast<const v4l2_fmtdesc*>(argument);
        return can_capture_ ? 0 : -EINVAL;
    }

  private:
    bool can_capture_;
};

}  // namespace norv::test
