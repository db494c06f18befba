// SPDX-License-Identifier: MIT
// Thread control: the requests to the kernel, and what it then reports about the thread.
#include "norv_linux_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "norv_base.h"
#include "support/failure_sweep.hpp"

namespace {

using norv::test::affinity_setting;
using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::schedule_setting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A machine with the given number of processors, whose kernel accepts any set.
void build_machine(kernel_double& kernel, long processors) {
    kernel.answer("sysconf", processors);
    kernel.answer("sched_setaffinity", 0);
}

// The processors of the only request to the kernel.
std::vector<int> requested_processors(const kernel_double& kernel) {
    const auto calls = kernel.calls<affinity_setting>("sched_setaffinity");
    EXPECT_THAT(calls, SizeIs(1));
    cpu_set_t set = {};
    std::memcpy(&set, calls.at(0).processors.data(), sizeof set);
    std::vector<int> processors;
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(static_cast<size_t>(processor), &set)) {
            processors.push_back(processor);
        }
    }
    return processors;
}

// Runs an action on a thread of its own, so that the thread of the test keeps its settings.
template <typename action>
void on_another_thread(action act) {
    std::thread(act).join();
}

// The first processor that the thread of the test may run on.
int allowed_processor() {
    cpu_set_t allowed = {};
    sched_getaffinity(0, sizeof allowed, &allowed);
    int processor = 0;
    while (!CPU_ISSET(static_cast<size_t>(processor), &allowed)) {
        ++processor;
    }
    return processor;
}

// ---- processors by mask

TEST(ThreadAffinityMask, TheMasksProcessorsGoToTheKernelForTheCallingThread) {
    kernel_double kernel;
    build_machine(kernel, 4);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0xd), NORV_STATUS_OK);
    EXPECT_THAT(requested_processors(kernel), ElementsAre(0, 2, 3));
    const auto made = kernel.calls("sched_setaffinity")[0].as<affinity_setting>();
    EXPECT_EQ(made.thread, 0);
    EXPECT_EQ(made.processors.size(), 128U);
}

TEST(ThreadAffinityMask, TheOnlyProcessorOfAMachineIsAccepted) {
    kernel_double kernel;
    build_machine(kernel, 1);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), NORV_STATUS_OK);
    EXPECT_THAT(requested_processors(kernel), ElementsAre(0));
}

TEST(ThreadAffinityMask, AMissingProcessorIsRefusedWithoutAskingTheKernel) {
    kernel_double kernel;
    build_machine(kernel, 1);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x2), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x3), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x80000000), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls("sched_setaffinity"), IsEmpty());
}

TEST(ThreadAffinityMask, Processor31IsRefusedOnAMachineOf31Processors) {
    kernel_double kernel;
    build_machine(kernel, 31);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x80000000), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x40000000), NORV_STATUS_OK);
}

TEST(ThreadAffinityMask, OnAMachineOf32ProcessorsAndMoreEveryBitIsAccepted) {
    for (const long processors : {32L, 33L, 64L, 1024L}) {
        kernel_double kernel;
        build_machine(kernel, processors);
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0xffffffff), NORV_STATUS_OK);
        EXPECT_THAT(requested_processors(kernel), SizeIs(32));
    }
}

TEST(ThreadAffinityMask, AnEmptyMaskGoesToTheKernelWhichRefusesIt) {
    const kernel_double kernel;
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0), norv_get_status_by_errno(EINVAL));
    EXPECT_THAT(requested_processors(kernel), IsEmpty());
}

TEST(ThreadAffinityMask, ACountOfOneIsAccepted) {
    kernel_double kernel;
    build_machine(kernel, 1);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), NORV_STATUS_OK);
    EXPECT_THAT(requested_processors(kernel), ElementsAre(0));
}

TEST(ThreadAffinityMask, AFailureToCountTheProcessorsIsReported) {
    kernel_double kernel;
    kernel.fail("sysconf", EIO);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), norv_get_status_by_errno(EIO));
    EXPECT_THAT(kernel.calls("sched_setaffinity"), IsEmpty());
}

TEST(ThreadAffinityMask, ACountBelowOneWithoutAnErrnoAllowsNoProcessor) {
    for (const long processors : {0L, -1L}) {
        kernel_double kernel;
        build_machine(kernel, processors);
        errno = EBUSY;  // left over from an earlier call
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), NORV_STATUS_INVALID_ARG);
        EXPECT_THAT(kernel.calls("sched_setaffinity"), IsEmpty());
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0), NORV_STATUS_OK);
        EXPECT_THAT(requested_processors(kernel), IsEmpty());
    }
}

TEST(ThreadAffinityMask, AFailedCountWhoseErrnoMapsToZeroAllowsNoProcessor) {
    kernel_double kernel;
    kernel.map_errno(EIO, 0);
    kernel.fail("sysconf", EIO);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), NORV_STATUS_INVALID_ARG);
}

TEST(ThreadAffinityMask, TheKernelsRefusalIsReported) {
    kernel_double kernel;
    kernel.fail("sched_setaffinity", EPERM);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x1), norv_get_status_by_errno(EPERM));
}

// ---- one processor

