// SPDX-License-Identifier: MIT
// The event loop: its handle, descriptors, calls from other threads, and how it runs and ends.
#include "norv_epoll.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/event_loop.hpp"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"
#include "support/real_calls.hpp"
#include "support/status.hpp"

namespace {

// What destroying a mutex returns.
uint32_t mutex_destroy_status = NORV_STATUS_OK;

// What was destroyed, in this order.
std::vector<const void*> destroyed;

}  // namespace

// The library finds these two first.
extern "C" uint32_t norv_mutex_destroy(norv_mutex_t* mutex) {
    destroyed.push_back(mutex);
    REAL(norv_mutex_destroy)(mutex);
    return mutex_destroy_status;
}
extern "C" uint32_t norv_event_deinit(norv_event_t* event) {
    destroyed.push_back(event);
    return REAL(norv_event_deinit)(event);
}

namespace {

using norv::test::delayed_call;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::loop_thread;
using norv::test::open_loop;
using norv::test::source;
using norv::test::timer;
using norv::test::wait_for_posted_call;
using norv::test::waiting;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

uint64_t word_of(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

template <typename record>
record* record_of(uint64_t word) {
    return reinterpret_cast<record*>(static_cast<uintptr_t>(word));
}

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

// A descriptor that an epoll instance watches, as the kernel shows it in /proc.
struct registration {
    uint32_t events = 0;
    uint64_t data = 0;
};

std::vector<registration> registrations_of(int epoll, int descriptor) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(epoll));
    std::vector<registration> found;
    for (std::string line; std::getline(info, line);) {
        std::istringstream words(line);
        std::string label;
        int number = -1;
        registration entry;
        words >> label >> number >> label >> std::hex >> entry.events >> label >> entry.data;
        if (line.starts_with("tfd:") && number == descriptor) {
            found.push_back(entry);
        }
    }
    return found;
}

class EventLoop : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(loop.opened, NORV_STATUS_OK); }

    void add(source& ready, uint32_t events = EPOLLIN) {
        ASSERT_EQ(norv_epoll_fd_add(&loop.handle, &ready.record, events), NORV_STATUS_OK);
    }
    // Adds descriptors that are ready in this order.
    void add_ready(std::initializer_list<source*> sources) {
        for (source* ready : sources) {
            ready->signal();
            add(*ready);
        }
    }
    // Ends the run after the descriptors of the round.
    void exit_at_end_of_round() { norv_epoll_delayed_schedule(&loop.handle, &last_.record, 0); }

    open_loop loop;
    std::vector<std::string> journal;

  private:
    delayed_call last_{[this] { loop.exit(); }};
};

// ---- open and close

TEST_F(EventLoop, OpeningRegistersTheEventfdWithTheHandleAsItsData) {
    const auto found = registrations_of(loop.handle.epoll_descriptor, loop.handle.call_descriptor);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].events, static_cast<uint32_t>(EPOLLIN | EPOLLERR | EPOLLHUP));
    EXPECT_EQ(found[0].data, word_of(&loop.handle));
}

TEST_F(EventLoop, TheEventfdIsNonBlockingAndNotInheritedByPrograms) {
    EXPECT_NE(fcntl(loop.handle.call_descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(loop.handle.call_descriptor, F_GETFD), FD_CLOEXEC);
}

// quirk 11
TEST_F(EventLoop, TheEpollDescriptorIsInheritedByPrograms) {
    EXPECT_EQ(fcntl(loop.handle.epoll_descriptor, F_GETFD), 0);
}

// quirk 12
TEST(EventLoopHandle, OpeningDoesNotClearTheRecord) {
    norv_epoll_t loop = {};
    loop.reserved = 7;
    loop.delayed_sequence = 5;
    ASSERT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    EXPECT_EQ(loop.reserved, 7U);
    EXPECT_EQ(loop.delayed_sequence, 5U);
    norv_epoll_close(&loop);
}

TEST(EventLoopHandle, ClosingClosesBothDescriptorsAndMarksThemClosed) {
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    const int epoll = loop.epoll_descriptor;
    const int wake_up = loop.call_descriptor;
    EXPECT_EQ(norv_epoll_close(&loop), NORV_STATUS_OK);
    EXPECT_FALSE(is_open(epoll));
    EXPECT_FALSE(is_open(wake_up));
    EXPECT_EQ(loop.epoll_descriptor, -1);
    EXPECT_EQ(loop.call_descriptor, -1);
}

TEST(EventLoopHandle, ClosingClosesTheEventfdBeforeTheEpollDescriptor) {
    kernel_double kernel;
    norv_epoll_t loop = {};
    norv_epoll_open(&loop);
    kernel.forget_calls();
    norv_epoll_close(&loop);
    const auto closes = kernel.calls("close");
    ASSERT_EQ(closes.size(), 2U);
    EXPECT_EQ(closes[0].path, "eventfd");
    EXPECT_EQ(closes[1].path, "epoll_create");
}

TEST(EventLoopHandle, ClosingDestroysTheEventAndThenTheMutex) {
    norv_epoll_t loop = {};
    norv_epoll_open(&loop);
    destroyed.clear();
    norv_epoll_close(&loop);
    EXPECT_THAT(destroyed, ElementsAre(&loop.call_done, &loop.call_mutex));
}

// quirk 13
TEST(EventLoopHandle, ClosingReturnsTheResultOfTheLastCloseUnmapped) {
    kernel_double kernel;
    norv_epoll_t loop = {};
    norv_epoll_open(&loop);
    kernel.fail({.call = "close", .path = "epoll_create", .error = EIO});
    EXPECT_EQ(norv_epoll_close(&loop), 0xFFFFFFFFU);
    EXPECT_EQ(loop.epoll_descriptor, -1);
}

TEST(EventLoopHandle, ClosingAHandleWithoutDescriptorsClosesNothing) {
    kernel_double kernel;
    norv_epoll_t loop = {};  // both descriptors are 0, which counts as not open
    EXPECT_EQ(norv_epoll_close(&loop), NORV_STATUS_OK);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_EQ(loop.epoll_descriptor, 0);
    EXPECT_EQ(loop.call_descriptor, 0);
}

// quirk 13
TEST(EventLoopHandle, ClosingWithoutDescriptorsReturnsTheStatusOfTheMutex) {
    mutex_destroy_status = NORV_STATUS_BAD_STATE;
    norv_epoll_t loop = {};
    EXPECT_EQ(norv_epoll_close(&loop), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_close(&loop), NORV_STATUS_OK);  // that of the last step, a close(2)
    mutex_destroy_status = NORV_STATUS_OK;
}

TEST(EventLoopHandle, ALoopCanBeOpenedAgainAfterItsClose) {
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    norv_epoll_close(&loop);
    EXPECT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_close(&loop), NORV_STATUS_OK);
}

