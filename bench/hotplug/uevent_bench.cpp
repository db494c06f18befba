// SPDX-License-Identifier: MIT
// Received uevent messages, which are handed on as they are, beside the bare recv(2). Sends the messages itself, which
// takes CAP_NET_ADMIN, as on the virtual board.
#include <norv/uevent.hpp>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/uevents.hpp"

namespace {

void count(const uint8_t*, int64_t, void* user) {
    ++*static_cast<int*>(user);
}

void hand_on(norv_uevent_t* uevent) {
    int received = 0;
    bench::expect(norv_uevent_poll(uevent, count, &received) == NORV_STATUS_OK, "norv_uevent_poll");
    bench::expect(received >= bench::burst, "norv_uevent_poll");
}

}  // namespace

int main(int argc, char** argv) {
    norv::uevent events = norv::uevent::open(bench::buffer_size).value();
    norv_uevent_t* uevent = events.get();
    const bench::sender sender(uevent->fd);
    bench::add_pair(
        {.name = "norv_uevent_poll, 16 messages sent and received", .target = 1.05},
        [&] {
            sender.send();
            bench::bare_receive(uevent->fd, uevent->buffer);
        },
        [&] {
            sender.send();
            hand_on(uevent);
        });
    return bench::run_rows(argc, argv);
}
