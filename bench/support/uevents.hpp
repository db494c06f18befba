// SPDX-License-Identifier: MIT
// Uevent messages that a program sends to its own socket, which takes CAP_NET_ADMIN, and their bare reception.
#pragma once

#include <linux/netlink.h>
#include <sys/socket.h>
#include <norv/file.hpp>

#include <cstdint>
#include <string>

#include "support/expect.hpp"

namespace bench {

constexpr uint32_t buffer_size = 8192;
constexpr int burst = 16;

// What most messages are like: they say nothing about the list.
inline const std::string& message() {
    using namespace std::string_literals;
    static const std::string text =
        "bind@/devices/pci0000:00/0000:00:08.0/usb1/1-1/1-1:1.0\0ACTION=bind\0"
        "DEVPATH=/devices/pci0000:00/0000:00:08.0/usb1/1-1/1-1:1.0\0SUBSYSTEM=usb\0DEVTYPE=usb_interface\0"
        "DRIVER=usbhid\0PRODUCT=627/1/0\0TYPE=0/0/0\0INTERFACE=3/1/1\0"
        "MODALIAS=usb:v0627p0001d0000dc00dsc00dp00ic03isc01ip01in00\0SEQNUM=1234\0"s;
    return text;
}

// Sends messages to one socket.
class sender {
  public:
    explicit sender(int receiver) {
        socklen_t size = sizeof receiver_;
        expect(getsockname(receiver, reinterpret_cast<sockaddr*>(&receiver_), &size) == 0, "getsockname");
        receiver_.nl_groups = 0;
    }

    void send() const {
        for (int number = 0; number < burst; ++number) {
            expect(sendto(socket_.descriptor(), message().data(), message().size(), 0,
                          reinterpret_cast<const sockaddr*>(&receiver_), sizeof receiver_) > 0,
                   "sendto");
        }
    }

  private:
    const norv::file socket_ =
        norv::file::adopt(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)).value();
    sockaddr_nl receiver_ = {};
};

inline void bare_receive(int descriptor, uint8_t* buffer) {
    int received = 0;
    while (recv(descriptor, buffer, buffer_size, 0) > 0) {
        ++received;
    }
    expect(received >= burst, "recv");
}

}  // namespace bench
