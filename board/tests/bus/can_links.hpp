// SPDX-License-Identifier: MIT
// CAN interfaces of a real kernel, set up through rtnetlink, like `ip link` but without that program.
#pragma once

#include <linux/can/netlink.h>
#include <linux/can/vxcan.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace norv::board {

// One request that creates, changes or deletes an interface.
class link_request {
  public:
    // `flags` besides those of each request: NLM_F_CREATE | NLM_F_EXCL creates an interface.
    explicit link_request(uint16_t flags, uint16_t type = RTM_NEWLINK) {
        nlmsghdr header = {};
        header.nlmsg_type = type;
        header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
        append(&header, sizeof header);
    }

    // The interface that the following attributes concern; `up` is its new state.
    void add_interface(const std::string& name, bool up) {
        ifinfomsg interface = {};
        interface.ifi_change = IFF_UP;
        interface.ifi_flags = up ? static_cast<unsigned int>(IFF_UP) : 0U;
        append(&interface, sizeof interface);
        add(IFLA_IFNAME, name.c_str(), name.size() + 1);
    }

    void add(uint16_t type, const void* data, size_t size) {
        add_nested(type, [&] { append(data, size); });
    }

    template <typename filling>
    void add_nested(uint16_t type, filling fill) {
        const size_t start = bytes_.size();
        rtattr attribute = {0, type};
        append(&attribute, sizeof attribute);
        fill();
        attribute.rta_len = static_cast<uint16_t>(bytes_.size() - start);
        memcpy(&bytes_[start], &attribute, sizeof attribute);
        bytes_.resize(RTA_ALIGN(bytes_.size()));
    }

    // 0, or the errno of the refusal.
    int send() {
        const auto size = static_cast<uint32_t>(bytes_.size());
        memcpy(bytes_.data(), &size, sizeof size);  // a message starts with its length
        const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        struct {
            nlmsghdr header;
            nlmsgerr outcome;
            char request[1024];  // is returned after the result
        } answer = {};
        const bool answered =
            ::send(descriptor, bytes_.data(), bytes_.size(), 0) == static_cast<ssize_t>(bytes_.size()) &&
            recv(descriptor, &answer, sizeof answer, 0) > 0;
        const int error = answered ? -answer.outcome.error : errno;
        close(descriptor);
        return error;
    }

  private:
    void append(const void* data, size_t size) { bytes_.append(static_cast<const char*>(data), size); }

    std::string bytes_;
};

inline int set_up(const std::string& interface, bool up = true) {
    link_request request(0);
    request.add_interface(interface, up);
    return request.send();
}

// Creates a pair of interfaces on one wire, and sets both up. The kernel loads its module for them.
inline int add_vxcan_pair(const std::string& first, const std::string& second) {
    link_request request(NLM_F_CREATE | NLM_F_EXCL);
    request.add_interface(first, false);
    request.add_nested(IFLA_LINKINFO, [&] {
        request.add(IFLA_INFO_KIND, "vxcan", 5);
        request.add_nested(IFLA_INFO_DATA, [&] {
            request.add_nested(VXCAN_INFO_PEER, [&] { request.add_interface(second, false); });
        });
    });
    const int error = request.send();
    if (error != 0) {
        return error;
    }
    const int first_error = set_up(first);
    return first_error != 0 ? first_error : set_up(second);
}

// Deletes an interface; the peer of a vxcan interface is deleted too.
inline int delete_link(const std::string& interface) {
    link_request request(0, RTM_DELLINK);
    request.add_interface(interface, false);
    return request.send();
}

// Sets the bit rate of a CAN card, and sets it up.
inline int start_card(const std::string& interface, uint32_t bits_per_second) {
    can_bittiming timing = {};
    timing.bitrate = bits_per_second;
    link_request request(0);
    request.add_interface(interface, true);
    request.add_nested(IFLA_LINKINFO, [&] {
        request.add(IFLA_INFO_KIND, "can", 3);
        request.add_nested(IFLA_INFO_DATA, [&] { request.add(IFLA_CAN_BITTIMING, &timing, sizeof timing); });
    });
    return request.send();
}

}  // namespace norv::board