// A failing step of opening, its status, and how many descriptors are open by then.
struct failing_step {
    const char* call;
    uint32_t status;
    size_t closes;
};

class FailedOpening : public testing::TestWithParam<failing_step> {};

TEST_P(FailedOpening, ReturnsTheStatusOfTheFirstFailureAndClosesWhatWasOpened) {
    kernel_double kernel;
    norv_epoll_t loop = {};
    kernel.fail(GetParam().call, EMFILE);
    EXPECT_EQ(norv_epoll_open(&loop), GetParam().status);
    EXPECT_EQ(kernel.calls("close").size(), GetParam().closes);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_LE(loop.epoll_descriptor, 0);
    EXPECT_LE(loop.call_descriptor, 0);
}

INSTANTIATE_TEST_SUITE_P(Steps, FailedOpening,
                         testing::Values(failing_step{"epoll_create", NORV_STATUS_ERRNO_BASE + EMFILE, 0},
                                         failing_step{"norv_mutex_init", NORV_STATUS_NO_MEMORY, 1},
                                         failing_step{"norv_event_init", NORV_STATUS_NO_MEMORY, 1},
                                         failing_step{"eventfd", NORV_STATUS_ERRNO_BASE + EMFILE, 1},
                                         failing_step{"epoll_ctl", NORV_STATUS_ERRNO_BASE + EMFILE, 2}),
                         [](const testing::TestParamInfo<failing_step>& step) {
                             return std::string(step.param.call);
                         });

