// SPDX-License-Identifier: MIT
// DMA buffers of a real kernel: dma-bufs of a driver at /dev/uio-dma, and a device that moves data by DMA.
#include "norv_linux_dma.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "../support/attribute.hpp"

namespace {

using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;

constexpr uint64_t page = 4096;

// A number that the driver reports in debugfs.
uint64_t seen(const std::string& name) {
    return std::stoull(norv::board::attribute("/sys/kernel/debug/norv_board_dma/" + name));
}

// An entry as this driver fills it.
struct entry {
    uint64_t address;
    uint64_t length;
};
static_assert(sizeof(entry) == NORV_LINUX_DMA_SG_ENTRY_SIZE);

class DmaOnBoard : public testing::Test {
  protected:
    DmaOnBoard() {
        buffers_before = seen("buffers");
        EXPECT_EQ(norv_linux_dma_create_mgr(&manager), 0U);
    }
    ~DmaOnBoard() override {
        norv_linux_dma_unmap_mem(&buffer);
        norv_linux_dma_unlock_mem(&buffer);
        norv_linux_dma_destroy(&buffer);
        norv_linux_dma_destory_mgr(&manager);
        EXPECT_EQ(seen("buffers"), buffers_before);
        EXPECT_EQ(seen("locks"), 0U);
    }

    std::string about_descriptor() {
        return norv::board::attribute("/proc/self/fdinfo/" + std::to_string(norv_linux_dma_get_fd(&buffer)));
    }
    std::vector<entry> lock() {
        void* entries = nullptr;
        uint64_t count = 0;
        EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
        const auto* first = static_cast<const entry*>(entries);
        return {first, first + count};
    }
    char* map() {
        void* memory = nullptr;
        EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
        return static_cast<char*>(memory);
    }

