// SPDX-License-Identifier: MIT
// The loop of C++: registrations that own themselves, calls from other threads, exceptions.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "norv/loop.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::loop;
using norv::test::kernel_double;
using namespace std::chrono_literals;

class Loop : public testing::Test {
  protected:
    // Runs the loop on another thread until the end of the scope.
    class running {
      public:
        explicit running(loop& on) : loop_(on), thread_([this] { loop_.run(); }) {
            while (!loop_.wait_started().ok()) {
            }
        }
        ~running() {
            EXPECT_TRUE(loop_.exit().ok());
            thread_.join();
        }

      private:
        loop& loop_;
        std::thread thread_;
    };

    kernel_double kernel;
    loop loop_ = loop::open().value();
};

TEST_F(Loop, APeriodicTimerFiresUntilItIsStopped) {
    int fired = 0;
    norv::timer timer([&] {
        if (++fired == 3) {
            EXPECT_TRUE(loop_.exit().ok());
        }
    });
    ASSERT_TRUE(timer.start_periodic(loop_, 1ms).ok());
    loop_.run();
    EXPECT_EQ(fired, 3);
    EXPECT_TRUE(timer.pending());
    EXPECT_TRUE(timer.stop().ok());
    EXPECT_FALSE(timer.pending());
}

TEST_F(Loop, APeriodOfNothingIsRefused) {
    norv::timer timer([] {});
    EXPECT_EQ(timer.start_periodic(loop_, 0ms), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(timer.pending());
}

TEST_F(Loop, ATimerMayEndInItsOwnHandler) {
    std::optional<norv::timer<>> timer;
    timer.emplace([&] {
        EXPECT_TRUE(loop_.exit().ok());
        timer.reset();
    });
    ASSERT_TRUE(timer->start(loop_, 0ms).ok());
    loop_.run();
    EXPECT_FALSE(timer.has_value());
}

TEST_F(Loop, AWatchThatEndsInAnotherOnesHandlerIsNotCalled) {
    const int descriptors[] = {eventfd(1, EFD_CLOEXEC), eventfd(1, EFD_CLOEXEC)};
    std::optional<norv::watch<>> watches[2];
    int calls = 0;
    for (size_t index = 0; index < 2; ++index) {
        watches[index].emplace([&, index](uint32_t) {
            ++calls;
            watches[1 - index].reset();
            EXPECT_TRUE(loop_.exit().ok());
        });
        ASSERT_TRUE(watches[index]->start(loop_, descriptors[index], EPOLLIN).ok());
    }
    norv::timer later([&] { EXPECT_TRUE(loop_.exit().ok()); });
    loop_.run();
    ASSERT_TRUE(later.start(loop_, 1ms).ok());
    loop_.run();
    EXPECT_GE(calls, 1);
    EXPECT_NE(watches[0].has_value(), watches[1].has_value());
    for (auto& watch : watches) {
        watch.reset();
    }
    for (const int descriptor : descriptors) {
        close(descriptor);
    }
}

TEST_F(Loop, AWatchThatAnotherThreadStartsMayEndInItsHandler) {
    const int descriptor = eventfd(1, EFD_CLOEXEC);
    const running other(loop_);
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> calls = 0;
        std::optional<norv::watch<>> watch;
        watch.emplace([&](uint32_t) {
            ++calls;
            EXPECT_TRUE(watch->stop().ok());
        });
        EXPECT_TRUE(watch->start(loop_, descriptor, EPOLLIN).ok());
        while (calls == 0) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(loop_.run_on_loop([] {}).ok());
        EXPECT_FALSE(watch->watching());
        EXPECT_EQ(calls, 1);
    }
    close(descriptor);
}

TEST_F(Loop, ARegistrationMayOutliveTheLoop) {
    norv::timer timer([] {});
    norv::delayed_call call([] {});
    norv::event event([] {});
    {
        loop other = loop::open().value();
        ASSERT_TRUE(timer.start(other, 1h).ok());
        ASSERT_TRUE(call.start(other).ok());
        ASSERT_TRUE(event.start(other).ok());
    }
    EXPECT_TRUE(timer.pending());
    EXPECT_TRUE(timer.stop().ok());
}

TEST_F(Loop, ATimeOfManyDaysIsWaitedForInParts) {
    kernel.set_clock(1000, 0);
    int fired = 0;
    norv::timer timer([&] { ++fired; });
    ASSERT_TRUE(timer.start(loop_, std::chrono::hours(24 * 30)).ok());
    norv::timer longest([] { ADD_FAILURE() << "called"; });
    ASSERT_TRUE(longest.start(loop_, std::chrono::hours::max()).ok());
    norv::delayed_call end([&] { EXPECT_TRUE(loop_.exit().ok()); });
    norv::event round([&] { EXPECT_TRUE(end.start(loop_).ok()); });
    ASSERT_TRUE(round.start(loop_).ok());
    for (const int day : {13, 26, 29}) {
        kernel.set_clock(1000 + day * 86400, 0);
        ASSERT_TRUE(round.raise().ok());
        loop_.run();
        EXPECT_EQ(fired, 0) << day;
    }
    kernel.set_clock(1000 + 30 * 86400, 0);
    ASSERT_TRUE(round.raise().ok());
    loop_.run();
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(timer.pending());
    EXPECT_TRUE(longest.pending());
}

