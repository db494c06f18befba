// SPDX-License-Identifier: MIT
// DMA buffers beside the bare requests that they must make, on a driver of the kernel that it runs on: needs
// /dev/uio-dma as on the virtual board.
#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <norv/dma.hpp>

#include <cstdint>
#include <cstdlib>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint64_t size = 16384;
constexpr uint32_t moved = 64;

// The driver's requests, as a program without the library makes them.
struct lock_query {
    int32_t descriptor;
    uint32_t count;
};

struct entries_query {
    int32_t descriptor;
    uint32_t count;
    uint64_t array;
};

struct sync_query {
    int32_t descriptor;
    uint32_t direction;
    uint32_t value32;
    uint32_t padding;
    uint64_t value64;
};

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_dma");
}

void bare_map(int descriptor) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    bench::expect(memory != MAP_FAILED, "mmap");
    bench::expect(munmap(memory, size) == 0, "munmap");
}

void map(norv_linux_dma_t** buffer) {
    void* memory = nullptr;
    succeed(norv_linux_dma_map_mem(buffer, &memory));
    succeed(norv_linux_dma_unmap_mem(buffer));
}

void bare_lock(int manager, int descriptor) {
    lock_query query = {descriptor, 0};
    bench::expect(ioctl(manager, _IOWR('U', 1, lock_query), &query) == 0, "lock");
    void* array = calloc(query.count, NORV_LINUX_DMA_SG_ENTRY_SIZE);
    entries_query fetch = {descriptor, query.count, reinterpret_cast<uintptr_t>(array)};
    bench::expect(ioctl(manager, _IOWR('U', 3, entries_query), &fetch) == 0, "entries");
    bench::expect(ioctl(manager, _IOW('U', 2, int32_t), &descriptor) == 0, "unlock");
    free(array);
}

void lock(norv_linux_dma_t** buffer) {
    void* entries = nullptr;
    uint64_t count = 0;
    succeed(norv_linux_dma_lock_mem(buffer, &entries, &count));
    succeed(norv_linux_dma_unlock_mem(buffer));
}

void bare_sync(int descriptor) {
    dma_buf_sync request = {DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ};
    bench::expect(ioctl(descriptor, DMA_BUF_IOCTL_SYNC, &request) == 0, "DMA_BUF_IOCTL_SYNC");
}

void bare_sg_sync(int manager, int descriptor) {
    sync_query request = {descriptor, 0, moved, 0, 0};
    bench::expect(ioctl(manager, _IOW('U', 4, sync_query), &request) == 0, "sync");
}

void add_rows(int manager, norv_linux_dma_t** unlocked, norv_linux_dma_t** locked) {
    const int descriptor = norv_linux_dma_get_fd(unlocked);
    const int locked_descriptor = norv_linux_dma_get_fd(locked);
    bench::add_pair(
        {.name = "norv_linux_dma_map_mem and unmap_mem", .target = 1.05}, [=] { bare_map(descriptor); },
        [=] { map(unlocked); });
    bench::add_pair(
        {.name = "norv_linux_dma_lock_mem and unlock_mem", .target = 1.05},
        [=] { bare_lock(manager, descriptor); }, [=] { lock(unlocked); });
    bench::add_pair(
        {.name = "norv_linux_dma_sync", .target = 1.05}, [=] { bare_sync(descriptor); },
        [=] { succeed(norv_linux_dma_sync(unlocked, false)); });
    bench::add_pair(
        {.name = "norv_linux_dma_sg_sync, 64 bytes", .target = 1.05},
        [=] { bare_sg_sync(manager, locked_descriptor); },
        [=] { succeed(norv_linux_dma_sg_sync(locked, false, 0, moved)); });
}

}  // namespace

int main(int argc, char** argv) {
    const norv::dma_manager manager = norv::dma_manager::open().value();
    const norv::dma_buffer unlocked = norv::dma_buffer::create(manager, size).value();
    norv::dma_buffer locked = norv::dma_buffer::create(manager, size).value();
    locked.lock().value();
    norv_linux_dma_t* handles[] = {unlocked.get(), locked.get()};
    add_rows(manager.descriptor(), &handles[0], &handles[1]);
    return bench::run_rows(argc, argv);
}
