// SPDX-License-Identifier: MIT
// The kernel double: its journal, the clock and the answers that a test sets, and the leaks that it reports.
#include "support/kernel_double.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "norv_base.h"

namespace {

using norv::test::byte_transfer;
using norv::test::byte_transfer_at;
using norv::test::call;
using norv::test::control;
using norv::test::device;
using norv::test::kernel_double;
using norv::test::opening;
using testing::ElementsAre;

// A device that is read as zeros, and can be mapped.
class zeros : public device {
  public:
    long read(void* buffer, size_t size, off_t) override {
        memset(buffer, 0, size);
        return static_cast<long>(size);
    }
    intptr_t map(size_t, int, int, off_t) override { return reinterpret_cast<intptr_t>(memory_.data()); }

  private:
    alignas(4096) std::array<char, 4096> memory_ = {};
};

TEST(KernelDouble, TheTestsOwnMemoryNeitherFailsNorIsWatched) {
    kernel_double kernel;
    for (const char* call : {"malloc", "calloc"}) {
        kernel.fail(call, ENOMEM);
        void* memory = call[0] == 'm' ? malloc(8) : calloc(1, 8);
        EXPECT_NE(memory, nullptr);
        EXPECT_EQ(kernel.allocations(), 0U);
        free(memory);
        EXPECT_FALSE(kernel.struck());
    }
}

TEST(KernelDouble, TheClockStopsAtTheTimeThatATestSets) {
    timespec time = {};
    {
        kernel_double kernel;
        kernel.set_clock(1, 250);
        EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
        EXPECT_EQ(time.tv_sec, 1);
        EXPECT_EQ(time.tv_nsec, 250);
    }
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
    EXPECT_GT(time.tv_sec, 1);
}

TEST(KernelDouble, TheClockFailsOnlyForATestThatNamesIt) {
    kernel_double kernel;
    timespec time = {};
    kernel.fail("", EINVAL);
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
    kernel.fail("clock_gettime", EINVAL);
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), -1);
}

TEST(KernelDouble, TheUptimeCanBeSet) {
    kernel_double kernel;
    struct sysinfo information = {};
    EXPECT_EQ(sysinfo(&information), 0);
    EXPECT_GT(information.uptime, 0);
    kernel.set_uptime(123456);
    EXPECT_EQ(sysinfo(&information), 0);
    EXPECT_EQ(information.uptime, 123456);
    kernel.fail("sysinfo", EFAULT);
    EXPECT_EQ(sysinfo(&information), -1);
}

TEST(KernelDouble, AThreadSettingReturnsTheTestsAnswerAndDoesNothing) {
    kernel_double kernel;
    kernel.answer("pthread_setname_np", EPERM);
    EXPECT_EQ(pthread_setname_np(pthread_self(), "renamed"), EPERM);
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    EXPECT_STRNE(name, "renamed");
}

TEST(KernelDouble, AnErrnoCanBeMappedToAnyStatus) {
    kernel_double kernel;
    kernel.map_errno(EIO, 0);
    EXPECT_EQ(norv_get_status_by_errno(EIO), 0U);
    EXPECT_EQ(norv_get_status_by_errno(ENOMEM), NORV_STATUS_NO_MEMORY);
}

int format(char* text, size_t size, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(text, size, format, values);
    va_end(values);
    return length;
}

TEST(KernelDouble, FormattingFailsOnlyForATestThatNamesIt) {
    kernel_double kernel;
    char text[8];
    const std::string word = "ab";
    kernel.fail("", EIO);
    EXPECT_EQ(format(text, sizeof text, "%s", word.c_str()), 2);
    kernel.fail("vsnprintf", EOVERFLOW);
    EXPECT_EQ(format(text, sizeof text, "%s", word.c_str()), -1);
}

