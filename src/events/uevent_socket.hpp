// The socket on which the kernel announces what happens to devices.
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

// Opens a non-blocking socket that receives every uevent message. After a failure, also one whose errno maps
// to 0, the descriptor is -1.
inline uint32_t open_uevent_socket(int32_t& descriptor) {
    descriptor = socket(AF_NETLINK, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (descriptor < 0) {
        return errno_status();
    }
    // Succeeds only with the right to override the system's limit; without it the default has to do.
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
