// SPDX-License-Identifier: MIT
// A model of the hot-plug parser's rules, to compare its list with.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "norv_uevent_parse.h"

namespace norv::test {

struct modelled_device {
    std::string syspath;
    std::vector<std::string> children;  // device nodes
};

class uevent_parse_model {
  public:
    explicit uevent_parse_model(std::function<bool(const std::string& devnode)> captures)
        : captures_(std::move(captures)) {}

    void add(const std::string& devpath) {
        devices.push_back({"/sys" + devpath, {}});
        report("0", devices.back());
    }

    void add_node(const std::string& devpath, const std::string& subsystem, const std::string& devname) {
        const auto parent = std::find_if(devices.begin(), devices.end(), [&](const modelled_device& device) {
            return ("/sys" + devpath).starts_with(device.syspath);
        });
        if (parent == devices.end()) {
            reported.emplace_back("head");
        } else if (parent->children.empty()) {
            if (subsystem != "video4linux" || captures_("/dev/" + devname)) {
                parent->children.push_back("/dev/" + devname);
            }
            report("0", *parent);
        }
    }

    void remove(const std::string& devpath) {
        const auto goes = [&](const modelled_device& device) {
            return devpath.find(device.syspath.substr(4)) != std::string::npos;
        };
        for (const modelled_device& device : devices) {
            if (goes(device)) {
                report("1", device);
            }
        }
        std::erase_if(devices, goes);
    }

    // A line for each device: its path and its nodes.
    std::vector<std::string> describe() const {
        std::vector<std::string> lines;
        for (const modelled_device& device : devices) {
            std::string line = device.syspath;
            for (const std::string& child : device.children) {
                line += " " + child;
            }
            lines.push_back(line);
        }
        return lines;
    }

    std::vector<modelled_device> devices;
    std::vector<std::string> reported;  // "ACTION SYSPATH" of each call of the handler, or "head"

  private:
    void report(const std::string& action, const modelled_device& device) {
        reported.push_back(action + " " + device.syspath);
    }

    std::function<bool(const std::string&)> captures_;
};

}  // namespace norv::test
