// SPDX-License-Identifier: MIT
// The base library's owners: status, mutex, one-shot event, watchdog, clock, memory and heap.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "norv/clock.hpp"
#include "norv/heap.hpp"
#include "norv/memory.hpp"
#include "norv/mutex.hpp"
#include "norv/one_shot_event.hpp"
#include "norv/thread_watchdog.hpp"
#include "norv/timeout.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::test::kernel_double;
using namespace std::chrono_literals;

// ---- statuses

TEST(CppStatus, AStatusKnowsItsNameAndText) {
    const norv::status status(NORV_STATUS_INVALID_ARG);
    EXPECT_STREQ(status.name(), "INVALID_ARG");
    EXPECT_STREQ(status.text(), "invalid argument");
    EXPECT_FALSE(status.ok());
    EXPECT_EQ(norv::ok.number(), NORV_STATUS_OK);
}

TEST(CppStatus, AValueThatIsMissingIsThrownAsItsStatus) {
    const norv::result<int> missing = norv::status(NORV_STATUS_EMPTY);
    try {
        static_cast<void>(missing.value());
        FAIL() << "no exception";
    } catch (const norv::error& thrown) {
        EXPECT_EQ(thrown.status(), NORV_STATUS_EMPTY);
    }
}

// ---- limits

TEST(CppTimeout, ALimitIsRoundedUpToMilliseconds) {
    EXPECT_EQ(norv::timeout(0ms).ms(), 0);
    EXPECT_EQ(norv::timeout(1us).ms(), 1);
    EXPECT_EQ(norv::timeout(1001us).ms(), 2);
    EXPECT_EQ(norv::timeout(std::chrono::duration<double>(0.0101)).ms(), 11);
    EXPECT_EQ(norv::timeout(norv::no_limit).ms(), -1);
}

TEST(CppTimeout, ALimitIsClampedToWhatTheCInterfaceTakes) {
    EXPECT_EQ(norv::timeout(-1ms).ms(), 0);
    EXPECT_EQ(norv::timeout(std::chrono::hours::min()).ms(), 0);
    EXPECT_EQ(norv::timeout(std::chrono::hours(24 * 25)).ms(), INT32_MAX);
    EXPECT_EQ(norv::timeout(std::chrono::hours::max()).ms(), INT32_MAX);
    EXPECT_EQ(norv::timeout(std::chrono::duration<double>(1e300)).ms(), INT32_MAX);
}

// ---- mutex

TEST(CppMutex, ALockGuardLocksIt) {
    kernel_double kernel;
    std::vector<bool> locked;
    kernel.on_lock([&](bool taken) { locked.push_back(taken); });
    norv::mutex mutex;
    EXPECT_EQ(mutex.initialised(), norv::ok);
    { const std::lock_guard lock(mutex); }
    EXPECT_EQ(locked, (std::vector<bool>{true, false}));
    EXPECT_EQ(mutex.acquire(), norv::ok);
    EXPECT_EQ(mutex.release(), norv::ok);
    EXPECT_EQ(locked.size(), 4U);
}