    uint64_t buffers_before = 0;
    int32_t manager = -1;
    norv_linux_dma_t* buffer = nullptr;
};

// ---- manager

TEST_F(DmaOnBoard, TheManagerIsTheDriversNodeOpenForReading) {
    EXPECT_EQ(fcntl(manager, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(manager, F_GETFL) & O_ACCMODE, O_RDONLY);
    char target[32] = {};
    EXPECT_GT(readlink(("/proc/self/fd/" + std::to_string(manager)).c_str(), target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "/dev/uio-dma");
}

TEST_F(DmaOnBoard, DestroyingTheManagerReleasesItsDescriptor) {
    const int32_t descriptor = manager;
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(manager, -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// ---- kinds of memory

struct kind_of_memory {
    const char* name;
    uint32_t (*create)(int32_t*, uint64_t, norv_linux_dma_t**);
    const char* exporter;
    size_t pieces_of_three_pages;
};

class DmaKindOnBoard : public DmaOnBoard, public testing::WithParamInterface<kind_of_memory> {};

TEST_P(DmaKindOnBoard, IsADmaBufOfThatKindAndSize) {
    ASSERT_EQ(GetParam().create(&manager, 3 * page, &buffer), 0U);
    EXPECT_EQ(seen("buffers"), buffers_before + 1);
    EXPECT_THAT(about_descriptor(), EndsWith(std::string("\nexp_name:\t") + GetParam().exporter));
    EXPECT_THAT(about_descriptor(), HasSubstr("size:\t12288\n"));
    EXPECT_THAT(norv::board::attribute("/sys/kernel/debug/dma_buf/bufinfo"), HasSubstr(GetParam().exporter));
}

TEST_P(DmaKindOnBoard, KeepsWhatIsWrittenToItsMapping) {
    ASSERT_EQ(GetParam().create(&manager, 3 * page, &buffer), 0U);
    char* memory = map();
    EXPECT_THAT(std::string(memory, 3 * page), Each('\0'));
    memcpy(memory + 2 * page - 4, "over the edge", 13);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_EQ(std::string(map() + 2 * page - 4, 13), "over the edge");
}

TEST_P(DmaKindOnBoard, ItsEntriesCoverTheWholeBuffer) {
    ASSERT_EQ(GetParam().create(&manager, 3 * page, &buffer), 0U);
    const std::vector<entry> entries = lock();
    ASSERT_THAT(entries, SizeIs(GetParam().pieces_of_three_pages));
    for (const entry& piece : entries) {
        EXPECT_NE(piece.address, 0U);
        EXPECT_EQ(piece.address % page, 0U);
        EXPECT_EQ(piece.length, 3 * page / entries.size());
    }
    EXPECT_EQ(seen("locks"), 1U);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    EXPECT_EQ(seen("locks"), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    OfMemory, DmaKindOnBoard,
    testing::Values(kind_of_memory{"Default", norv_linux_dma_create_mem, "norv_board_dma_default", 3},
                    kind_of_memory{"Kmalloc", norv_linux_dma_create_by_kmalloc, "norv_board_dma_kmalloc", 1},
                    kind_of_memory{"Cma", norv_linux_dma_create_by_cma, "norv_board_dma_cma", 1},
                    kind_of_memory{"Reserved", norv_linux_dma_create_by_reserved, "norv_board_dma_reserved",
                                   1}),
    [](const auto& kind) { return kind.param.name; });

// Memory of this process, in whole pages.
class own_pages {
  public:
    explicit own_pages(size_t size)
        : size_(size),
          address_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~own_pages() { munmap(address_, size_); }
    own_pages(const own_pages&) = delete;
    own_pages& operator=(const own_pages&) = delete;

    char* get() const { return static_cast<char*>(address_); }

  private:
    size_t size_;
    void* address_;
};

TEST_F(DmaOnBoard, MemoryOfTheProcessIsTheBuffersMemory) {
    const own_pages own(2 * page);
    memcpy(own.get() + page, "written before", 14);
    ASSERT_EQ(norv_linux_dma_create_by_user_ptr(&manager, own.get(), 2 * page, &buffer), 0U);
    EXPECT_THAT(about_descriptor(), EndsWith("\nexp_name:\tnorv_board_dma_user"));
    char* memory = map();
    EXPECT_EQ(std::string(memory + page, 14), "written before");
    memcpy(memory, "through the buffer", 18);
    EXPECT_EQ(std::string(own.get(), 18), "through the buffer");
    EXPECT_THAT(lock(), SizeIs(2));
}

TEST_F(DmaOnBoard, MemoryThatTheProcessDoesNotHaveIsRefused) {
    auto* const nobodys = reinterpret_cast<void*>(16 * page);
    EXPECT_EQ(norv_linux_dma_create_by_user_ptr(&manager, nobodys, page, &buffer),
              NORV_STATUS_ERRNO_BASE + EFAULT);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(norv_linux_dma_create_by_user_ptr(&manager, nullptr, page, &buffer),
              NORV_STATUS_ERRNO_BASE + EFAULT);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(DmaOnBoard, MoreMemoryThanAKindHasIsRefused) {
    EXPECT_EQ(norv_linux_dma_create_by_kmalloc(&manager, 8 << 20, &buffer), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 1ULL << 40, &buffer), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(DmaOnBoard, ReservedMemoryIsFreeAgainAfterItsBufferIsDestroyed) {
    norv_linux_dma_t* second = nullptr;
    ASSERT_EQ(norv_linux_dma_create_by_reserved(&manager, 256 << 10, &buffer), 0U);
    EXPECT_EQ(norv_linux_dma_create_by_reserved(&manager, page, &second), NORV_STATUS_NO_MEMORY);
    norv_linux_dma_destroy(&buffer);
    EXPECT_EQ(norv_linux_dma_create_by_reserved(&manager, page, &second), 0U);
    norv_linux_dma_destroy(&second);
}

TEST_F(DmaOnBoard, ABufferOfNoBytesIsRefused) {
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 0, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer, nullptr);
}

// ---- adopted descriptors

TEST_F(DmaOnBoard, AnAdoptedBufferIsTheSameMemoryAndStaysOpen) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    const int32_t descriptor = norv_linux_dma_get_fd(&buffer);
    norv_linux_dma_t* adopted = nullptr;
    ASSERT_EQ(norv_linux_dma_create_by_fd(&manager, descriptor, page, &adopted), 0U);
    void* memory = nullptr;
    ASSERT_EQ(norv_linux_dma_map_mem(&adopted, &memory), 0U);
    memcpy(map(), "shared", 6);
    EXPECT_EQ(memcmp(memory, "shared", 6), 0);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&adopted), 0U);
    norv_linux_dma_destroy(&adopted);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
}

TEST_F(DmaOnBoard, AFileThatIsNotADmaBufCanBeAdoptedButNotUsed) {
    const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(norv_linux_dma_create_by_fd(&manager, null_device, page, &buffer), 0U);
    void* entries = nullptr;
    uint64_t count = 0;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_sync(&buffer, false), NORV_STATUS_ERRNO_BASE + ENOTTY);
    close(null_device);
}

TEST_F(DmaOnBoard, AMappingBeyondTheEndOfTheBufferIsRefused) {
    norv_linux_dma_t* adopted = nullptr;
    void* memory = this;
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    norv_linux_dma_create_by_fd(&manager, norv_linux_dma_get_fd(&buffer), 2 * page, &adopted);
    EXPECT_EQ(norv_linux_dma_map_mem(&adopted, &memory), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(memory, nullptr);
    norv_linux_dma_destroy(&adopted);
}

// ---- destroy

TEST_F(DmaOnBoard, ABufferDestroyedWhileMappedKeepsItsMemory) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    char* memory = map();
    norv_linux_dma_destroy(&buffer);
    memcpy(memory, "still here", 10);
    EXPECT_EQ(std::string(memory, 10), "still here");
    EXPECT_EQ(seen("buffers"), buffers_before + 1);
    EXPECT_EQ(munmap(memory, page), 0);
    EXPECT_EQ(seen("buffers"), buffers_before);
}

// ---- lock

TEST_F(DmaOnBoard, ThisDriverRefusesASecondLockAndTheEntriesStay) {
    ASSERT_EQ(norv_linux_dma_create_by_kmalloc(&manager, page, &buffer), 0U);
    void* entries = nullptr;
    uint64_t count = 0;
    ASSERT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    void* const first = entries;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), NORV_STATUS_ERRNO_BASE + EBUSY);
    EXPECT_EQ(entries, first);
    EXPECT_EQ(static_cast<const entry*>(first)->length, page);
}

TEST_F(DmaOnBoard, ThisDriverRefusesToUnlockWhatIsNotLocked) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), NORV_STATUS_INVALID_ARG);
}

