// SPDX-License-Identifier: MIT
// The socket on which the kernel sends uevent messages.
#pragma once

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "core/status.hpp"

namespace norv {

inline int bind_to_all_groups(int descriptor) {
    sockaddr_nl address = {};  // port 0: the kernel assigns one
    address.nl_family = AF_NETLINK;
    address.nl_groups = 0xFFFFFFFF;
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// Opens a non-blocking socket that receives every uevent message. The descriptor is -1 after a failure, even
// one whose errno has the status 0 (quirk 1).
inline uint32_t open_uevent_socket(int32_t& descriptor) {
    descriptor = socket(AF_NETLINK, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (descriptor < 0) {
        return errno_status();
    }
    // Fails without the right to override the system's limit; the default size is then used.
    constexpr int32_t receive_buffer = 65536;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer, sizeof receive_buffer);
    if (bind_to_all_groups(descriptor) == 0) {
        return NORV_STATUS_OK;
    }
    const uint32_t status = errno_status();  // before the close, which may change errno
    close(descriptor);
    descriptor = -1;
    return status;
}

}  // namespace norv
