// SPDX-License-Identifier: MIT
// DMA buffers.
#include "norv_linux_dma.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "mapped/dma_driver.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"
#include "support/status.hpp"

namespace {

using norv::test::control;
using norv::test::dma_buffer;
using norv::test::dma_manager;
using norv::test::errno_status;
using norv::test::field;
using norv::test::kernel_double;
using norv::test::unmapping;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned long create_request = 0xC0205500;
constexpr unsigned long lock_request = 0xC0085501;
constexpr unsigned long unlock_request = 0x40045502;
constexpr unsigned long entries_request = 0xC0105503;
constexpr unsigned long sg_sync_request = 0x40185504;
constexpr unsigned long whole_sync_request = 0x40086200;

// A board with the driver; nothing is open.
class DmaManager : public testing::Test {
  protected:
    DmaManager() { kernel.add_device("/dev/uio-dma", driver); }

    kernel_double kernel;
    std::shared_ptr<dma_manager> driver = std::make_shared<dma_manager>(kernel);
    int32_t manager = -1;
};

// With an open manager.
class Dma : public DmaManager {
  protected:
    Dma() {
        EXPECT_EQ(norv_linux_dma_create_mgr(&manager), 0U);
        kernel.forget_calls();
    }
    ~Dma() override {
        norv_linux_dma_destroy(&buffer);
        norv_linux_dma_destory_mgr(&manager);
    }

    std::vector<unsigned long> requests() const { return driver->request_numbers(); }
    const std::string& record() const { return driver->requests.back().record; }

    norv_linux_dma_t* buffer = nullptr;
};

// With a buffer of 12288 bytes.
class DmaBuffer : public Dma {
  protected:
    DmaBuffer() {
        EXPECT_EQ(norv_linux_dma_create_mem(&manager, 12288, &buffer), 0U);
        kernel.forget_calls();
        driver->requests.clear();
    }
    ~DmaBuffer() override {
        norv_linux_dma_unmap_mem(&buffer);
        norv_linux_dma_unlock_mem(&buffer);
    }

    dma_buffer& memory_of_driver() const { return *driver->buffers.at(0); }

