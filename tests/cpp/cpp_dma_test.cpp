// SPDX-License-Identifier: MIT
// The owners of DMA buffers and of their manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "cpp/owner_sweep.hpp"
#include "mapped/dma_driver.hpp"
#include "norv/dma.hpp"

namespace {

using norv::dma_buffer;
using norv::dma_manager;
using norv::status;
using driver_model = norv::test::dma_manager;
using norv::test::field;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned long create_request = 0xC0205500;
constexpr unsigned long lock_request = 0xC0085501;
constexpr unsigned long unlock_request = 0x40045502;
constexpr unsigned long entries_request = 0xC0105503;
constexpr unsigned long sg_sync_request = 0x40185504;

class CppDma : public testing::Test {
  protected:
    static std::shared_ptr<driver_model> add_driver(kernel_double& kernel) {
        auto driver = std::make_shared<driver_model>(kernel);
        kernel.add_device("/dev/uio-dma", driver);
        return driver;
    }

    std::vector<unsigned long> requests() const { return driver->request_numbers(); }
    const std::string& record() const { return driver->requests.back().record; }

    kernel_double kernel;
    std::shared_ptr<driver_model> driver = add_driver(kernel);
    dma_manager manager = dma_manager::open().value();
};

class CppDmaBuffer : public CppDma {
  protected:
    CppDmaBuffer() { driver->requests.clear(); }