TEST(KernelDouble, AnUnlockFailsOnlyForATestThatNamesItAndStillUnlocks) {
    kernel_double kernel;
    norv_mutex_t mutex;
    norv_mutex_init(&mutex);
    norv_mutex_lock(&mutex);
    kernel.fail("", EINVAL);
    EXPECT_EQ(norv_mutex_unlock(&mutex), 0U);
    EXPECT_EQ(norv_mutex_lock(&mutex), NORV_STATUS_BAD_STATE);
    norv_mutex_lock(&mutex);
    kernel.fail("norv_mutex_unlock", EINVAL);
    EXPECT_EQ(norv_mutex_unlock(&mutex), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(norv_mutex_lock(&mutex), 0U);
    norv_mutex_unlock(&mutex);
    norv_mutex_destroy(&mutex);
}

TEST(KernelDouble, EveryLockIsReportedWhenTakenAndBeforeItsRelease) {
    kernel_double kernel;
    norv_mutex_t mutex;
    std::vector<bool> reported;
    kernel.on_lock([&](bool taken) { reported.push_back(taken); });
    norv_mutex_init(&mutex);
    norv_mutex_lock(&mutex);
    EXPECT_THAT(reported, ElementsAre(true));
    norv_mutex_unlock(&mutex);
    EXPECT_THAT(reported, ElementsAre(true, false));
    kernel.fail("norv_mutex_lock", EINVAL);
    norv_mutex_lock(&mutex);
    EXPECT_THAT(reported, ElementsAre(true, false));
    norv_mutex_destroy(&mutex);
}

TEST(KernelDouble, ALeakedDescriptorIsReported) {
    EXPECT_NONFATAL_FAILURE(
        {
            kernel_double kernel;
            kernel.accept_leaked_descriptors(2);
            eventfd(0, 0);
        },
        "descriptors left open");
}

TEST(KernelDouble, LeakedMemoryIsReported) {
    EXPECT_NONFATAL_FAILURE(
        {
            const kernel_double kernel;
            static_cast<void>(norv_zalloc(8));
        },
        "memory left allocated");
}

TEST(KernelDouble, ALeakedMappingIsReported) {
    const auto model = std::make_shared<zeros>();
    EXPECT_NONFATAL_FAILURE(
        {
            kernel_double kernel;
            kernel.add_device("/dev/zero", model);
            const int descriptor = open("/dev/zero", O_RDWR);
            mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
            close(descriptor);
        },
        "mappings left behind");
}

TEST(KernelDouble, ClosingADescriptorTwiceIsReported) {
    const kernel_double kernel;
    const int descriptor = eventfd(0, 0);
    close(descriptor);
    EXPECT_NONFATAL_FAILURE(close(descriptor), "is not open");
}

// ---- the journal

TEST(KernelDouble, EachKindOfCallHasARecordOfWhatItWasAsked) {
    kernel_double kernel;
    kernel.add_file("/dev/file", "text");
    const int descriptor = open("/dev/file", O_RDONLY | O_CLOEXEC);
    char text[8] = {};
    EXPECT_EQ(read(descriptor, text, sizeof text), 4);
    EXPECT_EQ(pread(descriptor, text, 2, 1), 2);
    close(descriptor);
    EXPECT_EQ(kernel.calls("open").at(0).as<opening>().flags, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(kernel.calls<byte_transfer>("read").at(0).bytes, "text");
    EXPECT_EQ(kernel.calls<byte_transfer_at>("pread").at(0).offset, 1);
    EXPECT_EQ(kernel.calls<byte_transfer_at>("pread").at(0).bytes, "ex");
    EXPECT_THROW(kernel.calls<control>("read"), std::logic_error);
}

TEST(KernelDouble, AReadOfADeviceIsJournalledWithTheFilePosition) {
    kernel_double kernel;
    kernel.add_device("/dev/zero", std::make_shared<zeros>());
    const int descriptor = open("/dev/zero", O_RDONLY);
    char bytes[4];
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
    EXPECT_EQ(kernel.calls<byte_transfer>("read").at(0).position, 0);
    EXPECT_EQ(kernel.calls<byte_transfer>("read").at(1).position, 4);
    close(descriptor);
}

TEST(KernelDouble, AForgottenJournalIsEmpty) {
    kernel_double kernel;
    EXPECT_EQ(access("/dev/file", F_OK), -1);
    EXPECT_EQ(kernel.calls("access").at(0).path, "/dev/file");
    EXPECT_EQ(kernel.calls("access").at(0).result, -1);
    kernel.forget_calls();
    EXPECT_TRUE(kernel.calls().empty());
}

}  // namespace