    void* memory = nullptr;
    void* entries = nullptr;
    uint64_t count = 0;
};

// ---- manager

TEST_F(DmaManager, CreatingTheManagerOpensItsNodeForReading) {
    EXPECT_EQ(norv_linux_dma_create_mgr(&manager), 0U);
    EXPECT_GT(manager, 0);
    EXPECT_THAT(kernel.open_flags("/dev/uio-dma"), ElementsAre(O_RDONLY | O_CLOEXEC));
    norv_linux_dma_destory_mgr(&manager);
}

TEST_F(DmaManager, WithoutTheDriverThereIsNoManager) {
    kernel.remove("/dev/uio-dma");
    manager = 77;
    EXPECT_EQ(norv_linux_dma_create_mgr(&manager), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(manager, -1);
}

TEST_F(DmaManager, AFailedOpenWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel.map_errno(EACCES, 0);
    kernel.fail("open", EACCES);
    EXPECT_EQ(norv_linux_dma_create_mgr(&manager), 0U);
    EXPECT_EQ(manager, -1);
}

// quirk 87
TEST_F(DmaManager, DestroyingTheManagerTwiceClosesNothingTheSecondTime) {
    norv_linux_dma_create_mgr(&manager);
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(manager, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.forget_calls();
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(DmaManager, OnlyADescriptorAboveZeroIsClosed) {
    manager = 0;
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(manager, -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(DmaManager, ANullManagerIsAnInvalidArgumentAndCanBeDestroyed) {
    norv_linux_dma_t* buffer = nullptr;
    norv_linux_dma_destory_mgr(nullptr);
    EXPECT_EQ(norv_linux_dma_create_mgr(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_mem(nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_kmalloc(nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_cma(nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_user_ptr(nullptr, nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_reserved(nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_fd(nullptr, 5, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls("ioctl"), IsEmpty());
}

// ---- create

struct kind_of_memory {
    const char* name;
    uint32_t (*create)(int32_t*, uint64_t, norv_linux_dma_t**);
    uint32_t type;
};

class DmaKind : public Dma, public testing::WithParamInterface<kind_of_memory> {};

TEST_P(DmaKind, RequestsThatTypeAndSizeOfTheManager) {
    EXPECT_EQ(GetParam().create(&manager, 0x123456789A, &buffer), 0U);
    EXPECT_THAT(requests(), ElementsAre(create_request));
    EXPECT_EQ(field<uint64_t>(record(), 0), 0x123456789AU);
    EXPECT_EQ(field<uint32_t>(record(), 8), GetParam().type);
    EXPECT_EQ(field<uint32_t>(record(), 12), 0U);
    EXPECT_EQ(field<int32_t>(record(), 16), -1);
    EXPECT_EQ(field<uint32_t>(record(), 20), 0U);
    EXPECT_EQ(field<uint64_t>(record(), 24), 0U);
}

TEST_P(DmaKind, TheBufferHasTheDescriptorFromTheDriver) {
    EXPECT_EQ(GetParam().create(&manager, 4096, &buffer), 0U);
    EXPECT_GT(driver->descriptor, 0);
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), driver->descriptor);
}

TEST_P(DmaKind, ARefusalReturnsNoBuffer) {
    auto* const from_before = reinterpret_cast<norv_linux_dma_t*>(&manager);
    buffer = from_before;
    kernel.fail("ioctl", ENOSPC);
    EXPECT_EQ(GetParam().create(&manager, 4096, &buffer), errno_status(ENOSPC));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(kernel.allocations(), 0U);
}

INSTANTIATE_TEST_SUITE_P(OfMemory, DmaKind,
                         testing::Values(kind_of_memory{"Default", norv_linux_dma_create_mem, 0},
                                         kind_of_memory{"Kmalloc", norv_linux_dma_create_by_kmalloc, 1},
                                         kind_of_memory{"Cma", norv_linux_dma_create_by_cma, 2},
                                         kind_of_memory{"Reserved", norv_linux_dma_create_by_reserved, 4}),
                         [](const auto& kind) { return kind.param.name; });

TEST_F(Dma, MemoryOfTheProcessIsPassedByItsAddress) {
    char own[4096];
    EXPECT_EQ(norv_linux_dma_create_by_user_ptr(&manager, own, 4096, &buffer), 0U);
    EXPECT_THAT(requests(), ElementsAre(create_request));
    EXPECT_EQ(field<uint64_t>(record(), 0), 4096U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 3U);
    EXPECT_EQ(field<uint32_t>(record(), 12), 0U);
    EXPECT_EQ(field<int32_t>(record(), 16), -1);
    EXPECT_EQ(field<uint32_t>(record(), 20), 0U);
    EXPECT_EQ(field<uint64_t>(record(), 24), reinterpret_cast<uintptr_t>(own));
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), driver->descriptor);
}

TEST_F(Dma, ANullAddressOfTheProcessIsPassedToTheDriver) {
    kernel.fail("ioctl", EFAULT);
    EXPECT_EQ(norv_linux_dma_create_by_user_ptr(&manager, nullptr, 4096, &buffer), errno_status(EFAULT));
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(Dma, AnAdoptedDescriptorNeedsNoCallToTheDriver) {
    EXPECT_EQ(norv_linux_dma_create_by_fd(&manager, 1234, 4096, &buffer), 0U);
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), 1234);
    EXPECT_THAT(kernel.calls("ioctl"), IsEmpty());
}

TEST_F(Dma, WithoutMemoryForTheHandleTheDriverIsNotCalled) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 4096, &buffer), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(Dma, WithoutMemoryForTheHandleNoDescriptorIsAdopted) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_dma_create_by_fd(&manager, 5, 4096, &buffer), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(buffer, nullptr);
}

// quirk 1
TEST_F(Dma, ARefusalWhoseErrnoMapsToZeroLeavesADescriptorOfMinus1) {
    kernel.map_errno(ENOMEM, 0);
    kernel.fail("ioctl", ENOMEM);
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 4096, &buffer), 0U);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), -1);
    norv_linux_dma_destroy(&buffer);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(Dma, AClosedManagerIsABadDescriptor) {
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 4096, &buffer), errno_status(EBADF));
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(Dma, ANullManagerClearsTheVariable) {
    buffer = reinterpret_cast<norv_linux_dma_t*>(&manager);
    EXPECT_EQ(norv_linux_dma_create_mem(nullptr, 4096, &buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(DmaBuffer, RefersToTheVariableOfTheManager) {
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), errno_status(EBADF));
    norv_linux_dma_create_mgr(&manager);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
}

// ---- destroy

TEST_F(DmaBuffer, DestroyingClosesTheDescriptorAndClearsTheVariable) {
    norv_linux_dma_destroy(&buffer);
    EXPECT_EQ(buffer, nullptr);
    ASSERT_THAT(kernel.calls("close"), SizeIs(1));
    EXPECT_EQ(kernel.calls("close")[0].path, "dma-buf");
    EXPECT_EQ(kernel.allocations(), 0U);
    norv_linux_dma_destroy(&buffer);
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
}

TEST_F(Dma, DestroyingLeavesAnAdoptedDescriptorOpen) {
    const int adopted = kernel.hand_out("of a camera", std::make_shared<dma_buffer>());
    norv_linux_dma_create_by_fd(&manager, adopted, 4096, &buffer);
    norv_linux_dma_destroy(&buffer);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_EQ(close(adopted), 0);
}

TEST_F(Dma, ABufferWithTheDescriptor0IsNotClosed) {
    driver->hands_out_0 = true;
    norv_linux_dma_create_mem(&manager, 4096, &buffer);
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), 0);
    norv_linux_dma_destroy(&buffer);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// quirk 89
TEST_F(DmaBuffer, DestroyingNeitherUnmapsNorUnlocks) {
    norv_linux_dma_map_mem(&buffer, &memory);
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    kernel.accept_leaked_allocations(1);
    norv_linux_dma_destroy(&buffer);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
    EXPECT_THAT(driver->unlocked, IsEmpty());
    EXPECT_EQ(kernel.mappings(), 1U);
    EXPECT_EQ(kernel.allocations(), 1U);
    munmap(memory, 12288);
}

// ---- map and unmap

TEST_F(DmaBuffer, MappingSharesTheWholeBufferForReadingAndWriting) {
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
    EXPECT_EQ(memory, memory_of_driver().address_of_mapping(1));
    ASSERT_THAT(memory_of_driver().mapped, SizeIs(1));
    EXPECT_EQ(memory_of_driver().mapped[0].size, 12288U);
    EXPECT_EQ(memory_of_driver().mapped[0].protection, PROT_READ | PROT_WRITE);
    EXPECT_EQ(memory_of_driver().mapped[0].flags, MAP_SHARED);
    EXPECT_EQ(memory_of_driver().mapped[0].offset, 0);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(Dma, AnAdoptedDescriptorIsMappedWithTheGivenSize) {
    const auto of_camera = std::make_shared<dma_buffer>();
    const int adopted = kernel.hand_out("of a camera", of_camera);
    void* memory = nullptr;
    norv_linux_dma_create_by_fd(&manager, adopted, 8192, &buffer);
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
    EXPECT_EQ(of_camera->mapped.at(0).size, 8192U);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    close(adopted);
}

TEST_F(Dma, ALargeBufferIsMappedAndUnmappedCompletely) {
    const auto of_camera = std::make_shared<dma_buffer>();
    const int adopted = kernel.hand_out("of a camera", of_camera);
    const uint64_t size = 0x180001000;
    const size_t mapped = sizeof(size_t) == 8 ? static_cast<size_t>(size) : SIZE_MAX;
    void* memory = nullptr;
    norv_linux_dma_create_by_fd(&manager, adopted, size, &buffer);
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
    EXPECT_EQ(of_camera->mapped.at(0).size, mapped);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_EQ(kernel.calls("munmap").at(0).as<unmapping>().size, mapped);
    close(adopted);
}

TEST_F(DmaBuffer, AFailedMappingReturnsNullAndTheErrno) {
    kernel.fail("mmap", EACCES);
    memory = this;
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), errno_status(EACCES));
    EXPECT_EQ(memory, nullptr);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

// quirk 1
TEST_F(DmaBuffer, AFailedMappingWhoseErrnoMapsToZeroReturnsNullAndSuccess) {
    kernel.map_errno(EACCES, 0);
    kernel.fail("mmap", EACCES);
    memory = this;
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
    EXPECT_EQ(memory, nullptr);
}

TEST_F(DmaBuffer, MappingAgainReturnsTheSameMapping) {
    norv_linux_dma_map_mem(&buffer, &memory);
    void* again = nullptr;
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &again), 0U);
    EXPECT_EQ(again, memory);
    EXPECT_THAT(memory_of_driver().mapped, SizeIs(1));
}

