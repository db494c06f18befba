// SPDX-License-Identifier: MIT
// CAN interfaces and the raw sockets on them, which receive the frames that pass their filters.
#pragma once

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

class can_network;

// One raw socket.
class can_socket : public device {
  public:
    can_socket(can_network& network, int socket_type, int socket_protocol)
        : type(socket_type), protocol(socket_protocol), network_(network) {}

    const int type;
    const int protocol;
    std::vector<can_filter> filters = {{0, 0}};  // everything, the kernel's default
    bool loop_back = true;
    int interface = 0;  // index; 0 before the bind
    bool open = true;
    std::string looked_up_name;      // the interface name that was looked up, 16 bytes
    std::deque<can_frame> waiting;   // to be read
    std::deque<can_frame> arriving;  // on the bus during later waits, one in each
    std::vector<int> poll_waits;     // the timeout of each poll
    std::function<void()> on_close = [] {};

    void close() override {
        open = false;
        on_close();
    }
    long ioctl(unsigned long request, void* argument) override;
    long set_option(int level, int name, const void* value, size_t size) override;
    long bind(const void* address, size_t size) override;
    long write(const void* buffer, size_t size, off_t offset) override;

    long read(void* buffer, size_t size, off_t) override {
        if (waiting.empty()) {
            return -EAGAIN;
        }
        const size_t count = std::min(size, sizeof(can_frame));
        memcpy(buffer, &waiting.front(), count);
        waiting.pop_front();
        return static_cast<long>(count);
    }

    long poll(short events, int timeout) override {
        poll_waits.push_back(timeout);
        if (events == POLLOUT) {
            return POLLOUT;
        }
        if (waiting.empty() && !arriving.empty()) {
            waiting.push_back(arriving.front());
            arriving.pop_front();
        }
        return waiting.empty() ? 0 : POLLIN;
    }

    void take_in(const can_frame& frame) {
        const bool passes = std::any_of(filters.begin(), filters.end(), [&](const can_filter& filter) {
            return (frame.can_id & filter.can_mask) == (filter.can_id & filter.can_mask);
        });
        if (open && passes) {
            waiting.push_back(frame);
        }
    }

  private:
    can_network& network_;
};

// The interfaces can0 and can1. It outlives the kernel double to which it is added.
class can_network {
  public:
    std::map<std::string, int> interfaces = {{"can0", 5}, {"can1", 6}};
    std::vector<std::shared_ptr<can_socket>> sockets;  // in the order in which they were opened
    std::map<int, std::vector<can_frame>> sent;        // the frames on the bus, by interface

    void add_to(kernel_double& kernel) {
        kernel.add_socket_family(AF_CAN, [this](int type, int protocol) { return open(type, protocol); });
    }

    std::shared_ptr<can_socket> open(int type, int protocol) {
        sockets.push_back(std::make_shared<can_socket>(*this, type, protocol));
        return sockets.back();
    }

    // A socket of another process on an interface, which receives everything.
    std::shared_ptr<can_socket> other_socket(const std::string& interface) {
        const auto socket = open(SOCK_RAW, CAN_RAW);
        socket->interface = interfaces.at(interface);
        return socket;
    }

    // A frame arrives on the bus.
    void arrive(const std::string& interface, const can_frame& frame) {
        deliver(interfaces.at(interface), frame, nullptr);
    }

    void send(const can_socket& sender, const can_frame& frame) {
        sent[sender.interface].push_back(frame);
        if (sender.loop_back) {
            deliver(sender.interface, frame, &sender);
        }
    }

  private:
    void deliver(int interface, const can_frame& frame, const can_socket* sender) {
        for (const auto& socket : sockets) {
            if (socket->interface == interface && socket.get() != sender) {
                socket->take_in(frame);
            }
        }
    }
};

inline long can_socket::ioctl(unsigned long request, void* argument) {
    if (request != SIOCGIFINDEX) {
        return -ENOTTY;
    }
    auto& asked = *static_cast<ifreq*>(argument);
    looked_up_name.assign(asked.ifr_name, IFNAMSIZ);
    asked.ifr_name[IFNAMSIZ - 1] = '\0';
    const auto found = network_.interfaces.find(asked.ifr_name);
    if (found == network_.interfaces.end()) {
        return -ENODEV;
    }
    asked.ifr_ifindex = found->second;
    return 0;
}

inline long can_socket::set_option(int level, int name, const void* value, size_t size) {
    if (level == SOL_CAN_RAW && name == CAN_RAW_FILTER && size % sizeof(can_filter) == 0) {
        filters.resize(size / sizeof(can_filter));
        memcpy(filters.data(), value, size);
        return 0;
    }
    if (level == SOL_CAN_RAW && name == CAN_RAW_LOOPBACK && size == sizeof(int)) {
        loop_back = *static_cast<const int*>(value) != 0;
        return 0;
    }
    return -EINVAL;
}

inline long can_socket::bind(const void* address, size_t size) {
    const auto& wanted = *static_cast<const sockaddr_can*>(address);
    if (size != sizeof wanted || wanted.can_family != AF_CAN) {
        return -EINVAL;
    }
    interface = wanted.can_ifindex;
    return 0;
}

inline long can_socket::write(const void* buffer, size_t size, off_t) {
    if (size != sizeof(can_frame)) {
        return -EINVAL;
    }
    can_frame frame;
    memcpy(&frame, buffer, sizeof frame);
    network_.send(*this, frame);
    return static_cast<long>(size);
}

}  // namespace norv::test
