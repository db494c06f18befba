// SPDX-License-Identifier: MIT
// A hot-plug parser that records the calls of its handler.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "norv_uevent_parse.h"

namespace norv::test {

class recorder {
  public:
    struct call {
        const void* device;
        bool is_head;
        int32_t action;
        uint32_t child_count;
        std::string syspath;
    };

    recorder() = default;
    ~recorder() { norv_uevent_parse_close(&context); }
    recorder(const recorder&) = delete;
    recorder& operator=(const recorder&) = delete;

    uint32_t open(uint32_t filter, uint32_t buffer_size) {
        list_ = nullptr;
        const norv_uevent_parse_settings_t settings = {filter, buffer_size, handle, this};
        return norv_uevent_parse_open(&context, &settings);
    }

    // The list: fetched once, as a handler that is called during open does.
    const norv_uevent_device_list_t* list() {
        if (list_ == nullptr) {
            norv_uevent_parse_get_device(&context, &list_);
        }
        return list_;
    }

    std::vector<const norv_uevent_device_t*> devices() {
        std::vector<const norv_uevent_device_t*> found;
        const norv_uevent_link_t& head = list()->devices;
        for (const norv_uevent_link_t* link = head.next; link != &head; link = link->next) {
            found.push_back(reinterpret_cast<const norv_uevent_device_t*>(link));
        }
        return found;
    }

    std::vector<std::string> syspaths() {
        std::vector<std::string> found;
        for (const norv_uevent_device_t* device : devices()) {
            found.emplace_back(device->syspath);
        }
        return found;
    }

    // A line for each device: its path and its nodes.
    std::vector<std::string> describe() {
        std::vector<std::string> found;
        for (const norv_uevent_device_t* device : devices()) {
            std::string line = device->syspath;
            const norv_uevent_link_t& head = device->children;
            for (const norv_uevent_link_t* link = head.next; link != &head; link = link->next) {
                line += std::string(" ") + reinterpret_cast<const norv_uevent_child_t*>(link)->devnode;
            }
            found.push_back(line);
        }
        return found;
    }

    // "ACTION SYSPATH" of each call, or "head".
    std::vector<std::string> reported() const {
        std::vector<std::string> found;
        for (const call& one : calls) {
            found.push_back(one.is_head ? "head" : std::to_string(one.action) + " " + one.syspath);
        }
        return found;
    }

    norv_uevent_parse_t* context = nullptr;
    std::vector<call> calls;
    std::function<void(const norv_uevent_device_t*)> on_change = [](const norv_uevent_device_t*) {};

  private:
    static void handle(const norv_uevent_device_t* device, void* user) {
        auto* self = static_cast<recorder*>(user);
        const norv_uevent_device_list_t* list = self->list();
        const bool is_head = list != nullptr && &device->link == &list->devices;
        self->calls.push_back(
            is_head ? call{device, true, 0, 0, ""}
                    : call{device, false, device->action, device->child_count, device->syspath});
        self->on_change(device);
    }

    const norv_uevent_device_list_t* list_ = nullptr;
};

}  // namespace norv::test