TEST_F(DmaOnBoard, ABufferCanBeLockedAgainAfterItWasUnlocked) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, 2 * page, &buffer), 0U);
    const uint64_t address = lock().at(0).address;
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    EXPECT_EQ(lock().at(0).address, address);
}

// ---- synchronise

TEST_F(DmaOnBoard, ATransferIsStartedForReadingAndEndedForWriting) {
    constexpr uint64_t to_device = 1;
    constexpr uint64_t from_device = 2;
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    const uint64_t begins = seen("begins");
    const uint64_t ends = seen("ends");
    EXPECT_EQ(norv_linux_dma_sync(&buffer, false), 0U);
    EXPECT_EQ(seen("begins"), begins + 1);
    EXPECT_EQ(seen("ends"), ends);
    EXPECT_EQ(seen("begin_direction"), from_device);
    EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
    EXPECT_EQ(seen("begins"), begins + 1);
    EXPECT_EQ(seen("ends"), ends + 1);
    EXPECT_EQ(seen("end_direction"), to_device);
}

TEST_F(DmaOnBoard, TheDeviceCopiesDataFromOneBufferToAnother) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, 3 * page, &buffer), 0U);
    norv_linux_dma_t* other = nullptr;
    ASSERT_EQ(norv_linux_dma_create_by_cma(&manager, page, &other), 0U);
    void* entries = nullptr;
    uint64_t count = 0;
    ASSERT_EQ(norv_linux_dma_lock_mem(&other, &entries, &count), 0U);
    lock();
    memcpy(map() + page - 6, "over the edge", 13);
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, false, page - 6, 13), 0U);
    EXPECT_EQ(seen("sg_sync_direction"), 0U);
    EXPECT_EQ(seen("sg_sync_value64"), page - 6);
    EXPECT_EQ(seen("sg_sync_value32"), 13U);
    EXPECT_EQ(norv_linux_dma_sg_sync(&other, true, 100, 13), 0U);
    EXPECT_EQ(seen("sg_sync_direction"), 1U);
    void* memory = nullptr;
    ASSERT_EQ(norv_linux_dma_map_mem(&other, &memory), 0U);
    EXPECT_EQ(std::string(static_cast<const char*>(memory) + 100, 13), "over the edge");
    EXPECT_EQ(norv_linux_dma_unlock_mem(&other), 0U);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&other), 0U);
    norv_linux_dma_destroy(&other);
}