TEST_F(DmaBuffer, UnmappingABufferThatWasNeverMappedReturnsZero) {
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

TEST_F(DmaBuffer, UnmappingRemovesTheWholeMapping) {
    norv_linux_dma_map_mem(&buffer, &memory);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
    ASSERT_THAT(kernel.calls("munmap"), SizeIs(1));
    EXPECT_EQ(kernel.calls("munmap")[0].as<unmapping>().size, 12288U);
}

TEST_F(DmaBuffer, UnmappingTwiceUnmapsOnce) {
    norv_linux_dma_map_mem(&buffer, &memory);
    norv_linux_dma_unmap_mem(&buffer);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_THAT(kernel.calls("munmap"), SizeIs(1));
}

TEST_F(DmaBuffer, AfterUnmappingItCanBeMappedAgain) {
    norv_linux_dma_map_mem(&buffer, &memory);
    norv_linux_dma_unmap_mem(&buffer);
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), 0U);
    EXPECT_EQ(memory, memory_of_driver().address_of_mapping(2));
}

TEST_F(DmaBuffer, AFailedUnmappingKeepsTheMappingAndCanBeRepeated) {
    norv_linux_dma_map_mem(&buffer, &memory);
    kernel.fail("munmap", EINVAL);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), NORV_STATUS_INVALID_ARG);
    void* kept = nullptr;
    norv_linux_dma_map_mem(&buffer, &kept);
    EXPECT_EQ(kept, memory);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
}