TEST(EventLoopHandle, AHandleCanBeClosedAfterAFailedOpen) {
    kernel_double kernel;
    norv_epoll_t loop = {};
    kernel.fail("epoll_ctl", ENOSPC);
    ASSERT_NE(norv_epoll_open(&loop), NORV_STATUS_OK);
    kernel.forget_calls();
    norv_epoll_close(&loop);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST(EventLoopHandle, OpeningContinuesAfterAnErrnoThatMapsToZero) {
    kernel_double kernel;
    kernel.map_errno(EMFILE, NORV_STATUS_OK);
    kernel.fail("epoll_ctl", EMFILE);
    norv_epoll_t loop = {};
    EXPECT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
    EXPECT_GT(loop.epoll_descriptor, 0);
    norv_epoll_close(&loop);
}

TEST_F(EventLoop, NullPointersAreRefused) {
    const norv_epoll_call_fn function = [](norv_epoll_t*, uint64_t, uint64_t) { return uint32_t{0}; };
    source ready;
    EXPECT_EQ(norv_epoll_open(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_close(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_exit(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_wait_loop_started(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_call_sync(nullptr, function, 0, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, nullptr, 0, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_add(nullptr, &ready.record, EPOLLIN), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_add(&loop.handle, nullptr, EPOLLIN), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_modify(nullptr, &ready.record, EPOLLIN), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_modify(&loop.handle, nullptr, EPOLLIN), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_ignore_once(nullptr, &ready.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_remove(nullptr, &ready.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
}

TEST(EventLoopHandle, RunningNullReturnsAtOnce) {
    norv_epoll_loop_with_watchdog(nullptr, nullptr, 0);
}

// ---- descriptors

TEST_F(EventLoop, AddingRegistersTheDescriptorWithItsRecordAsData) {
    source ready;
    add(ready, EPOLLOUT);
    const auto found = registrations_of(loop.handle.epoll_descriptor, ready.record.descriptor);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].events, static_cast<uint32_t>(EPOLLOUT | EPOLLERR | EPOLLHUP));
    EXPECT_EQ(found[0].data, word_of(&ready.record));
    EXPECT_EQ(ready.record.loop, &loop.handle);
}

// quirk 14
TEST_F(EventLoop, AFailedAddReturnsTheErrnoStatusAndLeavesTheRecordsLoopSet) {
    norv_epoll_fd_t record = {nullptr, -1, nullptr};
    EXPECT_EQ(norv_epoll_fd_add(&loop.handle, &record, EPOLLIN), errno_status(EBADF));
    EXPECT_EQ(record.loop, &loop.handle);
}

TEST_F(EventLoop, ModifyingChangesTheEventsAndKeepsTheRecordAsData) {
    source ready;
    add(ready, EPOLLIN);
    EXPECT_EQ(norv_epoll_fd_modify(&loop.handle, &ready.record, EPOLLPRI | EPOLLET), NORV_STATUS_OK);
    const auto found = registrations_of(loop.handle.epoll_descriptor, ready.record.descriptor);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].events, static_cast<uint32_t>(EPOLLPRI | EPOLLET | EPOLLERR | EPOLLHUP));
    EXPECT_EQ(found[0].data, word_of(&ready.record));
}

TEST_F(EventLoop, AddingAndModifyingRunOnTheCallingThread) {
    kernel_double kernel;
    source idle;
    const loop_thread running(&loop.handle);
    kernel.fail("eventfd_write", EIO);
    EXPECT_EQ(norv_epoll_fd_add(&loop.handle, &idle.record, EPOLLIN), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_fd_modify(&loop.handle, &idle.record, EPOLLPRI), NORV_STATUS_OK);
    EXPECT_FALSE(kernel.struck());
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &idle.record), NORV_STATUS_WAKE_FAILED);
}

TEST_F(EventLoop, ModifyingADescriptorThatIsNotRegisteredReturnsTheErrnoStatus) {
    source ready;
    EXPECT_EQ(norv_epoll_fd_modify(&loop.handle, &ready.record, EPOLLIN), errno_status(ENOENT));
    EXPECT_EQ(ready.record.loop, nullptr);
}

TEST_F(EventLoop, RemovingEndsTheRegistrationAndClearsTheRecordsLoop) {
    source ready;
    add(ready);
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &ready.record), NORV_STATUS_OK);
    EXPECT_THAT(registrations_of(loop.handle.epoll_descriptor, ready.record.descriptor), IsEmpty());
    EXPECT_EQ(ready.record.loop, nullptr);
}

// quirk 14
TEST_F(EventLoop, AFailedRemovalReturnsTheErrnoStatusAndClearsTheRecordsLoop) {
    source ready;
    ready.record.loop = &loop.handle;
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &ready.record), errno_status(ENOENT));
    EXPECT_EQ(ready.record.loop, nullptr);
}

TEST_F(EventLoop, AReadyDescriptorReachesItsHandlerWithTheKernelsEventMask) {
    uint32_t seen = 0;
    source ready([&](uint32_t events) {
        seen = events;
        loop.exit();
    });
    ready.signal();
    add(ready, EPOLLIN | EPOLLOUT);
    loop.run();
    EXPECT_EQ(seen, static_cast<uint32_t>(EPOLLIN | EPOLLOUT));
    EXPECT_EQ(ready.deliveries, 1);
}

TEST_F(EventLoop, UnrequestedEventsOfTheKernelReachTheHandler) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    uint32_t seen = 0;
    source hung_up([&](uint32_t events) {
        seen = events;
        loop.exit();
    });
    close(hung_up.record.descriptor);
    hung_up.record.descriptor = ends[0];
    add(hung_up, EPOLLIN);
    loop.run();
    EXPECT_EQ(seen, static_cast<uint32_t>(EPOLLHUP));
}

TEST_F(EventLoop, ADescriptorAddedByAHandlerIsServedInTheNextRound) {
    source added([&](uint32_t) { loop.exit(); });
    added.signal();
    source first([&](uint32_t) {
        first.quiet();
        add(added);
    });
    add_ready({&first});
    loop.run();
    EXPECT_EQ(added.deliveries, 1);
}

TEST_F(EventLoop, MoreThan256ReadyDescriptorsAreServedInBatchesOf256) {
    std::array<source, 600> sources;
    std::vector<int> batches;
    int served = 0;
    for (source& ready : sources) {
        ready.on_event([&](uint32_t) {
            ready.quiet();
            if (loop.handle.dispatch_index == 0) {
                batches.push_back(loop.handle.ready_count);
            }
            if (++served == 600) {
                loop.exit();
            }
        });
        add_ready({&ready});
    }
    loop.run();
    EXPECT_THAT(batches, ElementsAre(256, 256, 88));
    EXPECT_THAT(sources, Each(testing::Field(&source::deliveries, 1)));
}

// ---- pending events

TEST_F(EventLoop, RemovingADescriptorDropsItsEventInTheSameBatch) {
    source second;
    source first([&](uint32_t) {
        EXPECT_EQ(loop.handle.ready_count, 2);
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &second.record), NORV_STATUS_OK);
        exit_at_end_of_round();
    });
    add_ready({&first, &second});
    loop.run();
    EXPECT_EQ(first.deliveries, 1);
    EXPECT_EQ(second.deliveries, 0);
}