// Starts the device, which sees only what was synchronised.
class StartedDeviceOnBoard : public DmaOnBoard {
  protected:
    StartedDeviceOnBoard() {
        EXPECT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
        memory = map();
        address = lock().at(0).address;
        EXPECT_EQ(norv_linux_dma_sync(&buffer, false), 0U);
        memcpy(memory, "old", 3);
        EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
    }

    // `operation` is "take" or "put".
    bool start(const std::string& operation, uint64_t at) const {
        std::ofstream file("/sys/kernel/debug/norv_board_dma/" + operation);
        file << at << " 3" << std::flush;
        return file.good();
    }
    std::string taken() const {
        EXPECT_TRUE(start("take", address));
        return norv::board::attribute("/sys/kernel/debug/norv_board_dma/memory").substr(0, 3);
    }

    char* memory = nullptr;
    uint64_t address = 0;
};

TEST_F(StartedDeviceOnBoard, ReadsWhatWasWrittenBeforeTheLastEndOfATransfer) {
    memcpy(memory, "new", 3);
    EXPECT_EQ(taken(), "old");
    EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
    EXPECT_EQ(taken(), "new");
}

TEST_F(StartedDeviceOnBoard, WritesWhatTheProcessReadsAfterTheNextStartOfATransfer) {
    EXPECT_EQ(taken(), "old");
    memcpy(memory, "new", 3);
    EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
    EXPECT_TRUE(start("put", address));
    EXPECT_EQ(std::string(memory, 3), "new");
    EXPECT_EQ(norv_linux_dma_sync(&buffer, false), 0U);
    EXPECT_EQ(std::string(memory, 3), "old");
}

TEST_F(StartedDeviceOnBoard, CannotReachABufferThatIsNotLocked) {
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    EXPECT_FALSE(start("take", address));
    lock();
    EXPECT_TRUE(start("take", address));
}

TEST_F(DmaOnBoard, TheCallersValuesReachTheDriverWithAllTheirBits) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    lock();
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, true, 0xFEDCBA9876543210, 0x89ABCDEF), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(seen("sg_sync_value64"), 0xFEDCBA9876543210U);
    EXPECT_EQ(seen("sg_sync_value32"), 0x89ABCDEFU);
}

// ---- soak

// Fills a buffer, lets the device read it, and releases everything.
void run_transfers(int32_t* manager, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        norv_linux_dma_t* buffer = nullptr;
        void* memory = nullptr;
        void* entries = nullptr;
        uint64_t count = 0;
        ASSERT_EQ(norv_linux_dma_create_mem(manager, 2 * page, &buffer), 0U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U) << "round " << round;
        ASSERT_EQ(count, 2U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_sync(&buffer, false), 0U) << "round " << round;
        memset(memory, round & 0xFF, 2 * page);
        ASSERT_EQ(norv_linux_dma_sync(&buffer, true), 0U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_sg_sync(&buffer, false, 0, 64), 0U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U) << "round " << round;
        ASSERT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U) << "round " << round;
        norv_linux_dma_destroy(&buffer);
    }
}

TEST_F(DmaOnBoard, TenThousandTransfersLeaveNothingBehind) {
    run_transfers(&manager, 10'000);
}

TEST_F(DmaOnBoard, OneManagerServesBuffersOfSeveralThreads) {
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back(run_transfers, &manager, 500);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// A program that exits, or destroys its manager, without unlocking.
TEST_F(DmaOnBoard, AClosedManagerHoldsNoLockAndIsABadDescriptor) {
    ASSERT_EQ(norv_linux_dma_create_mem(&manager, page, &buffer), 0U);
    lock();
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(seen("locks"), 0U);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), NORV_STATUS_ERRNO_BASE + EBADF);
}

}  // namespace