TEST_F(DmaBuffer, AFailedUnmappingWhoseErrnoMapsToZeroCountsAsSuccess) {
    norv_linux_dma_map_mem(&buffer, &memory);
    kernel.map_errno(EINVAL, 0);
    kernel.fail("munmap", EINVAL);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    norv_linux_dma_unmap_mem(&buffer);
    EXPECT_THAT(kernel.calls("munmap"), SizeIs(1));
    munmap(memory, 12288);
}

// ---- lock and unlock

TEST_F(DmaBuffer, LockingRequestsTheNumberOfEntriesAndThenTheEntries) {
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_THAT(requests(), ElementsAre(lock_request, entries_request));
    const std::string& query = driver->requests[0].record;
    EXPECT_EQ(field<int32_t>(query, 0), driver->descriptor);
    EXPECT_EQ(field<uint32_t>(query, 4), 0U);
    const std::string& fetch = driver->requests[1].record;
    EXPECT_EQ(field<int32_t>(fetch, 0), driver->descriptor);
    EXPECT_EQ(field<uint32_t>(fetch, 4), 2U);
    EXPECT_EQ(field<uint64_t>(fetch, 8), reinterpret_cast<uintptr_t>(entries));
}

TEST_F(DmaBuffer, TheEntriesAreReturnedAsTheDriverFilledThem) {
    driver->entries = std::string("0123456789abcdefABCDEFGHIJKLMNOP................");
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(std::string(static_cast<const char*>(entries), 3 * NORV_LINUX_DMA_SG_ENTRY_SIZE),
              driver->entries);
}