TEST_F(EventLoop, AHandlerMayFreeAReadyRecordThatItRemoved) {
    auto removed = std::make_unique<source>();
    source first([&](uint32_t) {
        norv_epoll_fd_remove(&loop.handle, &removed->record);
        removed.reset();
        exit_at_end_of_round();
    });
    add_ready({&first, removed.get()});
    loop.run();
    EXPECT_EQ(first.deliveries, 1);
}

TEST_F(EventLoop, AHandlerMayRemoveAndFreeItsOwnRecord) {
    auto itself = std::make_unique<source>();
    itself->on_event([&](uint32_t) {
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &itself->record), NORV_STATUS_OK);
        const auto freed = std::move(itself);
        exit_at_end_of_round();
    });
    add_ready({itself.get()});
    loop.run();
    EXPECT_EQ(itself, nullptr);
}

TEST_F(EventLoop, AHandlerMayRemoveItsOwnDescriptor) {
    source itself([&](uint32_t) {
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &itself.record), NORV_STATUS_OK);
        EXPECT_EQ(loop.handle.ready[loop.handle.dispatch_index].data.u64, 0U);
    });
    source other([&](uint32_t) { exit_at_end_of_round(); });
    add_ready({&itself, &other});
    loop.run();
    EXPECT_EQ(itself.deliveries, 1);
    EXPECT_EQ(other.deliveries, 1);
}

TEST_F(EventLoop, ATimersCallbackDropsTheEventOfADescriptorThatItRemoves) {
    source removed;
    timer remover([&] {
        EXPECT_EQ(loop.handle.ready_count, 1);
        norv_epoll_fd_remove(&loop.handle, &removed.record);
        exit_at_end_of_round();
    });
    add_ready({&removed});
    norv_epoll_timer_schedule(&loop.handle, &remover.record, 0, false);
    loop.run();
    EXPECT_EQ(removed.deliveries, 0);
}

TEST_F(EventLoop, IgnoringOnceDropsThePendingEventAndKeepsTheRegistration) {
    source ignored;
    source first([&](uint32_t) {
        if (first.deliveries == 1) {
            EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &ignored.record), NORV_STATUS_OK);
        } else {
            EXPECT_EQ(ignored.deliveries, 0);
            exit_at_end_of_round();
        }
    });
    add_ready({&first, &ignored});
    loop.run();
    EXPECT_EQ(ignored.deliveries, 1);
    EXPECT_EQ(ignored.record.loop, &loop.handle);
}

TEST_F(EventLoop, IgnoringADescriptorWithoutAPendingEventDropsNothing) {
    source idle;
    source second;
    source first([&](uint32_t) {
        EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &idle.record), NORV_STATUS_OK);
        exit_at_end_of_round();
    });
    add_ready({&first, &second});
    loop.run();
    EXPECT_EQ(second.deliveries, 1);
}

TEST_F(EventLoop, IgnoringTwoDescriptorsDropsBothEvents) {
    source second;
    source third;
    source first([&](uint32_t) {
        norv_epoll_fd_ignore_once(&loop.handle, &second.record);
        norv_epoll_fd_ignore_once(&loop.handle, &third.record);
        exit_at_end_of_round();
    });
    add_ready({&first, &second, &third});
    loop.run();
    EXPECT_EQ(second.deliveries, 0);
    EXPECT_EQ(third.deliveries, 0);
}

// Two records with one descriptor number: the number of `stale` was closed and given out again, while a copy
// keeps its file, and so its registration, alive.
class SharedNumber : public EventLoop {
  protected:
    SharedNumber() {
        fresh.signal();
        add_ready({&first, &stale});
        copy_ = fcntl(stale.record.descriptor, F_DUPFD_CLOEXEC, 0);
        close(fresh.record.descriptor);
        fresh.record.descriptor = dup3(eventfd_, stale.record.descriptor, O_CLOEXEC);
        add(fresh);
    }
    ~SharedNumber() override {
        close(eventfd_);
        stale.record.descriptor = copy_;
    }

    source first;
    source stale;
    source fresh;

  private:
    int eventfd_ = eventfd(1, EFD_CLOEXEC);
    int copy_ = -1;
};

// quirk 15
TEST_F(SharedNumber, TheFirstPendingEventOfTheNumberIsDropped) {
    first.on_event([&](uint32_t) {
        EXPECT_EQ(loop.handle.ready_count, 3);
        EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &fresh.record), NORV_STATUS_OK);
        exit_at_end_of_round();
    });
    loop.run();
    EXPECT_EQ(stale.deliveries, 0);
    EXPECT_EQ(fresh.deliveries, 1);
}

// quirk 16
TEST_F(EventLoop, AFailedRemovalLeavesThePendingEventToBeDelivered) {
    int copy = -1;
    source removed;
    source first([&](uint32_t) {
        // Closed before its removal, which therefore fails.
        copy = fcntl(removed.record.descriptor, F_DUPFD_CLOEXEC, 0);
        close(removed.record.descriptor);
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &removed.record), errno_status(EBADF));
        exit_at_end_of_round();
    });
    add_ready({&first, &removed});
    loop.run();
    EXPECT_EQ(removed.deliveries, 1);
    removed.record.descriptor = copy;
}

