// SPDX-License-Identifier: MIT
// Uevent messages as the fuzzer likes them. Each line of the input is a message; a vertical bar in it stands
// for the NUL between two texts.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "norv_uevent_parse.h"
#include "support/kernel_file.hpp"

namespace {

std::string waiting;

void check(const norv_uevent_device_list_t& list) {
    uint32_t count = 0;
    for (const norv_uevent_link_t* link = list.devices.next; link != &list.devices; link = link->next) {
        fuzz::require(link->next->prev == link);
        const auto* device = reinterpret_cast<const norv_uevent_device_t*>(link);
        for (const auto* text : {&device->syspath, &device->subsystem, &device->devnode, &device->devtype,
                                 &device->product, &device->product_name}) {
            fuzz::require(strnlen(*text, sizeof *text) < sizeof *text);
        }
        fuzz::require(device->child_count <= 1);
        ++count;
    }
    fuzz::require(count == list.count);
}

}  // namespace

// Found before the C library's: what the library receives is the fuzzer's.
extern "C" ssize_t recv(int, void* buffer, size_t size, int) {
    if (waiting.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const size_t end = std::min(waiting.find('\n'), waiting.size());
    std::string message = waiting.substr(0, end);
    waiting.erase(0, end + 1);
    std::replace(message.begin(), message.end(), '|', '\0');
    return static_cast<ssize_t>(message.copy(static_cast<char*>(buffer), size));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint8_t product_name[] = "Product\n";
    const fuzz::kernel_file everything_opened(product_name, sizeof product_name - 1);
    const norv_uevent_parse_settings_t settings = {NORV_UEVENT_FILTER_DISPLAY, 512, nullptr, nullptr};
    norv_uevent_parse_t* parser = nullptr;
    const norv_uevent_device_list_t* list = nullptr;
    waiting.assign(reinterpret_cast<const char*>(data), size);

    fuzz::require(norv_uevent_parse_open(&parser, &settings) == NORV_STATUS_OK);
    norv_uevent_parse_set_filter(&parser, NORV_UEVENT_FILTER_USB | NORV_UEVENT_FILTER_DISPLAY);
    fuzz::require(norv_uevent_parse_get_device(&parser, &list) == NORV_STATUS_OK);
    while (!waiting.empty()) {
        norv_uevent_parse_poll(&parser);  // ends at an empty message
        check(*list);
    }
    norv_uevent_parse_close(&parser);
    return 0;
}