TEST_F(DmaBuffer, EntriesThatTheDriverDoesNotFillAreZeros) {
    void* used_before = norv_malloc(32);
    memset(used_before, 'y', 32);
    norv_free(used_before);
    driver->fills_entries = false;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(std::string(static_cast<const char*>(entries), 32), std::string(32, '\0'));
}

TEST_F(DmaBuffer, ABufferWithoutEntriesCanBeLocked) {
    driver->entries.clear();
    count = 7;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(count, 0U);
    EXPECT_THAT(requests(), ElementsAre(lock_request, entries_request));
}

TEST_F(DmaBuffer, All64BitsOfTheCountAreWritten) {
    count = UINT64_MAX;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(count, 2U);
}

TEST_F(DmaBuffer, LockingDoesNotMap) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    EXPECT_EQ(kernel.mappings(), 0U);
}

TEST_F(DmaBuffer, ARefusedLockFetchesNoEntries) {
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), errno_status(EBUSY));
    EXPECT_THAT(kernel.calls("ioctl"), SizeIs(1));
    EXPECT_EQ(entries, nullptr);
    EXPECT_EQ(count, 0U);
}

TEST_F(DmaBuffer, ARefusedLockWhoseErrnoMapsToZeroFetchesNoEntries) {
    kernel.map_errno(EBUSY, 0);
    kernel.fail("ioctl", EBUSY);
    driver->fills_entries = false;
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_THAT(requests(), ElementsAre(entries_request));
    EXPECT_EQ(field<uint32_t>(record(), 4), 0U);
    EXPECT_EQ(count, 0U);
}

TEST_F(DmaBuffer, WithoutMemoryForTheEntriesNoneAreFetched) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(requests(), ElementsAre(lock_request));
    EXPECT_EQ(entries, nullptr);
    EXPECT_EQ(count, 0U);
}

TEST_F(DmaBuffer, AFailedFetchReleasesTheArrayAndLeavesTheOutputs) {
    kernel.fail({.call = "ioctl", .request = entries_request, .error = EIO});
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(kernel.allocations(), 1U);  // the handle
    EXPECT_EQ(entries, nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_THAT(driver->unlocked, IsEmpty());
}

TEST_F(DmaBuffer, AFailedFetchWhoseErrnoMapsToZeroReturnsZeros) {
    kernel.map_errno(EIO, 0);
    kernel.fail({.call = "ioctl", .request = entries_request, .error = EIO});
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(std::string(static_cast<const char*>(entries), 32), std::string(32, '\0'));
}

TEST_F(DmaBuffer, LockingAgainReleasesTheEntriesOfThePreviousLock) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    driver->entries = "the only entry .";
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), 0U);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(std::string(static_cast<const char*>(entries), 16), "the only entry .");
    EXPECT_EQ(kernel.allocations(), 2U);  // the handle and the new entries
}

TEST_F(DmaBuffer, ASecondLockThatFailsLeavesTheEntriesOfTheFirst) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    void* const first = entries;
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, &count), errno_status(EBUSY));
    EXPECT_EQ(entries, first);
    EXPECT_EQ(std::string(static_cast<const char*>(first), 32), driver->entries);
}

TEST_F(DmaBuffer, UnlockingPassesTheDescriptorAndReleasesTheEntries) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    driver->requests.clear();
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    EXPECT_THAT(requests(), ElementsAre(unlock_request));
    EXPECT_THAT(driver->unlocked, ElementsAre(driver->descriptor));
    EXPECT_EQ(kernel.allocations(), 1U);  // the handle
}

// quirk 90
TEST_F(DmaBuffer, ARefusedUnlockReleasesTheEntriesNevertheless) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    kernel.fail("ioctl", EPERM);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), errno_status(EPERM));
    EXPECT_EQ(kernel.allocations(), 1U);  // the handle
}

TEST_F(DmaBuffer, ARefusedUnlockWhoseErrnoMapsToZeroCountsAsSuccess) {
    norv_linux_dma_lock_mem(&buffer, &entries, &count);
    kernel.map_errno(EPERM, 0);
    kernel.fail("ioctl", EPERM);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    EXPECT_EQ(kernel.allocations(), 1U);  // the handle
}