TEST_F(EventLoop, AfterAFailedRemovalIgnoringOnceLetsTheRecordBeFreed) {
    auto removed = std::make_unique<source>();
    source first([&](uint32_t) {
        close(removed->record.descriptor);
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &removed->record), errno_status(EBADF));
        EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &removed->record), NORV_STATUS_OK);
        removed->record.descriptor = -1;
        removed.reset();
        exit_at_end_of_round();
    });
    add_ready({&first, removed.get()});
    loop.run();
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(loop.handle.ready[1].data.ptr, nullptr);
}

TEST_F(EventLoop, ARemovalWhoseErrnoMapsToZeroDropsThePendingEvent) {
    kernel_double kernel;
    kernel.map_errno(ENOENT, NORV_STATUS_OK);
    source second;
    source first([&](uint32_t) {
        kernel.fail("epoll_ctl", ENOENT);
        EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &second.record), NORV_STATUS_OK);
        exit_at_end_of_round();
    });
    add_ready({&first, &second});
    loop.run();
    EXPECT_EQ(second.deliveries, 0);
}

TEST_F(EventLoop, DescriptorsAreComparedWithAllTheirBits) {
    norv_epoll_fd_t high = {&loop.handle, 0x10005, nullptr};
    norv_epoll_fd_t low = {&loop.handle, 5, nullptr};
    loop.handle.ready_count = 2;
    loop.handle.ready[0].data.ptr = &low;
    loop.handle.ready[1].data.ptr = &high;
    EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &high), NORV_STATUS_OK);
    EXPECT_EQ(loop.handle.ready[0].data.ptr, &low);
    EXPECT_EQ(loop.handle.ready[1].data.ptr, nullptr);
}

TEST_F(EventLoop, IgnoringOnceLeavesEventsThatWereDelivered) {
    norv_epoll_fd_t delivered = {&loop.handle, 5, nullptr};
    norv_epoll_fd_t pending = {&loop.handle, 5, nullptr};
    loop.handle.ready_count = 2;
    loop.handle.dispatch_index = 1;
    loop.handle.ready[0].data.ptr = &delivered;
    loop.handle.ready[1].data.ptr = &pending;
    EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &pending), NORV_STATUS_OK);
    EXPECT_EQ(loop.handle.ready[0].data.ptr, &delivered);
    EXPECT_EQ(loop.handle.ready[1].data.ptr, nullptr);
}

TEST_F(EventLoop, IgnoringOnceNeverDropsAPostedCall) {
    // The handle, mistaken for the record of a descriptor, would have the number of the epoll descriptor.
    norv_epoll_fd_t lookalike = {&loop.handle, loop.handle.epoll_descriptor, nullptr};
    std::atomic<bool> served = false;
    source first([&](uint32_t) {
        EXPECT_EQ(loop.handle.ready_count, 2);
        EXPECT_FALSE(served);
        EXPECT_EQ(norv_epoll_fd_ignore_once(&loop.handle, &lookalike), NORV_STATUS_OK);
        exit_at_end_of_round();
    });
    add_ready({&first});
    std::thread poster([&] {
        norv_epoll_wait_loop_started(&loop.handle);
        served = true;
    });
    wait_for_posted_call(loop.handle);
    loop.run();
    poster.join();
    EXPECT_TRUE(served);
}

TEST_F(EventLoop, EventsNotDeliveredBeforeAnExitComeInTheNextRun) {
    source first([&](uint32_t) { loop.exit(); });
    source second([&](uint32_t) { loop.exit(); });
    add_ready({&first, &second});
    loop.run();
    EXPECT_EQ(second.deliveries, 0);
    norv_epoll_fd_remove(&loop.handle, &first.record);
    loop.run();
    EXPECT_EQ(second.deliveries, 1);
}

// ---- calls from other threads

struct made_call {
    norv_epoll_t* loop = nullptr;
    uint64_t argument = 0;
    uint64_t thread = 0;
};

uint32_t note_call(norv_epoll_t* loop, uint64_t made, uint64_t argument) {
    *record_of<made_call>(made) = {loop, argument, norv_get_curr_pthread_id()};
    return 77;
}

TEST_F(EventLoop, WhileNoLoopRunsACallRunsOnTheCallingThread) {
    made_call made;
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, note_call, word_of(&made), 0xFFFFFFFF00000001), 77U);
    EXPECT_EQ(made.loop, &loop.handle);
    EXPECT_EQ(made.argument, 0xFFFFFFFF00000001);
    EXPECT_EQ(made.thread, norv_get_curr_pthread_id());
}

TEST_F(EventLoop, ADirectCallTakesNoLock) {
    kernel_double kernel;
    kernel.fail("norv_mutex_lock", 0);
    made_call made;
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, note_call, word_of(&made), 0), 77U);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(EventLoop, ACallFromAnotherThreadRunsOnTheLoopThread) {
    const loop_thread running(&loop.handle);
    made_call made;
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, note_call, word_of(&made), 5), 77U);
    EXPECT_EQ(made.loop, &loop.handle);
    EXPECT_EQ(made.argument, 5U);
    EXPECT_EQ(made.thread, running.identifier());
}

