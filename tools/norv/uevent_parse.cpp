// SPDX-License-Identifier: MIT
// norv usb: USB devices, and the camera, input or sound node that each brought.
#include <map>

#include "command.hpp"
#include "failure.hpp"
#include "norv_uevent_parse.h"
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
    for (const auto* link = device.children.next; link != &device.children; link = link->next) {
        line += "  " + node_words(*reinterpret_cast<const norv_uevent_child_t*>(link));
    }
    return line;
}

json document(const norv_uevent_device_t& device) {
    json nodes = json::array();
    for (const auto* link = device.children.next; link != &device.children; link = link->next) {
        const auto& node = *reinterpret_cast<const norv_uevent_child_t*>(link);
        nodes.push_back({{"subsystem", node.subsystem}, {"node", node.devnode}, {"path", node.syspath}});
    }
    return {{"node", device.devnode},
            {"product", device.product},
            {"name", device.product_name},
            {"path", device.syspath},
            {"nodes", nodes}};
}

// The list of the devices; `handler` is called for changes while it lives.
class device_list {
  public:
    device_list(norv_uevent_parse_handler handler, void* user) {
        const norv_uevent_parse_settings_t settings{
            .filter = NORV_UEVENT_FILTER_USB, .buffer_size = 8192, .handler = handler, .user = user};
        must("usb", norv_uevent_parse_open(&parser_, &settings), usual);
        must("usb", norv_uevent_parse_get_device(&parser_, &list_), usual);
    }
    ~device_list() { norv_uevent_parse_close(&parser_); }
    device_list(const device_list&) = delete;
    device_list& operator=(const device_list&) = delete;

    int descriptor() { return norv_uevent_parse_get_fd(&parser_); }
    void poll() { must("usb", norv_uevent_parse_poll(&parser_), usual); }

    // A node that belongs to no device is reported with the list's head in place of one.
    bool holds(const norv_uevent_device_t* device) const { return &device->link != &list_->devices; }

    template <typename Visit>
    void each(Visit visit) const {
        for (const auto* link = list_->devices.next; link != &list_->devices; link = link->next) {
            visit(*reinterpret_cast<const norv_uevent_device_t*>(link));
        }
    }

  private:
    norv_uevent_parse_t* parser_ = nullptr;
    const norv_uevent_device_list_t* list_ = nullptr;
};

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "List the devices: node, vendor/product/version, name, child node";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    void run() {
        std::string table = "DEVICE               PRODUCT        NAME";
        json documents = json::array();
        device_list{nullptr, nullptr}.each([&](const norv_uevent_device_t& device) {
            table += "\n" + words(device);
            documents.push_back(document(device));
        });
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
        device_list followed{on_change, this};
        devices = &followed;
        followed.each([&](const norv_uevent_device_t& device) { show("present", device); });
        while (is_wanted() && patient.wait("usb", followed.descriptor(), POLLIN)) {
            followed.poll();
            failed.rethrow();
        }
    }

  private:
    device_list* devices = nullptr;               // null while it is filled: `run` shows what was found then
    std::map<std::string, uint32_t> known_nodes;  // of each device that was shown
    uint32_t seen = 0;
    callback_failure failed;

    bool is_wanted() const { return count == 0 || seen < count; }

    static void on_change(const norv_uevent_device_t* device, void* user) noexcept {
        auto& self = *static_cast<watch*>(user);
        self.failed.keep_from([&] {
            if (self.devices != nullptr && self.devices->holds(device) && self.is_wanted()) {
                self.take(*device);
            }
        });
    }

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
        const double now = static_cast<double>(norv_time_get_us()) / 1e6;
        json shown{{"time", now}, {"event", event}};
        shown.update(document(device));
        out.show(text("%14.6f  %-7s  %s", now, event, words(device).c_str()), shown);
    }
};

const group usb{"usb", "USB devices and their nodes", with_commands<list, watch>};

}  // namespace

}  // namespace norv::tool