TEST_F(DmaBuffer, UnlockingABufferThatIsNotLockedCallsTheDriver) {
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), 0U);
    kernel.fail("ioctl", EINVAL);
    EXPECT_EQ(norv_linux_dma_unlock_mem(&buffer), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(driver->unlocked, ElementsAre(driver->descriptor));
}

// ---- synchronise

// quirk 88
TEST_F(DmaBuffer, TheStartOfATransferIsAReadStartWithTheFlags1) {
    EXPECT_EQ(norv_linux_dma_sync(&buffer, false), 0U);
    EXPECT_THAT(memory_of_driver().sync_flags, ElementsAre(1));
    ASSERT_THAT(kernel.calls("ioctl"), SizeIs(1));
    EXPECT_EQ(kernel.calls("ioctl")[0].as<control>().request, whole_sync_request);
    EXPECT_EQ(kernel.calls("ioctl")[0].path, "dma-buf");
}

// quirk 88
TEST_F(DmaBuffer, TheEndOfATransferIsAWriteEndWithExactlyTheFlags6) {
    EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
    EXPECT_THAT(memory_of_driver().sync_flags, ElementsAre(6));
    EXPECT_EQ(kernel.calls("ioctl").at(0).as<control>().request, whole_sync_request);
}

TEST_F(DmaBuffer, AFailedSyncReturnsTheErrno) {
    kernel.fail("ioctl", EINTR);
    EXPECT_EQ(norv_linux_dma_sync(&buffer, false), NORV_STATUS_INTERRUPTED);
    EXPECT_THAT(kernel.calls("ioctl"), SizeIs(1));
}

TEST_F(DmaBuffer, AFailedSyncWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel.map_errno(EINTR, 0);
    kernel.fail("ioctl", EINTR);
    EXPECT_EQ(norv_linux_dma_sync(&buffer, true), 0U);
}

TEST_F(DmaBuffer, AScatterGatherSyncPassesTheCallersValuesUnchanged) {
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, true, 0xFEDCBA9876543210, 0x89ABCDEF), 0U);
    EXPECT_THAT(requests(), ElementsAre(sg_sync_request));
    EXPECT_EQ(field<uint32_t>(record(), 12), 0U);
    EXPECT_EQ(field<int32_t>(record(), 0), driver->descriptor);
    EXPECT_EQ(field<uint32_t>(record(), 4), 1U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 0x89ABCDEFU);
    EXPECT_EQ(field<uint64_t>(record(), 16), 0xFEDCBA9876543210U);
}

TEST_F(DmaBuffer, TheOtherDirectionOfAScatterGatherSyncIs0) {
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, false, 1, 2), 0U);
    EXPECT_EQ(field<uint32_t>(record(), 4), 0U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 2U);
    EXPECT_EQ(field<uint64_t>(record(), 16), 1U);
}

TEST_F(DmaBuffer, AFailedScatterGatherSyncReturnsTheErrno) {
    kernel.fail("ioctl", ERANGE);
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, true, 0, 0), errno_status(ERANGE));
}

TEST_F(DmaBuffer, AFailedScatterGatherSyncWhoseErrnoMapsToZeroSucceeds) {
    kernel.map_errno(ERANGE, 0);
    kernel.fail("ioctl", ERANGE);
    EXPECT_EQ(norv_linux_dma_sg_sync(&buffer, true, 0, 0), 0U);
}

// ---- null

// The statuses of all calls that need a buffer.
void use(norv_linux_dma_t** buffer, std::vector<uint32_t>& statuses) {
    void* memory = nullptr;
    void* entries = nullptr;
    uint64_t count = 0;
    statuses.push_back(norv_linux_dma_map_mem(buffer, &memory));
    statuses.push_back(norv_linux_dma_unmap_mem(buffer));
    statuses.push_back(norv_linux_dma_lock_mem(buffer, &entries, &count));
    statuses.push_back(norv_linux_dma_unlock_mem(buffer));
    statuses.push_back(norv_linux_dma_sync(buffer, true));
    statuses.push_back(norv_linux_dma_sg_sync(buffer, true, 0, 0));
}