TEST_F(Loop, DelayedCallsRunByPriority) {
    std::string order;
    norv::delayed_call last([&] {
        order += "last";
        EXPECT_TRUE(loop_.exit().ok());
    });
    norv::delayed_call first([&] { order += "first "; });
    norv::timer both([&] {
        EXPECT_TRUE(last.start(loop_, 2).ok());
        EXPECT_TRUE(first.start(loop_, 1).ok());
    });
    ASSERT_TRUE(both.start(loop_, 0ms).ok());
    loop_.run();
    EXPECT_EQ(order, "first last");
}

TEST_F(Loop, ACancelledCallIsNotMade) {
    int called = 0;
    norv::delayed_call call([&] { ++called; });
    EXPECT_FALSE(call.pending());
    ASSERT_TRUE(call.start(loop_).ok());
    EXPECT_TRUE(call.pending());
    EXPECT_TRUE(call.stop().ok());
    EXPECT_FALSE(call.pending());
    norv::timer end([&] { EXPECT_TRUE(loop_.exit().ok()); });
    ASSERT_TRUE(end.start(loop_, 0ms).ok());
    loop_.run();
    EXPECT_EQ(called, 0);
}

TEST_F(Loop, AnExceptionOfAHandlerComesOutOfRun) {
    norv::timer timer([] { throw std::runtime_error("from the handler"); });
    ASSERT_TRUE(timer.start(loop_, 0ms).ok());
    EXPECT_THROW(loop_.run(), std::runtime_error);
    norv::timer end([&] { EXPECT_TRUE(loop_.exit().ok()); });
    ASSERT_TRUE(end.start(loop_, 0ms).ok());
    loop_.run();
}

TEST_F(Loop, AFunctionRunsOnTheLoopThread) {
    const running other(loop_);
    const auto there = loop_.run_on_loop([] { return std::this_thread::get_id(); });
    EXPECT_NE(there.value(), std::this_thread::get_id());
    EXPECT_EQ(loop_.run_on_loop([] { return norv::status(NORV_STATUS_EMPTY); }), NORV_STATUS_EMPTY);
    EXPECT_EQ(loop_.run_on_loop([] {}), norv::ok);
    EXPECT_EQ(loop_.run_on_loop([]() -> norv::result<int> { return 5; }).value(), 5);
    EXPECT_THROW(loop_.run_on_loop([] { throw std::runtime_error("there"); }).ignore(), std::runtime_error);
}

TEST_F(Loop, AStartOnAnotherThreadCanBeWaitedFor) {
    std::thread other([&] {
        std::this_thread::sleep_for(50ms);  // so that the wait comes first
        loop_.run();
    });
    EXPECT_EQ(loop_.wait_started(), norv::ok);
    EXPECT_EQ(loop_.run_on_loop([] { return std::this_thread::get_id(); }).value(), other.get_id());
    EXPECT_EQ(loop_.run_on_loop([&] { return loop_.wait_started(); }), norv::ok) << "at once, there";
    EXPECT_EQ(loop_.exit(), norv::ok);
    other.join();
}

TEST_F(Loop, WhileNoLoopRunsAFunctionRunsAtOnce) {
    EXPECT_EQ(loop_.run_on_loop([] { return std::this_thread::get_id(); }).value(),
              std::this_thread::get_id());
}

TEST_F(Loop, AWakeThatFailsIsRepeated) {
    const running other(loop_);
    kernel.fail("eventfd_write", EIO);
    EXPECT_EQ(loop_.run_on_loop([] { return 1; }).value(), 1);
    EXPECT_TRUE(kernel.struck());
}

// Threads that never stop calling while the loop ends: each call returns, on one thread or the other.
TEST_F(Loop, NoCallIsLeftWaitingWhenTheLoopEnds) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<bool> go_on = true;
        std::mutex one_at_a_time;
        std::thread callers[2];
        for (std::thread& caller : callers) {
            caller = std::thread([&] {
                while (go_on) {
                    EXPECT_EQ(loop_
                                  .run_on_loop([&] {
                                      const std::lock_guard lock(one_at_a_time);
                                      return 1;
                                  })
                                  .value(),
                              1);
                }
            });
        }
        norv::timer end([&] { EXPECT_TRUE(loop_.exit().ok()); });
        ASSERT_TRUE(end.start(loop_, 1ms).ok());
        loop_.run();
        go_on = false;
        for (std::thread& caller : callers) {
            caller.join();
        }
    }
}

