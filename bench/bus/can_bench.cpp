// SPDX-License-Identifier: MIT
// CAN transfers beside the bare system calls, over a vxcan pair of the virtual board.
#include <linux/can.h>
#include <norv_linux_can.h>
#include <poll.h>
#include <unistd.h>

#include "bus/can_links.hpp"
#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t identifier = 0x123;
constexpr int limit = 1000;  // ms, as a bench that hangs measures nothing

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_can");
}

// A channel on one end of the wire.
class channel {
  public:
    explicit channel(const char* interface) {
        succeed(norv_linux_can_open(interface, &can_));
        succeed(norv_linux_can_raw_add(&can_, 1, identifier, &raw_));
    }
    ~channel() { norv_linux_can_close(&can_); }
    channel(const channel&) = delete;
    channel& operator=(const channel&) = delete;

    norv_linux_can_raw_t* get() const { return raw_; }
    int descriptor() const { return norv_linux_can_get_fd(raw_); }

  private:
    norv_linux_can_t* can_ = nullptr;
    norv_linux_can_raw_t* raw_ = nullptr;
};

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

void exchange(const channel& from, const channel& to) {
    uint32_t length = sizeof sent;
    succeed(norv_linux_can_write(from.get(), &sent, &length, 0));
    wait_for(to.descriptor(), POLLIN);
    succeed(norv_linux_can_read(to.get(), &received, &length, 0));
}

void bare_waiting_exchange(int from, int to) {
    wait_for(from, POLLOUT);
    bare_exchange(from, to);
}

void waiting_exchange(const channel& from, const channel& to) {
    uint32_t length = sizeof sent;
    succeed(norv_linux_can_write(from.get(), &sent, &length, -1));
    succeed(norv_linux_can_read(to.get(), &received, &length, -1));
}

void add_rows(const channel& near, const channel& far) {
    const int from = near.descriptor();
    const int to = far.descriptor();
    bench::add_pair(
        {.name = "norv_linux_can_write and read", .target = 1.05}, [=] { bare_exchange(from, to); },
        [&] { exchange(near, far); });
    bench::add_pair(
        {.name = "norv_linux_can_write and read, waiting", .target = 1.05},
        [=] { bare_waiting_exchange(from, to); }, [&] { waiting_exchange(near, far); });
}

}  // namespace

int main(int argc, char** argv) {
    const int refused = norv::board::add_vxcan_pair("bench0", "bench1");
    bench::expect(refused == 0 || refused == EEXIST, "vxcan");
    const channel near("bench0");
    const channel far("bench1");
    add_rows(near, far);
    return bench::run_rows(argc, argv);
}
