// SPDX-License-Identifier: MIT
// Received uevent messages beside the bare recv(2): handed on as they are, and parsed. Sends the messages
// itself, which takes CAP_NET_ADMIN, as on the virtual board.
#include <linux/netlink.h>
#include <norv_uevent.h>
#include <norv_uevent_parse.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

using namespace std::string_literals;

constexpr uint32_t buffer_size = 8192;
constexpr int burst = 16;

// What most messages are like: they say nothing about the list.
const std::string message =
    "bind@/devices/pci0000:00/0000:00:08.0/usb1/1-1/1-1:1.0\0ACTION=bind\0"
    "DEVPATH=/devices/pci0000:00/0000:00:08.0/usb1/1-1/1-1:1.0\0SUBSYSTEM=usb\0DEVTYPE=usb_interface\0"
    "DRIVER=usbhid\0PRODUCT=627/1/0\0TYPE=0/0/0\0INTERFACE=3/1/1\0"
    "MODALIAS=usb:v0627p0001d0000dc00dsc00dp00ic03isc01ip01in00\0SEQNUM=1234\0"s;

// Sends messages to one socket.
class sender {
  public:
    explicit sender(int receiver) {
        socklen_t size = sizeof receiver_;
        bench::expect(getsockname(receiver, reinterpret_cast<sockaddr*>(&receiver_), &size) == 0,
                      "getsockname");
        receiver_.nl_groups = 0;
    }
    ~sender() { close(descriptor_); }
    sender(const sender&) = delete;
    sender& operator=(const sender&) = delete;

    void send() const {
        for (int number = 0; number < burst; ++number) {
            bench::expect(sendto(descriptor_, message.data(), message.size(), 0,
                                 reinterpret_cast<const sockaddr*>(&receiver_), sizeof receiver_) > 0,
                          "sendto");
        }
    }

  private:
    const int descriptor_ = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    sockaddr_nl receiver_ = {};
};

void bare_receive(int descriptor, uint8_t* buffer) {
    int received = 0;
    while (recv(descriptor, buffer, buffer_size, 0) > 0) {
        ++received;
    }
    bench::expect(received >= burst, "recv");
}

void count(const uint8_t*, int64_t, void* user) {
    ++*static_cast<int*>(user);
}

void hand_on(norv_uevent_t* uevent) {
    int received = 0;
    bench::expect(norv_uevent_poll(uevent, count, &received) == NORV_STATUS_OK, "norv_uevent_poll");
    bench::expect(received >= burst, "norv_uevent_poll");
}

}  // namespace

int main(int argc, char** argv) {
    norv_uevent_t uevent = {buffer_size, 0, nullptr};
    bench::expect(norv_uevent_open(&uevent) == NORV_STATUS_OK, "norv_uevent_open");
    const norv_uevent_parse_settings_t settings = {NORV_UEVENT_FILTER_USB, buffer_size, nullptr, nullptr};
    norv_uevent_parse_t* parser = nullptr;
    bench::expect(norv_uevent_parse_open(&parser, &settings) == NORV_STATUS_OK, "norv_uevent_parse_open");
    const int parser_descriptor = norv_uevent_parse_get_fd(&parser);
    const sender to_uevent(uevent.fd);
    const sender to_parser(parser_descriptor);

    bench::add_pair(
        {.name = "norv_uevent_poll, 16 messages sent and received", .target = 1.05},
        [&] {
            to_uevent.send();
            bare_receive(uevent.fd, uevent.buffer);
        },
        [&] {
            to_uevent.send();
            hand_on(&uevent);
        });
    bench::add_pair(
        {.name = "norv_uevent_parse_poll, 16 messages sent and received", .target = 1.3},
        [&] {
            to_parser.send();
            bare_receive(parser_descriptor, uevent.buffer);
        },
        [&] {
            to_parser.send();
            norv_uevent_parse_poll(&parser);
        });
    const int result = bench::run_rows(argc, argv);
    norv_uevent_parse_close(&parser);
    norv_uevent_close(&uevent);
    return result;
}
