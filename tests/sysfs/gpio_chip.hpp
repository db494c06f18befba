// SPDX-License-Identifier: MIT
// The sysfs side of a GPIO chip: exporting a line creates its directory, unexporting removes it.
#pragma once

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

// The "value" file of a line. An edge stays signalled until the value has been read from its start.
class gpio_value : public device {
  public:
    char level = '0';
    bool edge = false;
    int interruptions = 0;           // number of polls that a signal interrupts first
    std::vector<int> poll_timeouts;  // of every poll
    std::vector<short> poll_events;
    std::vector<std::string> written;

    long read(void* buffer, size_t size, off_t offset) override {
        if (offset != 0) {
            return 0;
        }
        edge = false;
        const std::string text = {level, '\n'};
        return static_cast<long>(text.copy(static_cast<char*>(buffer), size));
    }
    long write(const void* buffer, size_t size, off_t) override {
        written.emplace_back(static_cast<const char*>(buffer), size);
        level = written.back()[0];
        return static_cast<long>(size);
    }
    long poll(short events, int timeout) override {
        poll_events.push_back(events);
        poll_timeouts.push_back(timeout);
        if (interruptions > 0) {
            --interruptions;
            return -EINTR;
        }
        return edge ? events : 0;
    }
};

// A chip with 32 lines, as the kernel shows it.
class gpio_chip {
  public:
    explicit gpio_chip(kernel_double& kernel) : kernel_(kernel) {
        kernel.add_file("/sys/class/gpio/export");
        kernel.add_file("/sys/class/gpio/unexport");
        kernel.on_write("/sys/class/gpio/export",
                        [this](std::string_view text) { return export_line(text); });
        kernel.on_write("/sys/class/gpio/unexport", [this](std::string_view text) {
            kernel_.remove(directory(std::string(text.substr(0, text.size() - 1))));
            return 0;
        });
    }

    std::shared_ptr<gpio_value> value = std::make_shared<gpio_value>();

    int export_line(std::string_view text) {
        const std::string number(text.data());
        if (std::stoi(number) >= 32) {
            return EINVAL;
        }
        for (const char* attribute : {"direction", "edge", "active_low"}) {
            kernel_.add_file(directory(number) + "/" + attribute);
        }
        kernel_.add_device(directory(number) + "/value", value);
        return 0;
    }

  private:
    static std::string directory(const std::string& number) { return "/sys/class/gpio/gpio" + number; }

    kernel_double& kernel_;
};

}  // namespace norv::test
