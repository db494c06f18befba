// SPDX-License-Identifier: MIT
// norv usb: USB devices, and the camera, input or sound node that each brought.
#include "norv/uevent_parse.hpp"

#include <map>

#include "command.hpp"
#include "failure.hpp"
#include "patience.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{{NORV_STATUS_NO_MEMORY, "no memory for the list of devices"}};

std::string node_words(const norv_uevent_child_t& node) {
    return printable(node.subsystem) + " " + printable(node.devnode);
}

std::string words(const norv_uevent_device_t& device) {
    std::string line = text("%-20s %-14s %s", printable(device.devnode).c_str(),
                            printable(device.product).c_str(), printable(device.product_name).c_str());
    for (const norv_uevent_child_t& node : norv::uevent_parse::children_of(device)) {
        line += "  " + node_words(node);
    }
    return line;
}

json document(const norv_uevent_device_t& device) {
    json nodes = json::array();
    for (const norv_uevent_child_t& node : norv::uevent_parse::children_of(device)) {
        nodes.push_back({{"subsystem", node.subsystem}, {"node", node.devnode}, {"path", node.syspath}});
    }
    return {{"node", device.devnode},
            {"product", device.product},
            {"name", device.product_name},
            {"path", device.syspath},
            {"nodes", nodes}};
}

norv::uevent_parse open_parser() {
    return must("usb", norv::uevent_parse::open(norv::uevent_parse::filter::usb), usual);
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "List the devices: node, vendor/product/version, name, child node";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    void run() {
        std::string table = "DEVICE               PRODUCT        NAME";
        json documents = json::array();
        const norv::uevent_parse parser = open_parser();
        for (const norv_uevent_device_t& device : must("usb", parser.devices(), usual)) {
            table += "\n" + words(device);
            documents.push_back(document(device));
        }
        out.show(table, documents);
    }
};

struct watch {
    static constexpr auto name = "watch";
    static constexpr auto help =
        "List the devices, and then changes; a hub is removed with a device that was plugged into it";

    uint32_t count = 0;
    patience patient;
    report out;

    void declare(CLI::App& command) {
        command.add_option("-n,--count", count, "exit after this many changes");
        patient.declare(command, "a change");
        out.offer_json(command);
    }

    void run() {
        norv::uevent_parse parser = open_parser();
        for (const norv_uevent_device_t& device : must("usb", parser.devices(), usual)) {
            show("present", device);
        }
        while (is_wanted() && patient.wait("usb", parser.descriptor(), POLLIN)) {
            // Null for a node that belongs to no device.
            const auto on_change = [this](const norv_uevent_device_t* device) {
                if (device != nullptr && is_wanted()) {
                    take(*device);
                }
            };
            must("usb", parser.poll(on_change), usual);
        }
    }

  private:
    std::map<std::string, uint32_t> known_nodes;  // of each device that was shown
    uint32_t seen = 0;

    bool is_wanted() const { return count == 0 || seen < count; }

    // A device is reported again with each node, also with those that it does not get.
    void take(const norv_uevent_device_t& device) {
        const auto known = known_nodes.find(device.syspath);
        if (device.action == NORV_UEVENT_ACTION_REMOVE) {
            count_change("remove", device);
            known_nodes.erase(device.syspath);
        } else if (known == known_nodes.end()) {
            count_change("add", device);
        } else if (known->second != device.child_count) {
            count_change("node", device);
        }
    }

    void count_change(const char* event, const norv_uevent_device_t& device) {
        show(event, device);
        ++seen;
        patient.restart();
    }

    // The time is that of CLOCK_MONOTONIC after the change was noticed.
    void show(const char* event, const norv_uevent_device_t& device) {
        known_nodes[device.syspath] = device.child_count;
        const double now = timestamp();
        json shown{{"time", now}, {"event", event}};
        shown.update(document(device));
        out.show(text("%14.6f  %-7s  %s", now, event, words(device).c_str()), shown);
    }
};

const group usb{"usb", "USB devices and their nodes", with_commands<list, watch>};

}  // namespace

}  // namespace norv::tool
