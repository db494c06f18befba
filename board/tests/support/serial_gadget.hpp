// SPDX-License-Identifier: MIT
// A USB gadget with one serial port, made in configfs and bound to dummy_hcd's controller, whose host is the
// board itself.
#pragma once

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "attribute.hpp"

namespace norv::board {

constexpr const char* gadget_controller = "dummy_udc.0";

class serial_gadget {
  public:
    explicit serial_gadget(const std::string& max_speed = "super-speed") {
        if (access(class_directory, F_OK) != 0) {
            mount("none", "/sys/kernel/config", "configfs", 0, nullptr);
        }
        for (const char* directory : {"", "/strings/0x409", "/configs/c.1", "/functions/acm.usb0"}) {
            mkdir((path + directory).c_str(), 0755);
        }
        write("idVendor", "0x1d6b");
        write("idProduct", "0x0104");
        write("max_speed", max_speed);
        write("strings/0x409/serialnumber", serial_number);
        symlink((path + "/functions/acm.usb0").c_str(), (path + "/configs/c.1/acm.usb0").c_str());
    }
    ~serial_gadget() {
        unbind();
        unlink((path + "/configs/c.1/acm.usb0").c_str());
        for (const char* directory : {"/functions/acm.usb0", "/configs/c.1", "/strings/0x409", ""}) {
            rmdir((path + directory).c_str());
        }
    }
    serial_gadget(const serial_gadget&) = delete;
    serial_gadget& operator=(const serial_gadget&) = delete;

    void bind() { write("UDC", gadget_controller); }
    void unbind() { write("UDC", "\n"); }

    // Whether the host has the gadget among its devices.
    static bool is_at_host() {
        for (const auto& device : std::filesystem::directory_iterator("/sys/bus/usb/devices")) {
            if (attribute(device.path().string() + "/serial") == serial_number) {
                return true;
            }
        }
        return false;
    }

  private:
    static constexpr const char* class_directory = "/sys/kernel/config/usb_gadget";
    static constexpr const char* serial_number = "norv-board-1";

    void write(const char* name, const std::string& value) const {
        std::ofstream(path + "/" + name) << value << std::flush;
    }

    const std::string path = std::string(class_directory) + "/norv";
};

}  // namespace norv::board
