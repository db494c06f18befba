// SPDX-License-Identifier: MIT
// The interface of the driver at /dev/uio-dma, which has no header of its own.
#pragma once

#include <sys/ioctl.h>

#include <cstddef>
#include <cstdint>

namespace norv::dma_driver {

enum allocation_type : uint32_t {
    type_default = 0,
    type_kmalloc = 1,
    type_cma = 2,
    type_user_pointer = 3,
    type_reserved = 4,
    type_adopted = 5,  // the library's own: the driver is not called
};

struct create_request {
    uint64_t size;
    uint32_t type;
    uint32_t reserved;
    int32_t descriptor;
    uint32_t padding;
    uint64_t address;
};

struct lock_request {
    int32_t descriptor;
    uint32_t count;
};

struct entries_request {
    int32_t descriptor;
    uint32_t count;
    uint64_t array;
};

struct sync_request {
    int32_t descriptor;
    uint32_t direction;
    uint32_t value32;
    uint32_t padding;
    uint64_t value64;
};

static_assert(sizeof(create_request) == 32 && offsetof(create_request, type) == 8 &&
              offsetof(create_request, reserved) == 12 && offsetof(create_request, descriptor) == 16 &&
              offsetof(create_request, address) == 24);
static_assert(sizeof(lock_request) == 8 && offsetof(lock_request, count) == 4);
static_assert(sizeof(entries_request) == 16 && offsetof(entries_request, count) == 4 &&
              offsetof(entries_request, array) == 8);
static_assert(sizeof(sync_request) == 24 && offsetof(sync_request, direction) == 4 &&
              offsetof(sync_request, value32) == 8 && offsetof(sync_request, value64) == 16);

constexpr unsigned long request_create = _IOWR('U', 0, create_request);
constexpr unsigned long request_lock = _IOWR('U', 1, lock_request);
constexpr unsigned long request_unlock = _IOW('U', 2, int32_t);
constexpr unsigned long request_entries = _IOWR('U', 3, entries_request);
constexpr unsigned long request_sync = _IOW('U', 4, sync_request);

static_assert(request_create == 0xC0205500 && request_lock == 0xC0085501 && request_unlock == 0x40045502 &&
              request_entries == 0xC0105503 && request_sync == 0x40185504);

}  // namespace norv::dma_driver
