// SPDX-License-Identifier: MIT
// The kernel's uevent messages, unparsed.
#include "norv_uevent.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "core/layout.hpp"
#include "core/status.hpp"
#include "hotplug/uevent_socket.hpp"

NORV_OFFSETS(norv_uevent_t, NORV_32_64(16, 24), buffer_size, 0, fd, 8);
NORV_LAYOUT(norv_uevent_t, NORV_32_64(16, 24), buffer_size, fd, buffer);

// Sorted for the parser's binary search. quirk 108: writable, because programs were built against it as such.
constinit const char* p_uevent_key[NORV_UEVENT_KEY_COUNT] = {
    "ACTION=", "CONNECTOR=", "DEVNAME=", "DEVPATH=",  "DEVTYPE=",
    "MAJOR=",  "MINOR=",     "PRODUCT=", "SUBSYSTEM="};

namespace {

// A size that this processor cannot address must fail, not be truncated.
uint8_t* allocate_buffer(uint64_t size) {
    return static_cast<uint8_t*>(malloc(static_cast<size_t>(std::min<uint64_t>(size, SIZE_MAX))));
}

uint32_t open_socket_and_buffer(norv_uevent_t* uevent) {
    NORV_TRY(norv::open_uevent_socket(uevent->fd));
    uevent->buffer = allocate_buffer(uevent->buffer_size);
    return uevent->buffer == nullptr ? NORV_STATUS_NO_MEMORY : NORV_STATUS_OK;
}

}  // namespace

uint32_t norv_uevent_open(norv_uevent_t* uevent) {
    if (uevent == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    uevent->buffer = nullptr;
    const uint32_t status = open_socket_and_buffer(uevent);
    if (status != NORV_STATUS_OK) {
        norv_uevent_close(uevent);
    }
    return status;
}

void norv_uevent_close(norv_uevent_t* uevent) {
    if (uevent == nullptr) {
        return;
    }
    if (uevent->fd > 0) {
        close(uevent->fd);
        // quirk 106: 0, because callers test for it.
        uevent->fd = 0;
    }
    free(uevent->buffer);
    uevent->buffer = nullptr;
}

uint32_t norv_uevent_poll(norv_uevent_t* uevent, norv_uevent_handler handler, void* user) {
    if (uevent == nullptr || handler == nullptr || uevent->buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const auto size = static_cast<size_t>(uevent->buffer_size);
    ssize_t length = 0;
    while ((length = recv(uevent->fd, uevent->buffer, size, 0)) > 0) {
        handler(uevent->buffer, length, user);
    }
    // quirk 107: an empty message, which does not set errno, is judged by it too.
    return errno == EAGAIN ? NORV_STATUS_OK : norv::errno_status();
}
