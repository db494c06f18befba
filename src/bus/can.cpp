// SPDX-License-Identifier: MIT
// CAN through raw CAN sockets.
#include "norv_linux_can.h"

#include <fcntl.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>

#include "bus/transfer.hpp"
#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/list.hpp"
#include "core/status.hpp"
#include "norv_base.h"

namespace {

// A node of a circular list, or the list's head.
struct list_node {
    list_node* next;
    list_node* prev;
};

}  // namespace

struct norv_linux_can {
    norv_linux_can_t** owner;    // where the caller keeps the handle; never read
    const char* interface_name;  // quirk 62: the caller's text
    norv_mutex_t lock;
    list_node channels;  // newest first
};

struct norv_linux_can_raw {
    list_node node;  // its pointers are null while the channel is not in the list
    uint32_t kind;
    int32_t descriptor;
    uint8_t nonblocking;
    norv_linux_can_t* context;
    ifreq request;
    sockaddr_can address;
    can_filter filters[2];
    uint8_t with_alternative;
    uint8_t linked;  // unlike the node, not written when a neighbour changes, so it is read without the lock
};

NORV_LAYOUT(norv_linux_can_raw, sizeof(norv_linux_can_raw), node, kind, descriptor, nonblocking, context,
            request, address, filters, with_alternative);
static_assert(IFNAMSIZ == 16 && sizeof(sockaddr_can) == 24 && sizeof(can_filter) == 8 &&
              sizeof(can_frame) == 16);

namespace {

constexpr uint32_t raw_channel = CAN_RAW;  // a channel's kind is its socket's protocol; there is only one

struct wanted_channel {
    uint8_t nonblocking;
    uint32_t identifier;
    uint32_t alternative_identifier;
    uint8_t with_alternative;
};

// ---- The list of channels ----

norv_linux_can_raw_t* channel_of(list_node* node) {
    return reinterpret_cast<norv_linux_can_raw_t*>(node);  // a channel begins with its node
}

void link_first(norv_linux_can_t& can, norv_linux_can_raw_t& channel) {
    norv::list_add(can.channels, channel.node);
    channel.linked = 1;
}

void unlink(norv_linux_can_raw_t& channel) {
    norv::list_del(channel.node);
    channel.node = {nullptr, nullptr};
    channel.linked = 0;
}

// quirk 63, quirk 64: only the main identifier is compared, and a dead channel is found like any other.
norv_linux_can_raw_t* find(norv_linux_can_t& can, uint32_t identifier) {
    for (list_node* node = can.channels.next; node != &can.channels; node = node->next) {
        norv_linux_can_raw_t* channel = channel_of(node);
        if (channel->filters[0].can_id == identifier) {
            return channel;
        }
    }
    return nullptr;
}

// ---- One channel ----

norv_linux_can_raw_t* allocate(norv_linux_can_t& can, const wanted_channel& wanted) {
    auto* channel = static_cast<norv_linux_can_raw_t*>(norv_zalloc(sizeof(norv_linux_can_raw_t)));
    if (channel == nullptr) {
        return nullptr;
    }
    channel->kind = raw_channel;
    channel->descriptor = -1;
    channel->nonblocking = wanted.nonblocking;
    channel->context = &can;
    norv_strncpy(channel->request.ifr_name, can.interface_name, IFNAMSIZ);
    // quirk 65: only the 11 bits of a standard identifier are compared.
    channel->filters[0] = {wanted.identifier, CAN_SFF_MASK};
    channel->filters[1] = {wanted.alternative_identifier, CAN_SFF_MASK};
    channel->with_alternative = wanted.with_alternative;
    return channel;
}

void release(norv_linux_can_raw_t* channel) {
    norv::close_descriptor(channel->descriptor);
    norv_free(channel);
}

uint32_t set_nonblocking(int32_t descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    const uint32_t status = norv::status_of(flags);
    // quirk 69: without a socket, both calls are made.
    if (status != NORV_STATUS_OK && descriptor >= 0) {
        return status;
    }
    const int known_flags = flags < 0 ? 0 : flags;
    // quirk 70: even if the flag is set already.
    const uint32_t set_status = norv::status_of(fcntl(descriptor, F_SETFL, known_flags | O_NONBLOCK));
    NORV_TRY(status);
    return set_status;
}

uint32_t open_socket(norv_linux_can_raw_t& channel) {
    channel.descriptor = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, static_cast<int>(channel.kind));
    const uint32_t status = norv::status_of(channel.descriptor);
    // quirk 69: the status of a failed socket(2) gives way to that of fcntl(2) on the missing descriptor.
    return channel.nonblocking != 0 ? set_nonblocking(channel.descriptor) : status;
}

uint32_t set_option(int32_t descriptor, int option, const void* value, size_t size) {
    return norv::status_of(setsockopt(descriptor, SOL_CAN_RAW, option, value, static_cast<socklen_t>(size)));
}

uint32_t set_filters(const norv_linux_can_raw_t& channel) {
    const size_t count = channel.with_alternative != 0 ? 2 : 1;
    return set_option(channel.descriptor, CAN_RAW_FILTER, channel.filters, count * sizeof(can_filter));
}

uint32_t disable_loopback(const norv_linux_can_raw_t& channel) {
    const int off = 0;
    return set_option(channel.descriptor, CAN_RAW_LOOPBACK, &off, sizeof off);
}