TEST_F(Dma, WithoutABufferEveryCallIsAnInvalidArgument) {
    std::vector<uint32_t> statuses;
    use(&buffer, statuses);
    use(nullptr, statuses);
    EXPECT_THAT(statuses, SizeIs(12));
    EXPECT_THAT(statuses, Each(NORV_STATUS_INVALID_ARG));
    EXPECT_THAT(kernel.calls("ioctl"), IsEmpty());
}

TEST_F(Dma, WithoutABufferThereIsNoDescriptorAndNothingToDestroy) {
    EXPECT_EQ(norv_linux_dma_get_fd(&buffer), -1);
    EXPECT_EQ(norv_linux_dma_get_fd(nullptr), -1);
    norv_linux_dma_destroy(&buffer);
    norv_linux_dma_destroy(nullptr);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(Dma, MappingWithoutABufferReturnsNull) {
    void* memory = this;
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, &memory), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(memory, nullptr);
}

TEST_F(DmaBuffer, ANullOutputIsAnInvalidArgumentAndNothingIsDone) {
    EXPECT_EQ(norv_linux_dma_map_mem(&buffer, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, nullptr, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_lock_mem(&buffer, &entries, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_mem(&manager, 4096, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_dma_create_by_fd(&manager, 5, 4096, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(kernel.mappings(), 0U);
    EXPECT_THAT(requests(), IsEmpty());
}

// ---- failure sweep

// A transfer with one buffer, up to the first failure.
uint32_t transfer(norv_linux_dma_t** buffer) {
    void* memory = nullptr;
    void* entries = nullptr;
    uint64_t count = 0;
    uint32_t status = norv_linux_dma_map_mem(buffer, &memory);
    EXPECT_EQ(status == 0, memory != nullptr);
    if (status == 0) {
        status = norv_linux_dma_lock_mem(buffer, &entries, &count);
        EXPECT_EQ(status == 0, entries != nullptr);
    }
    if (status == 0) {
        status = norv_linux_dma_sync(buffer, false);
    }
    if (status == 0) {
        status = norv_linux_dma_sg_sync(buffer, true, 0, 4096);
    }
    if (status == 0) {
        status = norv_linux_dma_sync(buffer, true);
    }
    return status;
}

uint32_t use_buffer(int32_t* manager) {
    norv_linux_dma_t* buffer = nullptr;
    uint32_t status = norv_linux_dma_create_mem(manager, 4096, &buffer);
    if (status != 0) {
        EXPECT_EQ(buffer, nullptr);
        return status;
    }
    status = transfer(&buffer);
    const uint32_t unlocked = norv_linux_dma_unlock_mem(&buffer);
    EXPECT_EQ(norv_linux_dma_unmap_mem(&buffer), 0U);
    norv_linux_dma_destroy(&buffer);
    return status == 0 ? unlocked : status;
}

uint32_t use_adopted(int32_t* manager, int32_t descriptor) {
    norv_linux_dma_t* buffer = nullptr;
    const uint32_t status = norv_linux_dma_create_by_fd(manager, descriptor, 4096, &buffer);
    EXPECT_EQ(status == 0, buffer != nullptr);
    norv_linux_dma_destroy(&buffer);
    return status;
}

uint32_t use_everything() {
    int32_t manager = -1;
    uint32_t status = norv_linux_dma_create_mgr(&manager);
    if (status == 0) {
        status = use_buffer(&manager);
    }
    if (status == 0) {
        status = use_adopted(&manager, 1234);
    }
    norv_linux_dma_destory_mgr(&manager);
    EXPECT_EQ(manager, -1);
    return status;
}

TEST(DmaSweep, EveryFailingCallIsReportedAndLeavesNothingBehind) {
    norv::test::sweep_options options;
    options.short_counts = false;
    const int struck = norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/uio-dma", std::make_shared<dma_manager>(kernel));
        },
        use_everything, options);
    EXPECT_EQ(struck, 42);  // 14 calls, each with 3 errno values
}

}  // namespace
