// SPDX-License-Identifier: MIT
// Thread control on a real scheduler with two processors, with and without privilege.
#include "norv_linux_thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "norv_base.h"

namespace {

constexpr uid_t nobody = 65534;

template <typename action>
void on_another_thread(action act) {
    std::thread(act).join();
}

uint32_t allowed_mask() {
    cpu_set_t allowed = {};
    sched_getaffinity(0, sizeof allowed, &allowed);
    uint32_t mask = 0;
    for (size_t processor = 0; processor < 32; ++processor) {
        mask |= CPU_ISSET(processor, &allowed) ? 1U << processor : 0U;
    }
    return mask;
}

struct scheduling {
    int policy = -1;
    sched_param parameters = {};
};

scheduling current() {
    scheduling now;
    pthread_getschedparam(pthread_self(), &now.policy, &now.parameters);
    return now;
}

TEST(ThreadOnBoard, AThreadRunsOnTheProcessorsOfItsMask) {
    on_another_thread([] {
        ASSERT_EQ(allowed_mask(), 0x3U);
        for (const uint32_t mask : {0x1U, 0x2U, 0x3U}) {
            EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(mask), NORV_STATUS_OK);
            EXPECT_EQ(allowed_mask(), mask);
            EXPECT_NE(1U << sched_getcpu() & mask, 0U);
        }
    });
}

TEST(ThreadOnBoard, AThirdProcessorIsRefusedAndChangesNothing) {
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0x4), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(2), norv_get_status_by_errno(EINVAL));
        EXPECT_EQ(allowed_mask(), 0x3U);
    });
}

TEST(ThreadOnBoard, TheKernelRefusesAnEmptySet) {
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity_mask(0), norv_get_status_by_errno(EINVAL));
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(-1), norv_get_status_by_errno(EINVAL));
        EXPECT_EQ(norv_linux_thread_set_cpu_affinity(1024), norv_get_status_by_errno(EINVAL));
        EXPECT_EQ(allowed_mask(), 0x3U);
    });
}

TEST(ThreadOnBoard, AThreadRunsOnOneProcessor) {
    on_another_thread([] {
        for (const int processor : {1, 0, 1}) {
            EXPECT_EQ(norv_linux_thread_set_cpu_affinity(processor), NORV_STATUS_OK);
            EXPECT_EQ(sched_getcpu(), processor);
        }
    });
}

TEST(ThreadOnBoard, OnlyTheCallingThreadIsMoved) {
    on_another_thread([] { EXPECT_EQ(norv_linux_thread_set_cpu_affinity(1), NORV_STATUS_OK); });
    EXPECT_EQ(allowed_mask(), 0x3U);
}

TEST(ThreadOnBoard, WithPrivilegeRealTimeIsFifoAtPriority99) {
    ASSERT_EQ(geteuid(), 0U);
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_realtime_priority(), NORV_STATUS_OK);
        EXPECT_EQ(sched_getscheduler(0), SCHED_FIFO);
        EXPECT_EQ(current().policy, SCHED_FIFO);
        EXPECT_EQ(current().parameters.sched_priority, 99);
        EXPECT_EQ(norv_linux_thread_set_normal_priority(), NORV_STATUS_OK);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
        EXPECT_EQ(current().parameters.sched_priority, 0);
    });
    EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
}

// Runs as an ordinary user, in a process of its own. Returns 0, or the number of the step that failed.
int without_privilege() {
    if (setresuid(nobody, nobody, nobody) != 0) {
        return 1;
    }
    if (norv_linux_thread_set_realtime_priority() != 0) {
        return 2;
    }
    if (sched_getscheduler(0) != SCHED_OTHER || current().parameters.sched_priority != 0) {
        return 3;
    }
    return norv_linux_thread_set_normal_priority() == 0 ? 0 : 4;
}

TEST(ThreadOnBoard, WithoutPrivilegeRealTimeReturnsZeroAndChangesNothing) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        _exit(without_privilege());
    }
    int ended = -1;
    ASSERT_EQ(waitpid(child, &ended, 0), child);
    EXPECT_TRUE(WIFEXITED(ended));
    EXPECT_EQ(WEXITSTATUS(ended), 0);
}

TEST(ThreadOnBoard, TheKernelShowsTheName) {
    on_another_thread([] {
        EXPECT_EQ(norv_linux_thread_set_name("norv control"), NORV_STATUS_OK);
        EXPECT_EQ(norv_linux_thread_set_name("longer than the kernel takes"), NORV_STATUS_OK);
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "norv control");
    });
}

}  // namespace