TEST(ThreadAffinity, TheProcessorGoesToTheKernelForTheCallingThread) {
    for (const int processor : {0, 1, 31, 32, 1023}) {
        kernel_double kernel;
        build_machine(kernel, 1);
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(processor), NORV_STATUS_OK);
        EXPECT_THAT(requested_processors(kernel), ElementsAre(processor));
        const auto made = kernel.calls("sched_setaffinity")[0].as<affinity_setting>();
        EXPECT_EQ(made.thread, 0);
        EXPECT_EQ(made.processors.size(), 128U);
    }
}

TEST(ThreadAffinity, AProcessorBeyondTheSetGivesAnEmptySet) {
    for (const int processor : {-1, 1024, INT32_MIN, INT32_MAX}) {
        const kernel_double kernel;
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(processor), norv_get_status_by_errno(EINVAL));
        EXPECT_THAT(requested_processors(kernel), IsEmpty());
    }
}

TEST(ThreadAffinity, TheKernelsRefusalIsReported) {
    kernel_double kernel;
    kernel.fail("sched_setaffinity", EPERM);
    EXPECT_EQ(norv_linux_thread_set_cpu_affinity(0), norv_get_status_by_errno(EPERM));
}

TEST(ThreadAffinity, TheThreadThenRunsThere) {
    on_another_thread([] {
        const int processor = allowed_processor();
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(processor), NORV_STATUS_OK);
        EXPECT_EQ(sched_getcpu(), processor);
    });
}

// ---- class and priority

TEST(ThreadPriority, NormalIsSchedOtherAtItsHighestPriority) {
    kernel_double kernel;
    kernel.answer("pthread_setschedparam", 0);
    EXPECT_EQ(norv_linux_thread_set_normal_priority(), NORV_STATUS_OK);
    const auto calls = kernel.calls<schedule_setting>("pthread_setschedparam");
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_TRUE(calls[0].of_caller);
    EXPECT_EQ(calls[0].policy, SCHED_OTHER);
    EXPECT_EQ(calls[0].priority, sched_get_priority_max(SCHED_OTHER));
}

TEST(ThreadPriority, RealTimeIsSchedFifoAtItsHighestPriority) {
    kernel_double kernel;
    kernel.answer("pthread_setschedparam", 0);
    EXPECT_EQ(norv_linux_thread_set_realtime_priority(), NORV_STATUS_OK);
    const auto calls = kernel.calls<schedule_setting>("pthread_setschedparam");
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_TRUE(calls[0].of_caller);
    EXPECT_EQ(calls[0].policy, SCHED_FIFO);
    EXPECT_EQ(calls[0].priority, 99);
}

// quirk 33
TEST(ThreadPriority, ARefusalByAPositiveNumberReturnsZero) {
    kernel_double kernel;
    kernel.answer("pthread_setschedparam", EPERM);
    EXPECT_EQ(norv_linux_thread_set_normal_priority(), NORV_STATUS_OK);
    EXPECT_EQ(norv_linux_thread_set_realtime_priority(), NORV_STATUS_OK);
}

TEST(ThreadPriority, ANegativeResultIsAFailure) {
    kernel_double kernel;
    kernel.fail("pthread_setschedparam", EPERM);
    EXPECT_EQ(norv_linux_thread_set_normal_priority(), norv_get_status_by_errno(EPERM));
    kernel.fail("pthread_setschedparam", EPERM);
    EXPECT_EQ(norv_linux_thread_set_realtime_priority(), norv_get_status_by_errno(EPERM));
}

TEST(ThreadPriority, AThreadSetToNormalHasTheOrdinaryClass) {
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_normal_priority(), NORV_STATUS_OK);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    });
}

// ---- name

TEST(ThreadName, TheCallingThreadGetsTheName) {
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_name("fifteen letters"), NORV_STATUS_OK);
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "fifteen letters");
    });
}

// quirk 33
TEST(ThreadName, ANameOf16CharactersIsNotSetAndReturnsZero) {
    on_another_thread([] {
        norv_linux_thread_set_name("before");
        EXPECT_EQ(norv_linux_thread_set_name("sixteen letters."), NORV_STATUS_OK);
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "before");
    });
}

TEST(ThreadName, ANegativeResultIsAFailure) {
    kernel_double kernel;
    kernel.fail("pthread_setname_np", EIO);
    EXPECT_EQ(norv_linux_thread_set_name("name"), norv_get_status_by_errno(EIO));
}

TEST(ThreadName, ANullNameIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_thread_set_name(nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- every call may fail

uint32_t set_everything() {
    uint32_t status = norv_linux_thread_set_name("sweep");
    if (status == NORV_STATUS_OK) {
        status = norv_linux_thread_set_cpu_affinity_mask(1U << allowed_processor());
    }
    if (status == NORV_STATUS_OK) {
        status = norv_linux_thread_set_cpu_affinity(allowed_processor());
    }
    if (status == NORV_STATUS_OK) {
        status = norv_linux_thread_set_normal_priority();
    }
    return status == NORV_STATUS_OK ? norv_linux_thread_set_realtime_priority() : status;
}

TEST(ThreadSweep, EveryFailureIsReported) {
    norv::test::sweep_options options;
    options.short_counts = false;
    failure_sweep([](kernel_double&) {},
                  [] {
                      uint32_t status = 0;
                      on_another_thread([&] { status = set_everything(); });
                      return status;
                  },
                  options);
}

}  // namespace