// Calls itself until its depth is 0, and records each entry and return.
uint32_t descend(norv_epoll_t* loop, uint64_t journal, uint64_t depth) {
    auto* entries = record_of<std::vector<std::string>>(journal);
    entries->push_back("enter " + std::to_string(depth));
    const uint32_t inner = depth > 0 ? norv_epoll_call_sync(loop, descend, journal, depth - 1) : 0;
    entries->push_back("leave " + std::to_string(depth));
    return inner + 1;
}

TEST_F(EventLoop, ACallFromTheLoopThreadRunsAtOnceAndReentrantly) {
    source ready([&](uint32_t) {
        EXPECT_EQ(norv_epoll_call_sync(&loop.handle, descend, word_of(&journal), 1), 2U);
        journal.emplace_back("handler ends");
        loop.exit();
    });
    add_ready({&ready});
    loop.run();
    EXPECT_THAT(journal, ElementsAre("enter 1", "enter 0", "leave 0", "leave 1", "handler ends"));
}

TEST_F(EventLoop, APostedCallMayItselfCallTheLoop) {
    const loop_thread running(&loop.handle);
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, descend, word_of(&journal), 1), 2U);
    EXPECT_THAT(journal, ElementsAre("enter 1", "enter 0", "leave 0", "leave 1"));
}

uint32_t note_posted(norv_epoll_t*, uint64_t journal, uint64_t) {
    record_of<std::vector<std::string>>(journal)->emplace_back("posted");
    return NORV_STATUS_OK;
}

TEST_F(EventLoop, APostedCallRunsAtItsPlaceAmongTheHandlersOfTheBatch) {
    source before([&](uint32_t) { journal.emplace_back("before"); });
    source after([&](uint32_t) {
        journal.emplace_back("after");
        loop.exit();
    });
    add(before);
    add(after);
    std::thread poster;
    source first([&](uint32_t) {
        norv_epoll_fd_remove(&loop.handle, &first.record);
        before.signal();
        poster = std::thread([&] { norv_epoll_call_sync(&loop.handle, note_posted, word_of(&journal), 0); });
        wait_for_posted_call(loop.handle);
        after.signal();
    });
    add_ready({&first});
    loop.run();
    poster.join();
    EXPECT_THAT(journal, ElementsAre("before", "posted", "after"));
}

TEST_F(EventLoop, TheEventfdIsDrainedWhenThePostedCallRuns) {
    const loop_thread running(&loop.handle);
    const norv_epoll_call_fn is_readable = [](norv_epoll_t* handle, uint64_t, uint64_t) {
        eventfd_t left = 0;
        return eventfd_read(handle->call_descriptor, &left) == 0 ? uint32_t{1} : uint32_t{0};
    };
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, is_readable, 0, 0), 0U);
}

uint32_t combine(norv_epoll_t*, uint64_t thousands, uint64_t ones) {
    return static_cast<uint32_t>(thousands * 1000 + ones);
}

TEST_F(EventLoop, EachCallerGetsTheStatusOfItsOwnCall) {
    const loop_thread running(&loop.handle);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> callers;
    for (uint32_t caller = 0; caller < 8; ++caller) {
        callers.emplace_back([&, caller] {
            for (uint32_t round = 0; round < 500; ++round) {
                const uint32_t status = norv_epoll_call_sync(&loop.handle, combine, caller, round);
                wrong += status == caller * 1000 + round ? 0 : 1;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(wrong, 0);
}

// quirk 19
TEST_F(EventLoop, ACallPostedAsTheLoopStopsIsServedByTheNextRun) {
    std::atomic<bool> returned = false;
    std::thread poster;
    source first([&](uint32_t) {
        first.quiet();
        poster = std::thread([&] {
            EXPECT_EQ(norv_epoll_call_sync(&loop.handle, combine, 4, 2), 4002U);
            returned = true;
        });
        wait_for_posted_call(loop.handle);
        loop.exit();
    });
    add_ready({&first});
    loop.run();
    EXPECT_FALSE(returned);
    exit_at_end_of_round();
    loop.run();
    poster.join();
    EXPECT_TRUE(returned);
}

// quirk 18
TEST_F(EventLoop, WaitingForTheLoopIsPostedEvenWhileNoLoopRuns) {
    std::atomic<bool> started = false;
    std::thread waiter([&] {
        EXPECT_EQ(norv_epoll_wait_loop_started(&loop.handle), NORV_STATUS_OK);
        started = true;
    });
    wait_for_posted_call(loop.handle);
    EXPECT_FALSE(started);
    exit_at_end_of_round();
    loop.run();
    waiter.join();
    EXPECT_TRUE(started);
}

// quirk 17
TEST_F(EventLoop, AFailedWakeUpReturnsWakeFailedAndRunsNothing) {
    kernel_double kernel;
    const loop_thread running(&loop.handle);
    made_call made;
    kernel.fail("eventfd_write", EIO);
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, note_call, word_of(&made), 0), 0xFFFFFFFFU);
    EXPECT_EQ(made.thread, 0U);
}

TEST_F(EventLoop, ACallSucceedsAfterAFailedWakeUp) {
    kernel_double kernel;
    const loop_thread running(&loop.handle);
    kernel.fail("eventfd_write", EIO);
    EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_WAKE_FAILED);
    EXPECT_EQ(norv_epoll_call_sync(&loop.handle, combine, 1, 1), 1001U);
}

TEST_F(EventLoop, AFailedLockReturnsItsStatusAndPostsNothing) {
    kernel_double kernel;
    kernel.fail("norv_mutex_lock", 0);
    EXPECT_EQ(norv_epoll_wait_loop_started(&loop.handle), NORV_STATUS_BAD_STATE);
    pollfd posted = {loop.handle.call_descriptor, POLLIN, 0};
    EXPECT_EQ(poll(&posted, 1, 0), 0);
}

TEST_F(EventLoop, ARemovalThatCannotWakeTheLoopClearsTheRecordsLoop) {
    kernel_double kernel;
    source idle;
    add(idle);
    const loop_thread running(&loop.handle);
    kernel.fail("eventfd_write", EIO);
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &idle.record), NORV_STATUS_WAKE_FAILED);
    EXPECT_EQ(idle.record.loop, nullptr);
}

