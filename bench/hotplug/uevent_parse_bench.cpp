// SPDX-License-Identifier: MIT
// Received uevent messages, which are parsed, beside the bare recv(2). Sends the messages itself, which takes
// CAP_NET_ADMIN, as on the virtual board.
#include <norv_uevent_parse.h>

#include <cstdint>
#include <vector>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/uevents.hpp"

int main(int argc, char** argv) {
    const norv_uevent_parse_settings_t settings = {NORV_UEVENT_FILTER_USB, bench::buffer_size, nullptr,
                                                   nullptr};
    norv_uevent_parse_t* parser = nullptr;
    bench::expect(norv_uevent_parse_open(&parser, &settings) == NORV_STATUS_OK, "norv_uevent_parse_open");
    const int descriptor = norv_uevent_parse_get_fd(&parser);
    const bench::sender sender(descriptor);
    std::vector<uint8_t> buffer(bench::buffer_size);
    bench::add_pair(
        {.name = "norv_uevent_parse_poll, 16 messages sent and received", .target = 1.3},
        [&] {
            sender.send();
            bench::bare_receive(descriptor, buffer.data());
        },
        [&] {
            sender.send();
            norv_uevent_parse_poll(&parser);
        });
    const int result = bench::run_rows(argc, argv);
    norv_uevent_parse_close(&parser);
    return result;
}