// Makes the mutex one that reports a second lock by the same thread.
void check_errors(norv::mutex& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&mutex.get()->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

TEST(CppMutex, AFailedLockHasAStatusOrIsThrown) {
    kernel_double kernel;
    norv::mutex mutex;
    check_errors(mutex);
    ASSERT_EQ(mutex.acquire(), norv::ok);
    EXPECT_EQ(mutex.acquire(), norv_get_status_by_errno(EDEADLK));
    EXPECT_THROW(mutex.lock(), norv::error);
    kernel.fail("norv_mutex_unlock", EPERM);
    EXPECT_EQ(mutex.release(), NORV_STATUS_BAD_STATE);
}

TEST(CppMutexDeathTest, AFailedUnlockEndsTheProgram) {
    norv::mutex mutex;
    check_errors(mutex);
    EXPECT_DEATH(mutex.unlock(), "");
}

// ---- one-shot event

TEST(CppOneShotEvent, OneSetLetsOneWaitPass) {
    norv::one_shot_event event;
    EXPECT_EQ(event.set(), norv::ok);
    EXPECT_EQ(event.wait(norv::no_limit), norv::ok);
    EXPECT_EQ(event.wait(0ms), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(event.wait(1ms), NORV_STATUS_TIMEOUT);
    EXPECT_NE(event.get(), nullptr);
}

TEST(CppOneShotEvent, AThreadWaitsForAnotherOne) {
    norv::one_shot_event event;
    int written = 0;
    std::thread worker([&] {
        written = 1;
        EXPECT_EQ(event.set(), norv::ok);
    });
    EXPECT_EQ(event.wait(norv::no_limit), norv::ok);
    EXPECT_EQ(written, 1);
    worker.join();
}

// ---- watchdog

TEST(CppThreadWatchdog, AThreadThatStopsReportingIsLate) {
    kernel_double kernel;
    kernel.set_clock(100, 0);
    norv::thread_watchdog watchdog(2s);
    kernel.set_clock(102, 0);
    EXPECT_EQ(watchdog.check(), norv::ok);
    kernel.set_clock(102, 1000000);
    EXPECT_EQ(watchdog.check(), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(watchdog.keep_alive(), norv::ok);
    EXPECT_EQ(watchdog.check(), norv::ok);
}

TEST(CppThreadWatchdog, ItIsStartedAgainWithAnotherLimit) {
    kernel_double kernel;
    kernel.set_clock(100, 0);
    norv::thread_watchdog watchdog(2s);
    watchdog.start(1500us);
    EXPECT_EQ(watchdog.get()->limit, 2U) << "rounded up";
}

// ---- clock

TEST(CppMonotonicClock, ItReadsMicrosecondsAndMilliseconds) {
    kernel_double kernel;
    kernel.set_clock(12, 345678901);
    EXPECT_EQ(norv::monotonic_clock::now().time_since_epoch(), 12345678us);
    EXPECT_EQ(norv::monotonic_clock::now_ms().time_since_epoch(), 12345ms);
}

// ---- memory

TEST(CppMemory, ABlockIsFreedWithItsOwner) {
    kernel_double kernel;
    {
        norv::memory block = norv::memory::allocate(100).value();
        EXPECT_EQ(block.bytes().size(), 100U);
        norv::memory other = std::move(block);
        EXPECT_TRUE(block.bytes().empty());
        EXPECT_EQ(std::as_const(other).bytes().size(), 100U);
        other = norv::memory::allocate(0).value();
        EXPECT_EQ(kernel.allocations(), 1U);
    }
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST(CppMemory, AZeroedBlockIsZeroed) {
    const norv::memory block = norv::memory::allocate_zeroed(4096).value();
    for (const std::byte byte : block.bytes()) {
        EXPECT_EQ(byte, std::byte{0});
    }
}

TEST(CppMemory, AReleasedBlockIsTheCallers) {
    norv::memory block = norv::memory::allocate(8).value();
    void* const released = block.release();
    EXPECT_TRUE(block.bytes().empty());
    EXPECT_NE(released, nullptr);
    norv_free(released);
}

TEST(CppMemory, WithoutMemoryThereIsAStatus) {
    kernel_double kernel;
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv::memory::allocate(8).status(), NORV_STATUS_NO_MEMORY);
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv::memory::allocate_zeroed(8).status(), NORV_STATUS_NO_MEMORY);
}

TEST(CppAllocator, ContainersUseIt) {
    kernel_double kernel;
    {
        std::vector<int, norv::allocator<int>> numbers = {1, 2, 3};
        EXPECT_EQ(kernel.allocations(), 1U);
        std::list<long, norv::allocator<long>> list(numbers.begin(), numbers.end());
        EXPECT_EQ(kernel.allocations(), 4U);
        EXPECT_EQ(list.back(), 3);
        EXPECT_EQ(numbers.get_allocator(), norv::allocator<int>(list.get_allocator()));
    }
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST(CppAllocator, WithoutMemoryItThrows) {
    kernel_double kernel;
    norv::allocator<uint64_t> allocator;
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_THROW(static_cast<void>(allocator.allocate(8)), norv::error);
    constexpr size_t overflowing = SIZE_MAX / sizeof(uint64_t) + 2;
    EXPECT_THROW(static_cast<void>(allocator.allocate(overflowing)), norv::error);
}

// ---- heap

struct order : norv::heap_node {
    explicit order(int of) : priority(of) {}
    int priority;
};
struct more_urgent {
    bool operator()(const order& first, const order& second) const noexcept {
        return first.priority < second.priority;
    }
};
using order_heap = norv::heap<order, more_urgent>;

TEST(CppHeap, ObjectsLeaveInTheirOrder) {
    order first(1);
    order second(2);
    order third(3);
    order_heap heap;
    EXPECT_TRUE(heap.empty());
    EXPECT_EQ(heap.top(), nullptr);
    for (order* const object : {&third, &first, &second, &first}) {
        heap.insert(*object);
    }
    EXPECT_EQ(heap.top(), &first);
    heap.remove(second);
    EXPECT_FALSE(second.is_queued());
    heap.dequeue();
    EXPECT_FALSE(first.is_queued());
    EXPECT_EQ(heap.top(), &third);
    heap.dequeue();
    EXPECT_TRUE(heap.empty());
}

TEST(CppHeap, WhatAHeapStillHasIsRemovedWithIt) {
    order first(1);
    order second(2);
    {
        order_heap heap;
        heap.insert(second);
        heap.insert(first);
        EXPECT_TRUE(first.is_queued());
    }
    EXPECT_FALSE(first.is_queued());
    EXPECT_FALSE(second.is_queued());
}

static_assert(!std::is_move_constructible_v<norv::mutex> && !std::is_move_constructible_v<order> &&
              !std::is_move_constructible_v<order_heap> && !std::is_copy_constructible_v<norv::memory>);

}  // namespace