    dma_buffer buffer = dma_buffer::create(manager, 12288).value();
};

// ---- the manager

TEST_F(CppDma, TheManagerIsClosedWithItsOwner) {
    const size_t before = kernel.open_descriptors();
    {
        const dma_manager second = dma_manager::open().value();
        EXPECT_GT(second.descriptor(), 0);
        EXPECT_EQ(kernel.open_descriptors(), before + 1);
    }
    EXPECT_EQ(kernel.open_descriptors(), before);
}

TEST_F(CppDma, AManagerThatCannotBeOpenedHasTheStatus) {
    kernel.remove("/dev/uio-dma");
    EXPECT_EQ(dma_manager::open().status(), NORV_STATUS_NOT_FOUND);
    kernel.fail("norv_malloc", 0);
    EXPECT_EQ(dma_manager::open().status(), NORV_STATUS_NO_MEMORY);
}

TEST_F(CppDma, AManagerThatWasMovedFromIsAnInvalidArgument) {
    const dma_manager other = std::move(manager);
    EXPECT_EQ(manager.descriptor(), -1);
    EXPECT_EQ(dma_buffer::create(manager, 4096).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_GT(other.descriptor(), 0);
    EXPECT_THAT(driver->requests, IsEmpty());
}

TEST_F(CppDma, MovingIntoAnOpenManagerClosesIt) {
    const size_t before = kernel.open_descriptors();
    manager = dma_manager::open().value();
    EXPECT_EQ(kernel.open_descriptors(), before);
    EXPECT_GT(manager.descriptor(), 0);
    dma_manager& same = manager;
    manager = std::move(same);
    EXPECT_GT(manager.descriptor(), 0);
}

// ---- creating and destroying

TEST_F(CppDma, EachKindOfMemoryIsRequested) {
    std::array<std::byte, 64> own = {};
    EXPECT_TRUE(dma_buffer::create(manager, 4096));
    EXPECT_EQ(field<uint64_t>(record(), 0), 4096U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 0U);
    EXPECT_TRUE(dma_buffer::create(manager, 4096, dma_buffer::memory::kmalloc));
    EXPECT_EQ(field<uint32_t>(record(), 8), 1U);
    EXPECT_TRUE(dma_buffer::create(manager, 4096, dma_buffer::memory::cma));
    EXPECT_EQ(field<uint32_t>(record(), 8), 2U);
    EXPECT_TRUE(dma_buffer::create_of(manager, own));
    EXPECT_EQ(field<uint64_t>(record(), 0), 64U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 3U);
    EXPECT_EQ(field<uint64_t>(record(), 24), reinterpret_cast<uintptr_t>(own.data()));
    EXPECT_TRUE(dma_buffer::create(manager, 4096, dma_buffer::memory::reserved));
    EXPECT_EQ(field<uint32_t>(record(), 8), 4U);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(CppDma, ABufferOfADescriptorLeavesItOpen) {
    const auto foreign = std::make_shared<norv::test::dma_buffer>();
    const int descriptor = kernel.hand_out("dma-buf", foreign);
    {
        dma_buffer buffer = dma_buffer::create_from_descriptor(manager, descriptor, 4096).value();
        EXPECT_EQ(buffer.descriptor(), descriptor);
        EXPECT_EQ(buffer.start_access(), norv::ok);
    }
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    close(descriptor);
}

TEST_F(CppDma, ABufferThatCannotBeCreatedHasTheStatus) {
    kernel.fail("ioctl", ENOMEM);
    EXPECT_EQ(dma_buffer::create(manager, 4096).status(), NORV_STATUS_NO_MEMORY);
}

// quirk 89
TEST_F(CppDma, ABufferIsUnmappedUnlockedAndClosedWithItsOwner) {
    {
        dma_buffer buffer = dma_buffer::create(manager, 4096).value();
        EXPECT_TRUE(buffer.map());
        EXPECT_TRUE(buffer.lock());
    }
    EXPECT_THAT(requests(), ElementsAre(create_request, lock_request, entries_request, unlock_request));
    EXPECT_EQ(kernel.mappings(), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(CppDma, ABufferThatWasNotLockedIsNotUnlocked) {
    { EXPECT_TRUE(dma_buffer::create(manager, 4096)); }
    {
        dma_buffer buffer = dma_buffer::create(manager, 4096).value();
        EXPECT_TRUE(buffer.lock());
        EXPECT_EQ(buffer.unlock(), norv::ok);
    }
    EXPECT_EQ(driver->unlocked.size(), 1U);
}

TEST_F(CppDma, ABufferWhoseLockFailedHalfwayIsUnlocked) {
    {
        dma_buffer buffer = dma_buffer::create(manager, 4096).value();
        kernel.fail({.call = "ioctl", .nth = 2, .error = EIO});
        EXPECT_EQ(buffer.lock().status(), NORV_STATUS_DEVICE_ERROR);
    }
    EXPECT_EQ(driver->unlocked.size(), 1U);
}

// ---- the buffer

TEST_F(CppDmaBuffer, TheWholeBufferIsMapped) {
    const std::span<std::byte> memory = buffer.map().value();
    EXPECT_EQ(memory.data(), driver->buffers[0]->address_of_mapping(1));
    EXPECT_EQ(memory.size(), 12288U);
    EXPECT_EQ(buffer.unmap(), norv::ok);
    EXPECT_EQ(kernel.mappings(), 0U);
}

TEST_F(CppDma, ABufferThatCouldNotBeUnmappedIsUnmappedAtItsEnd) {
    {
        dma_buffer buffer = dma_buffer::create(manager, 4096).value();
        EXPECT_TRUE(buffer.map());
        kernel.fail("munmap", EINVAL);
        EXPECT_EQ(buffer.unmap(), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_EQ(kernel.mappings(), 0U);
}

// quirk 1
TEST_F(CppDmaBuffer, AMappingThatFailsWithStatus0IsEmpty) {
    kernel.map_errno(EACCES, 0);
    kernel.fail("mmap", EACCES);
    EXPECT_TRUE(buffer.map().value().empty());
}

TEST_F(CppDmaBuffer, LockingReturnsTheEntries) {
    const std::span<const dma_buffer::entry> entries = buffer.lock().value();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(memcmp(entries.data(), driver->entries.data(), 32), 0);
}

TEST_F(CppDmaBuffer, BothStepsOfAnAccessAreSynchronised) {
    EXPECT_EQ(buffer.start_access(), norv::ok);
    EXPECT_EQ(buffer.end_access(), norv::ok);
    EXPECT_THAT(driver->buffers[0]->sync_flags, ElementsAre(1, 6));
}

TEST_F(CppDmaBuffer, PartOfABufferIsSynchronised) {
    EXPECT_EQ(buffer.sync_entries(true, 0x123456789AB, 7), norv::ok);
    EXPECT_EQ(driver->requests.back().number, sg_sync_request);
    EXPECT_EQ(field<uint32_t>(record(), 4), 1U);
    EXPECT_EQ(field<uint32_t>(record(), 8), 7U);
    EXPECT_EQ(field<uint64_t>(record(), 16), 0x123456789ABU);
}

TEST_F(CppDmaBuffer, TheManagerMayMove) {
    const dma_manager elsewhere = std::move(manager);
    EXPECT_TRUE(buffer.lock());
}

TEST_F(CppDmaBuffer, WithoutTheManagerABufferIsMappedButNotLocked) {
    { const dma_manager ended = std::move(manager); }
    EXPECT_TRUE(buffer.map());
    EXPECT_EQ(buffer.start_access(), norv::ok);
    EXPECT_EQ(buffer.lock().status(), norv_get_status_by_errno(EBADF));
}

// ---- moving

TEST_F(CppDmaBuffer, ABufferThatWasMovedFromIsAnInvalidArgument) {
    const dma_buffer other = std::move(buffer);
    kernel.forget_calls();
    EXPECT_EQ(buffer.map().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.unmap(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.lock().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.unlock(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.start_access(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.end_access(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.sync_entries(false, 0, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(buffer.descriptor(), -1);
    EXPECT_EQ(buffer.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_GT(other.descriptor(), 0);
}

TEST_F(CppDmaBuffer, AMovedBufferKeepsItsLock) {
    EXPECT_TRUE(buffer.lock());
    { const dma_buffer ended = std::move(buffer); }
    EXPECT_EQ(driver->unlocked.size(), 1U);
}

TEST_F(CppDmaBuffer, MovingIntoAnOpenBufferDestroysIt) {
    EXPECT_TRUE(buffer.map());
    EXPECT_TRUE(buffer.lock());
    buffer = dma_buffer::create(manager, 4096).value();
    EXPECT_EQ(kernel.mappings(), 0U);
    EXPECT_EQ(driver->unlocked.size(), 1U);
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    EXPECT_EQ(buffer.map().value().size(), 4096U);
    dma_buffer& same = buffer;
    buffer = std::move(same);
    EXPECT_EQ(kernel.mappings(), 1U);
}

// ---- failures

TEST(CppDmaSweep, NothingLeaksThroughTheOwners) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/uio-dma", std::make_shared<driver_model>(kernel));
        },
        [] {
            norv::result<dma_manager> manager = dma_manager::open();
            if (!manager) {
                return manager.status().number();
            }
            norv::result<dma_buffer> created = dma_buffer::create(*manager, 4096);
            if (!created) {
                return created.status().number();
            }
            dma_buffer buffer = *std::move(created);
            status done = buffer.map().status();
            done = done.ok() ? buffer.lock().status() : done;
            done = done.ok() ? buffer.start_access() : done;
            done = done.ok() ? buffer.end_access() : done;
            return done.number();
        });
}

}  // namespace