// ---- running and ending

TEST_F(EventLoop, TheLoopThreadIsRecordedWhileTheLoopRuns) {
    uint64_t during = 0;
    EXPECT_EQ(loop.handle.loop_thread, 0U);
    source ready([&](uint32_t) {
        during = loop.handle.loop_thread;
        loop.exit();
    });
    add_ready({&ready});
    loop.run();
    EXPECT_EQ(during, norv_get_curr_pthread_id());
    EXPECT_EQ(loop.handle.loop_thread, 0U);
}

TEST_F(EventLoop, ALoopRunsAgainAfterItsExitEvenOnAnotherThread) {
    source ready([&](uint32_t) { loop.exit(); });
    add_ready({&ready});
    loop.run();
    std::thread([&] { loop.run(); }).join();
    EXPECT_EQ(ready.deliveries, 2);
}

// quirk 20
TEST_F(EventLoop, AnExitWhileNoLoopRunsIsDiscardedWhenOneStarts) {
    EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_OK);
    EXPECT_EQ(loop.handle.exit, 1U);
    source ready([&](uint32_t) { loop.exit(); });
    add_ready({&ready});
    loop.run();
    EXPECT_EQ(ready.deliveries, 1);
}

TEST_F(EventLoop, AnExitWhileALoopStartsIsHonouredOrDiscarded) {
    source ready([&](uint32_t) { exit_at_end_of_round(); });
    add_ready({&ready});
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> returned = false;
        std::thread stopper([&] {
            EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_OK);
            returned = true;
        });
        do {
            loop.run();
            std::this_thread::yield();
        } while (!returned);
        stopper.join();
    }
    EXPECT_GT(ready.deliveries, 0);
}

TEST_F(EventLoop, AnExitFromAHandlerSkipsTheRestOfTheRound) {
    delayed_call never;
    source second;
    source first([&](uint32_t) {
        norv_epoll_delayed_schedule(&loop.handle, &never.record, 0);
        EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_OK);
        journal.emplace_back("the handler itself continues");
    });
    add_ready({&first, &second});
    loop.run();
    EXPECT_THAT(journal, ElementsAre("the handler itself continues"));
    EXPECT_EQ(second.deliveries, 0);
    EXPECT_EQ(never.runs, 0);
    EXPECT_EQ(norv_epoll_delayed_pending(&never.record), 1);
}

TEST_F(EventLoop, AnExitFromAnotherThreadSkipsTheRestOfTheBatch) {
    source never;
    add(never);
    std::thread stopper;
    source first([&](uint32_t) {
        stopper = std::thread([&] { EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_OK); });
        wait_for_posted_call(loop.handle);
        first.quiet();
        never.signal();
    });
    add_ready({&first});
    loop.run();
    stopper.join();
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(never.deliveries, 0);
}

// quirk 21
TEST_F(EventLoop, AFailedWaitDispatchesNothingAndTheRoundContinues) {
    kernel_double kernel;
    source ready;
    add_ready({&ready});
    timer due([&] {
        journal.emplace_back("timer");
        EXPECT_EQ(loop.handle.ready_count, -1);
    });
    delayed_call last([&] {
        journal.emplace_back("delayed call");
        loop.exit();
    });
    norv_epoll_timer_schedule(&loop.handle, &due.record, 0, false);
    norv_epoll_delayed_schedule(&loop.handle, &last.record, 0);
    kernel.fail("epoll_wait", EINTR);
    loop.run();
    EXPECT_THAT(journal, ElementsAre("timer", "delayed call"));
    EXPECT_EQ(ready.deliveries, 0);
}

TEST_F(EventLoop, ARoundRunsTimersThenDescriptorsThenDelayedCalls) {
    delayed_call last([&] {
        journal.emplace_back("delayed call");
        loop.exit();
    });
    source ready([&](uint32_t) { journal.emplace_back("descriptor"); });
    timer due([&] { journal.emplace_back("timer"); });
    norv_epoll_delayed_schedule(&loop.handle, &last.record, 0);
    add_ready({&ready});
    norv_epoll_timer_schedule(&loop.handle, &due.record, 0, false);
    loop.run();
    EXPECT_THAT(journal, ElementsAre("timer", "descriptor", "delayed call"));
}