uint32_t bind_to_interface(norv_linux_can_raw_t& channel) {
    channel.address.can_family = AF_CAN;
    channel.address.can_ifindex = channel.request.ifr_ifindex;
    const int result =
        bind(channel.descriptor, reinterpret_cast<const sockaddr*>(&channel.address), sizeof channel.address);
    // quirk 66: the negated result is used instead of errno. A failure gives 1, which is EPERM.
    return norv_get_status_by_errno(static_cast<uint32_t>(-result));
}

// Opens the socket of a channel. After a failure the socket stays open until the channel is removed.
uint32_t connect_channel(norv_linux_can_raw_t& channel) {
    NORV_TRY(open_socket(channel));
    NORV_TRY(norv::device_ioctl(channel.descriptor, SIOCGIFINDEX, &channel.request));
    NORV_TRY(set_filters(channel));
    NORV_TRY(disable_loopback(channel));
    return bind_to_interface(channel);
}

uint32_t add(norv_linux_can_t& can, const wanted_channel& wanted, norv_linux_can_raw_t** channel) {
    norv_linux_can_raw_t* added = allocate(can, wanted);
    if (added == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const uint32_t status = connect_channel(*added);
    if (status == NORV_STATUS_OK) {
        link_first(can, *added);
    }
    if (channel != nullptr) {
        *channel = added;  // quirk 67: even after a failure, for the caller to remove
    } else if (status != NORV_STATUS_OK) {
        release(added);  // no one else has a pointer to it
    }
    return status;
}

// ---- Shared by the exported functions ----

// quirk 71: takes no lock.
uint32_t find_or_add(norv_linux_can_t** can, const wanted_channel& wanted, norv_linux_can_raw_t** channel) {
    if (!norv::is_open(can)) {
        return NORV_STATUS_INVALID_ARG;
    }
    norv_linux_can_raw_t* found = find(**can, wanted.identifier);
    if (found == nullptr) {
        return add(**can, wanted, channel);
    }
    if (channel != nullptr) {
        *channel = found;
    }
    return NORV_STATUS_OK;
}

// quirk 68: without a socket, poll(2) ignores the descriptor -1 and waits.
uint32_t transfer(const norv_linux_can_raw_t* channel, void* buffer, uint32_t* length, int32_t timeout,
                  bool write) {
    return channel == nullptr ? NORV_STATUS_INVALID_ARG
                              : norv::transfer_bytes(channel->descriptor, buffer, length, timeout, write);
}

}  // namespace

uint32_t norv_linux_can_open(const char* interface_name, norv_linux_can_t** can) {
    if (can == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *can = nullptr;
    if (interface_name == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    norv_linux_can_t* opened = nullptr;
    NORV_TRY(norv::allocate_record(opened));
    opened->owner = can;
    opened->interface_name = interface_name;  // quirk 62: callers may change the text
    norv::list_init(opened->channels);
    const uint32_t status = norv_mutex_init(&opened->lock);
    if (status != NORV_STATUS_OK) {
        norv_free(opened);
        return status;
    }
    *can = opened;
    return NORV_STATUS_OK;
}

void norv_linux_can_close(norv_linux_can_t** can) {
    norv_linux_can_t* context = norv::record_of(can);
    if (context == nullptr) {
        return;
    }
    const uint32_t locked = norv_mutex_lock(&context->lock);
    while (!norv::list_empty(context->channels)) {
        norv_linux_can_raw_t* channel = channel_of(context->channels.next);
        unlink(*channel);
        release(channel);
    }
    if (locked == NORV_STATUS_OK) {
        norv_mutex_unlock(&context->lock);
    }
    norv_mutex_destroy(&context->lock);
    norv_free(context);
    *can = nullptr;
}

uint32_t norv_linux_can_raw_add(norv_linux_can_t** can, uint32_t nonblocking, uint32_t identifier,
                                norv_linux_can_raw_t** channel) {
    // quirk 70: only the low byte of the flag counts.
    return find_or_add(can, {static_cast<uint8_t>(nonblocking), identifier, 0, 0}, channel);
}

uint32_t norv_linux_can_raw_add_with_alt_id(norv_linux_can_t** can, uint32_t nonblocking, uint32_t identifier,
                                            uint32_t alternative_identifier, norv_linux_can_raw_t** channel) {
    return find_or_add(can, {static_cast<uint8_t>(nonblocking), identifier, alternative_identifier, 1},
                       channel);
}

uint32_t norv_linux_can_remove(norv_linux_can_raw_t* channel) {
    if (channel == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // The context of a channel that is not in its list may have been closed.
    if (channel->linked == 0) {
        release(channel);
        return NORV_STATUS_OK;
    }
    norv_linux_can_t* context = channel->context;
    NORV_TRY(norv_mutex_lock(&context->lock));
    unlink(*channel);
    release(channel);
    return norv_mutex_unlock(&context->lock);
}

int32_t norv_linux_can_get_fd(norv_linux_can_raw_t* channel) {
    return channel == nullptr ? -1 : channel->descriptor;
}

uint32_t norv_linux_can_write(norv_linux_can_raw_t* channel, const void* buffer, uint32_t* length,
                              int32_t timeout) {
    return transfer(channel, const_cast<void*>(buffer), length, timeout, true);
}

uint32_t norv_linux_can_read(norv_linux_can_raw_t* channel, void* buffer, uint32_t* length, int32_t timeout) {
    return transfer(channel, buffer, length, timeout, false);
}