// While the last calls are done, those that come later wait: never two at the same time.
TEST_F(Loop, ALateCallWaitsForTheLastOnesOfTheLoop) {
    std::atomic<bool> ending = false;
    std::atomic<bool> late_call_ran = false;
    const auto last_call = [&] {
        ending = true;
        for (int turn = 0; turn < 500 && !late_call_ran; ++turn) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(late_call_ran);
    };
    std::thread last;
    std::thread late([&] {
        while (!ending) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(loop_.run_on_loop([&] { late_call_ran = true; }).ok());
    });
    norv::timer end([&] {
        EXPECT_TRUE(loop_.exit().ok());
        last = std::thread([&] { EXPECT_TRUE(loop_.run_on_loop(last_call).ok()); });
        // Until the call has been posted; this was the last round.
        pollfd woken = {.fd = loop_.get()->epoll_descriptor, .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&woken, 1, -1), 1);
    });
    ASSERT_TRUE(end.start(loop_, 0ms).ok());
    loop_.run();
    last.join();
    late.join();
    EXPECT_TRUE(ending);
    EXPECT_TRUE(late_call_ran);
}

TEST_F(Loop, TheLoopMayBeDestroyedBeforeItsCallersWakeUp) {
    for (int round = 0; round < 100; ++round) {
        std::optional<loop> ended = loop::open().value();
        std::thread caller;
        {
            norv::timer call([&] { caller = std::thread([&] { EXPECT_TRUE(ended->exit().ok()); }); });
            ASSERT_TRUE(call.start(*ended, 0ms).ok());
            ended->run();
        }
        ended.reset();
        caller.join();
    }
}

// ---- loops within loops

TEST_F(Loop, AHandlerOfAnInnerLoopUsesTheOuterOne) {
    loop inner = loop::open().value();
    norv::timer on_outer([] {});
    norv::timer in_inner([&] {
        EXPECT_EQ(loop_.run_on_loop([] { return 1; }).value(), 1);
        EXPECT_TRUE(on_outer.start(loop_, 1h).ok());
        EXPECT_TRUE(inner.exit().ok());
    });
    ASSERT_TRUE(in_inner.start(inner, 0ms).ok());
    norv::timer in_outer([&] {
        inner.run();
        EXPECT_EQ(inner.run_on_loop([] { return 2; }).value(), 2);
        EXPECT_EQ(loop_.run_on_loop([] { return 3; }).value(), 3);
        EXPECT_TRUE(loop_.exit().ok());
    });
    ASSERT_TRUE(in_outer.start(loop_, 0ms).ok());
    loop_.run();
    EXPECT_TRUE(on_outer.pending());
}

TEST_F(Loop, RunningALoopThatRunsDoesNothing) {
    int fired = 0;
    norv::timer again([&] {
        ++fired;
        loop_.run();
        std::thread([&] { loop_.run(); }).join();
        EXPECT_TRUE(loop_.exit().ok());
    });
    ASSERT_TRUE(again.start(loop_, 0ms).ok());
    loop_.run();
    EXPECT_EQ(fired, 1);
}

TEST_F(Loop, AnEventIsRaisedOnAnyThread) {
    int raised = 0;
    norv::event event([&] {
        ++raised;
        EXPECT_TRUE(loop_.exit().ok());
    });
    EXPECT_EQ(event.raise(), NORV_STATUS_INVALID_ARG);
    ASSERT_TRUE(event.start(loop_).ok());
    std::thread other([&] { EXPECT_TRUE(event.raise().ok()); });
    loop_.run();
    other.join();
    EXPECT_EQ(raised, 1);
}

TEST_F(Loop, ALoopThatWasMovedFromIsAnInvalidArgument) {
    loop other = std::move(loop_);
    norv::timer timer([] {});
    norv::watch watch([](uint32_t) {});
    EXPECT_EQ(timer.start(loop_, 1ms), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(watch.start(loop_, 0, EPOLLIN), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(loop_.exit(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(loop_.wait_started(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(loop_.run_on_loop([] { return 1; }).status(), NORV_STATUS_INVALID_ARG);
    loop_.run();
    loop_ = std::move(other);
    EXPECT_TRUE(timer.start(loop_, 1h).ok());
}

TEST_F(Loop, EveryFailedCallOfOpenIsReported) {
    for (const char* const call : {"epoll_create", "eventfd", "epoll_ctl"}) {
        for (int number = 1; number <= 2; ++number) {
            kernel.fail({.call = call, .nth = number, .error = EMFILE});
            const size_t before = kernel.open_descriptors();
            const norv::result<loop> opened = loop::open();
            EXPECT_EQ(opened.has_value(), call == std::string("epoll_create") && number == 2)
                << call << number;
            EXPECT_EQ(kernel.open_descriptors() - before, opened ? 3U : 0U);
        }
    }
}

}  // namespace
