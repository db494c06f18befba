// SPDX-License-Identifier: MIT
// DMA buffers of the driver at /dev/uio-dma.
#include "norv_linux_dma.h"

#include <fcntl.h>
#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_file.h"

struct norv_linux_dma {
    int32_t* manager;
    int32_t descriptor;
    uint64_t size;
    uint32_t type;
    void* mapping;  // null when not mapped
    void* entries;  // of the lock, null when not locked
};

NORV_LAYOUT(norv_linux_dma, NORV_32_64(32, 48), manager, descriptor, size, type, mapping, entries);

namespace {

// ---- the driver's interface; it has no header

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

NORV_OFFSETS(create_request, 32, size, 0, type, 8, reserved, 12, descriptor, 16, address, 24);
NORV_OFFSETS(lock_request, 8, descriptor, 0, count, 4);
NORV_OFFSETS(entries_request, 16, descriptor, 0, count, 4, array, 8);
NORV_OFFSETS(sync_request, 24, descriptor, 0, direction, 4, value32, 8, value64, 16);

constexpr unsigned long request_create = _IOWR('U', 0, create_request);
constexpr unsigned long request_lock = _IOWR('U', 1, lock_request);
constexpr unsigned long request_unlock = _IOW('U', 2, int32_t);
constexpr unsigned long request_entries = _IOWR('U', 3, entries_request);
constexpr unsigned long request_sync = _IOW('U', 4, sync_request);

static_assert(request_create == 0xC0205500 && request_lock == 0xC0085501 && request_unlock == 0x40045502 &&
              request_entries == 0xC0105503 && request_sync == 0x40185504);

// ---- the requests of a dma-buf

// quirk 88: a start is always for reading, and an end for writing.
constexpr uint64_t start_of_transfer = DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ;
constexpr uint64_t end_of_transfer = DMA_BUF_SYNC_END | DMA_BUF_SYNC_WRITE;

static_assert(DMA_BUF_IOCTL_SYNC == 0x40086200 && start_of_transfer == 1 && end_of_transfer == 6);

// ---- the handle in the caller's variable

void release_handle(norv_linux_dma_t** buffer) {
    norv_free(*buffer);
    *buffer = nullptr;
}

template <typename argument>
uint32_t manager_ioctl(const norv_linux_dma& buffer, unsigned long request, argument* value) {
    return norv::device_ioctl(*buffer.manager, request, value);
}

// ---- create

uint32_t allocate_handle(norv_linux_dma_t** buffer, int32_t* manager, uint64_t size, allocation_type type) {
    if (buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *buffer = nullptr;
    if (manager == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(norv::allocate_record(*buffer));
    **buffer = {manager, -1, size, type, nullptr, nullptr};
    return NORV_STATUS_OK;
}

uint32_t create_memory(norv_linux_dma& buffer, uint64_t address) {
    create_request request = {buffer.size, buffer.type, 0, -1, 0, address};
    NORV_TRY(manager_ioctl(buffer, request_create, &request));
    buffer.descriptor = request.descriptor;
    return NORV_STATUS_OK;
}

uint32_t create(int32_t* manager, uint64_t size, allocation_type type, const void* memory,
                norv_linux_dma_t** buffer) {
    NORV_TRY(allocate_handle(buffer, manager, size, type));
    const uint32_t status = create_memory(**buffer, reinterpret_cast<uintptr_t>(memory));
    if (status != NORV_STATUS_OK) {
        release_handle(buffer);
    }
    return status;
}

// ---- map

uint32_t map_whole(norv_linux_dma& buffer) {
    void* const mapped = mmap(nullptr, norv::memory_size(buffer.size), PROT_READ | PROT_WRITE, MAP_SHARED,
                              buffer.descriptor, 0);
    if (mapped == MAP_FAILED) {
        return norv::errno_status();
    }
    buffer.mapping = mapped;
    return NORV_STATUS_OK;
}

// ---- lock

uint32_t fetch_entries(const norv_linux_dma& buffer, uint32_t count, void* array) {
    entries_request request = {buffer.descriptor, count, reinterpret_cast<uintptr_t>(array)};
    return manager_ioctl(buffer, request_entries, &request);
}

uint32_t obtain_entries(const norv_linux_dma& buffer, uint32_t count, void** array) {
    *array = norv_zalloc(norv::memory_size(uint64_t{count} * NORV_LINUX_DMA_SG_ENTRY_SIZE));
    if (*array == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const uint32_t status = fetch_entries(buffer, count, *array);
    if (status != NORV_STATUS_OK) {
        norv_free(*array);
    }
    return status;
}

void replace_entries(norv_linux_dma& buffer, void* array) {
    norv_free(buffer.entries);
    buffer.entries = array;
}

}  // namespace

uint32_t norv_linux_dma_create_mgr(int32_t* manager) {
    return norv_open_device(O_RDONLY | O_CLOEXEC, manager, "/dev/uio-dma");
}

// quirk 87: programs are linked against the misspelled name.
void norv_linux_dma_destory_mgr(int32_t* manager) {
    if (manager != nullptr) {
        norv::close_descriptor(*manager);
    }
}

uint32_t norv_linux_dma_create_mem(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer) {
    return create(manager, size, type_default, nullptr, buffer);
}

uint32_t norv_linux_dma_create_by_kmalloc(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer) {
    return create(manager, size, type_kmalloc, nullptr, buffer);
}

uint32_t norv_linux_dma_create_by_cma(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer) {
    return create(manager, size, type_cma, nullptr, buffer);
}

uint32_t norv_linux_dma_create_by_user_ptr(int32_t* manager, void* memory, uint64_t size,
                                           norv_linux_dma_t** buffer) {
    return create(manager, size, type_user_pointer, memory, buffer);
}

uint32_t norv_linux_dma_create_by_reserved(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer) {
    return create(manager, size, type_reserved, nullptr, buffer);
}

uint32_t norv_linux_dma_create_by_fd(int32_t* manager, int32_t descriptor, uint64_t size,
                                     norv_linux_dma_t** buffer) {
    NORV_TRY(allocate_handle(buffer, manager, size, type_adopted));
    (*buffer)->descriptor = descriptor;
    return NORV_STATUS_OK;
}

// quirk 89: the mapping and the entries stay. Callers unmap and unlock first, and a mapping may outlive its
// buffer.
void norv_linux_dma_destroy(norv_linux_dma_t** buffer) {
    norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return;
    }
    if (held_buffer->type != type_adopted) {
        norv::close_descriptor(held_buffer->descriptor);
    }
    release_handle(buffer);
}

uint32_t norv_linux_dma_map_mem(norv_linux_dma_t** buffer, void** memory) {
    if (memory == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *memory = nullptr;
    norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // The record keeps one mapping: after a second one, the first could not be unmapped.
    if (held_buffer->mapping == nullptr) {
        NORV_TRY(map_whole(*held_buffer));
    }
    *memory = held_buffer->mapping;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_dma_unmap_mem(norv_linux_dma_t** buffer) {
    norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    if (held_buffer->mapping == nullptr) {
        return NORV_STATUS_OK;
    }
    NORV_TRY(norv::status_of(munmap(held_buffer->mapping, norv::memory_size(held_buffer->size))));
    held_buffer->mapping = nullptr;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_dma_lock_mem(norv_linux_dma_t** buffer, void** entries, uint64_t* count) {
    norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr || entries == nullptr || count == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    lock_request request = {held_buffer->descriptor, 0};
    NORV_TRY(manager_ioctl(*held_buffer, request_lock, &request));
    void* array = nullptr;
    NORV_TRY(obtain_entries(*held_buffer, request.count, &array));
    replace_entries(*held_buffer, array);
    *entries = array;
    *count = request.count;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_dma_unlock_mem(norv_linux_dma_t** buffer) {
    norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = manager_ioctl(*held_buffer, request_unlock, &held_buffer->descriptor);
    // quirk 90: even if the driver has refused.
    replace_entries(*held_buffer, nullptr);
    return status;
}

uint32_t norv_linux_dma_sync(norv_linux_dma_t** buffer, bool end) {
    const norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    dma_buf_sync request = {end ? end_of_transfer : start_of_transfer};
    return norv::device_ioctl(held_buffer->descriptor, DMA_BUF_IOCTL_SYNC, &request);
}

uint32_t norv_linux_dma_sg_sync(norv_linux_dma_t** buffer, bool direction, uint64_t value64,
                                uint32_t value32) {
    const norv_linux_dma* const held_buffer = norv::record_of(buffer);
    if (held_buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    sync_request request = {held_buffer->descriptor, direction ? 1U : 0U, value32, 0, value64};
    return manager_ioctl(*held_buffer, request_sync, &request);
}

int32_t norv_linux_dma_get_fd(norv_linux_dma_t** buffer) {
    const norv_linux_dma* const held_buffer = norv::record_of(buffer);
    return held_buffer != nullptr ? held_buffer->descriptor : -1;
}
