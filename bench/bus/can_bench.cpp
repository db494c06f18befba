// SPDX-License-Identifier: MIT
// CAN transfers beside the bare system calls, over a vxcan pair of the virtual board.
#include <linux/can.h>
#include <poll.h>
#include <unistd.h>
#include <norv/can.hpp>

#include "bus/can_links.hpp"
#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t identifier = 0x123;
constexpr int limit = 1000;  // ms, as a bench that hangs measures nothing

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_can");
}

can_frame make_frame() {
    can_frame frame = {};
    frame.can_id = identifier;
    frame.len = CAN_MAX_DLEN;
    return frame;
}

const can_frame sent = make_frame();
can_frame received;

void wait_for(int descriptor, int16_t events) {
    pollfd request = {descriptor, events, 0};
    bench::expect(poll(&request, 1, limit) == 1, "poll");
}

void bare_write(int descriptor) {
    bench::expect(write(descriptor, &sent, sizeof sent) == sizeof sent, "write");
}

void bare_read(int descriptor) {
    bench::expect(read(descriptor, &received, sizeof received) == sizeof received, "read");
}

// The frame takes its way through the kernel; neither contender may read before it is there.
void bare_exchange(int from, int to) {
    bare_write(from);
    wait_for(to, POLLIN);
    bare_read(to);
}

void exchange(norv_linux_can_raw_t* from, norv_linux_can_raw_t* to) {
    uint32_t length = sizeof sent;
    succeed(norv_linux_can_write(from, &sent, &length, 0));
    wait_for(norv_linux_can_get_fd(to), POLLIN);
    succeed(norv_linux_can_read(to, &received, &length, 0));
}

void bare_waiting_exchange(int from, int to) {
    wait_for(from, POLLOUT);
    bare_exchange(from, to);
}

void waiting_exchange(norv_linux_can_raw_t* from, norv_linux_can_raw_t* to) {
    uint32_t length = sizeof sent;
    succeed(norv_linux_can_write(from, &sent, &length, -1));
    succeed(norv_linux_can_read(to, &received, &length, -1));
}

void add_rows(norv_linux_can_raw_t* near, norv_linux_can_raw_t* far) {
    const int from = norv_linux_can_get_fd(near);
    const int to = norv_linux_can_get_fd(far);
    bench::add_pair(
        {.name = "norv_linux_can_write and read", .target = 1.05}, [=] { bare_exchange(from, to); },
        [=] { exchange(near, far); });
    bench::add_pair(
        {.name = "norv_linux_can_write and read, waiting", .target = 1.05},
        [=] { bare_waiting_exchange(from, to); }, [=] { waiting_exchange(near, far); });
}

}  // namespace

int main(int argc, char** argv) {
    const int refused = norv::board::add_vxcan_pair("bench0", "bench1");
    bench::expect(refused == 0 || refused == EEXIST, "vxcan");
    const norv::can near = norv::can::open("bench0", identifier).value();
    const norv::can far = norv::can::open("bench1", identifier).value();
    add_rows(near.get(), far.get());
    return bench::run_rows(argc, argv);
}
