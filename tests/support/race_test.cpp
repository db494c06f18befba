// SPDX-License-Identifier: MIT
// Data races that the thread sanitizer has to report although both threads call through the kernel double in
// between, and orders that it has to see there. Each test runs in a process of its own; tests/CMakeLists.txt
// lists those in which it must find a race.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "norv_base.h"
#include "support/kernel_double.hpp"

namespace {

using norv::test::device;
using norv::test::kernel_double;

// Counts its openings, as a driver does under a lock of its own.
class counting_device : public device {
  public:
    long open(int) override { return ++opened_; }
    long write(const void*, size_t size, off_t) override { return static_cast<long>(size); }

  private:
    int opened_ = 0;
};

class RaceThroughTheDouble : public testing::Test {
  protected:
    RaceThroughTheDouble() {
        kernel.add_file("/sys/attribute", "0");
        kernel.add_device("/dev/device", std::make_shared<counting_device>());
    }

    // Two threads change a variable, the first before this call, the second after it: at different times, but
    // nothing that the sanitizer knows puts them in an order.
    void change_on_two_threads(const std::function<void()>& first_call,
                               const std::function<void()>& second_call) {
        std::thread first([&] {
            ++shared;
            first_call();
            changed.store(true, std::memory_order_relaxed);
        });
        std::thread second([&] {
            while (!changed.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
            second_call();
            ++shared;
        });
        first.join();
        second.join();
        EXPECT_EQ(shared, 2);
    }
    void change_on_two_threads(const std::function<void()>& call) { change_on_two_threads(call, call); }

    kernel_double kernel;
    int shared = 0;
    std::atomic<bool> changed = false;
};

TEST_F(RaceThroughTheDouble, IsFoundPastACallOnAPath) {
    change_on_two_threads([] { EXPECT_EQ(access("/sys/attribute", F_OK), 0); });
}

TEST_F(RaceThroughTheDouble, IsFoundPastAnOpenAndCloseOfADevice) {
    change_on_two_threads([] { close(open("/dev/device", O_RDWR)); });
}

TEST_F(RaceThroughTheDouble, IsFoundPastAWriteToADevice) {
    const int descriptor = open("/dev/device", O_RDWR);
    change_on_two_threads([=] { EXPECT_EQ(write(descriptor, "x", 1), 1); });
    close(descriptor);
}

TEST_F(RaceThroughTheDouble, IsFoundPastAWriteAndAReadOfAttributes) {
    const int descriptor = open("/sys/attribute", O_RDWR);
    char byte = 0;
    change_on_two_threads([=] { EXPECT_EQ(write(descriptor, "1", 1), 1); },
                          [&] { EXPECT_EQ(read(descriptor, &byte, 1), 0); });
    close(descriptor);
}

TEST_F(RaceThroughTheDouble, IsFoundPastAnAllocation) {
    change_on_two_threads([] { norv_free(norv_zalloc(8)); });
}

TEST_F(RaceThroughTheDouble, IsFoundPastALookAtTheJournal) {
    change_on_two_threads([this] { EXPECT_TRUE(kernel.calls("open").empty()); });
}

TEST_F(RaceThroughTheDouble, IsFoundInABufferThatIsRead) {
    const int descriptor = open("/sys/attribute", O_RDWR);
    char byte = 0;
    std::thread reader([&] {
        EXPECT_EQ(read(descriptor, &byte, 1), 1);
        changed.store(true, std::memory_order_relaxed);
    });
    while (!changed.load(std::memory_order_relaxed)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(byte, '0');
    reader.join();
    close(descriptor);
}

TEST_F(RaceThroughTheDouble, IsNoneWhereAMutexOfTheBaseLibraryPutsTheThreadsInOrder) {
    norv_mutex_t mutex;
    ASSERT_EQ(norv_mutex_init(&mutex), NORV_STATUS_OK);
    change_on_two_threads([&] {
        norv_mutex_lock(&mutex);
        norv_mutex_unlock(&mutex);
    });
    norv_mutex_destroy(&mutex);
}

TEST_F(RaceThroughTheDouble, IsNoneWhereTheKernelPutsTheThreadsInOrder) {
    const int counter = eventfd(0, EFD_CLOEXEC);
    eventfd_t count = 0;
    change_on_two_threads([=] { eventfd_write(counter, 1); }, [&] { eventfd_read(counter, &count); });
    EXPECT_EQ(count, 1U);
    close(counter);
}

TEST_F(RaceThroughTheDouble, IsNoneInADeviceModel) {
    const auto open_often = [] {
        for (int number = 0; number < 100; ++number) {
            close(open("/dev/device", O_RDWR));
        }
    };
    std::thread first(open_often);
    std::thread second(open_often);
    first.join();
    second.join();
}

}  // namespace