TEST_F(EventLoop, ALoopWithoutTimersWaitsWithoutLimit) {
    kernel_double kernel;
    source ready([&](uint32_t) { loop.exit(); });
    add_ready({&ready});
    loop.run();
    const auto waits = kernel.calls("epoll_wait");
    ASSERT_EQ(waits.size(), 1U);
    EXPECT_EQ(waits[0].as<waiting>().timeout, -1);
}

// ---- many threads

// What one thread does to a running loop: adds, removes and frees descriptors, timers and delayed calls.
void disturb(norv_epoll_t* loop, std::atomic<int>& failures) {
    for (uint32_t round = 0; round < 100; ++round) {
        const auto ready = std::make_unique<source>();
        const auto due = std::make_unique<timer>();
        const auto call = std::make_unique<delayed_call>();
        ready->signal();
        uint32_t status = norv_epoll_fd_add(loop, &ready->record, EPOLLIN);
        status |= norv_epoll_timer_schedule(loop, &due->record, 1, true);
        status |= norv_epoll_timer_schedule(loop, &due->record, 2, true);
        status |= norv_epoll_delayed_schedule(loop, &call->record, round);
        status |= norv_epoll_fd_modify(loop, &ready->record, EPOLLIN | EPOLLET);
        status |= norv_epoll_delayed_cancel(loop, &call->record);
        status |= norv_epoll_timer_cancel(loop, &due->record);
        status |= norv_epoll_fd_remove(loop, &ready->record);
        failures += status == NORV_STATUS_OK ? 0 : 1;
    }
}

TEST_F(EventLoop, ManyThreadsMayAddScheduleCancelRemoveAndFreeWhileHandlersRun) {
    std::atomic<int> failures = 0;
    source busy;
    add_ready({&busy});
    {
        const loop_thread running(&loop.handle);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] { disturb(&loop.handle, failures); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(failures, 0);
    EXPECT_GT(busy.deliveries, 0);
}

TEST_F(EventLoop, HandlersAndOtherThreadsMayRescheduleTheSameRecords) {
    std::atomic<bool> stopped = false;
    timer periodic;
    delayed_call call([&] {
        if (!stopped) {
            norv_epoll_timer_schedule(&loop.handle, &periodic.record, 1, true);
        }
    });
    periodic.on_expiry([&] {
        if (!stopped) {
            norv_epoll_delayed_schedule(&loop.handle, &call.record, 1);
            norv_epoll_timer_schedule(&loop.handle, &periodic.record, 0, false);
        }
    });
    norv_epoll_timer_schedule(&loop.handle, &periodic.record, 1, true);
    const loop_thread running(&loop.handle);
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 100; ++round) {
                norv_epoll_timer_schedule(&loop.handle, &periodic.record, thread + 1, true);
                norv_epoll_delayed_schedule(&loop.handle, &call.record, thread);
                norv_epoll_timer_cancel(&loop.handle, &periodic.record);
                norv_epoll_delayed_cancel(&loop.handle, &call.record);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    stopped = true;
    norv_epoll_timer_cancel(&loop.handle, &periodic.record);
    norv_epoll_delayed_cancel(&loop.handle, &call.record);
    EXPECT_EQ(norv_epoll_timer_pending(&periodic.record), 0);
    EXPECT_EQ(norv_epoll_delayed_pending(&call.record), 0);
}

TEST_F(EventLoop, ALoopCanBeStartedAndEndedRepeatedly) {
    std::atomic<bool> last = false;
    std::atomic<int> runs = 0;
    std::thread runner([&] {
        while (!last) {
            loop.run();
            ++runs;
        }
    });
    for (int round = 1; round <= 200; ++round) {
        EXPECT_EQ(norv_epoll_wait_loop_started(&loop.handle), NORV_STATUS_OK);
        last = round == 200;
        EXPECT_EQ(norv_epoll_exit(&loop.handle), NORV_STATUS_OK);
    }
    runner.join();
    EXPECT_EQ(runs, 200);
}

// ---- failure sweep

// Opens a loop, registers a pipe, changes and ends the registration, up to the first failure.
uint32_t use_loop(int descriptor) {
    norv_epoll_t loop = {};
    norv_epoll_fd_t record = {nullptr, descriptor, nullptr};
    uint32_t status = norv_epoll_open(&loop);
    if (status != NORV_STATUS_OK) {
        EXPECT_LE(loop.epoll_descriptor, 0);
        EXPECT_LE(loop.call_descriptor, 0);
        return status;
    }
    status = norv_epoll_fd_add(&loop, &record, EPOLLIN);
    if (status == NORV_STATUS_OK) {
        status = norv_epoll_fd_modify(&loop, &record, EPOLLIN | EPOLLET);
    }
    if (status == NORV_STATUS_OK) {
        status = norv_epoll_fd_remove(&loop, &record);
        EXPECT_EQ(record.loop, nullptr);
    }
    norv_epoll_close(&loop);
    return status;
}

TEST(EventLoopSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    norv::test::sweep_options options;
    options.expect = [](const norv::test::strike& struck) {
        const bool of_base_library = struck.name == "norv_mutex_init" || struck.name == "norv_event_init";
        return of_base_library ? NORV_STATUS_NO_MEMORY : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep([](kernel_double&) {}, [&] { return use_loop(ends[0]); }, options);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
