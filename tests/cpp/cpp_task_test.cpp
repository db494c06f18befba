// SPDX-License-Identifier: MIT
// Coroutines: values and failures, what they wait for, and that nothing of them stays when they end early.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <variant>

#include "cpp/waiting_task.hpp"
#include "norv/file.hpp"
#include "norv/wait.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::job;
using norv::loop;
using norv::result;
using norv::status;
using norv::task;
using norv::test::kernel_double;
using namespace std::chrono_literals;

task<int> soon(int value) {
    (co_await norv::sleep(1ms)).value();
    co_return value;
}

task<status> forever() {
    co_return co_await norv::sleep(10h);
}

task<int> failing(const char* text) {
    (co_await norv::sleep(0ms)).value();
    throw std::runtime_error(text);
}

class Task : public testing::Test {
  protected:
    template <typename T>
    T run(task<T> awaited) {
        return norv::run(loop_, std::move(awaited));
    }

    kernel_double kernel;
    loop loop_ = loop::open().value();
};

// ---- values

TEST_F(Task, AnAwaitedTaskReturnsItsValue) {
    EXPECT_EQ(run([]() -> task<int> { co_return co_await soon(2) + co_await soon(3); }()), 5);
}

TEST_F(Task, AValueNeedNotBeCopied) {
    const std::unique_ptr<int> made = run([]() -> task<std::unique_ptr<int>> {
        (co_await norv::sleep(0ms)).value();
        co_return std::make_unique<int>(7);
    }());
    EXPECT_EQ(*made, 7);
}

TEST_F(Task, AnExceptionArrivesWhereTheTaskIsAwaited) {
    EXPECT_EQ(run([]() -> task<std::string> {
                  try {
                      co_await failing("inner");
                  } catch (const std::runtime_error& error) {
                      co_return error.what();
                  }
                  co_return "";
              }()),
              "inner");
    EXPECT_THROW(run(failing("outer")), std::runtime_error);
}

TEST_F(Task, ATaskThatNeverWaitsEndsAtOnce) {
    job<int> done(loop_, []() -> task<int> { co_return 4; }());
    EXPECT_TRUE(done.done());
    EXPECT_EQ(done.take(), 4);
}

TEST_F(Task, ATaskWithoutMemoryHasThatStatus) {
    kernel.fail("norv_malloc", ENOMEM);
    task<status> none = forever();
    EXPECT_FALSE(none);
    EXPECT_EQ(run(std::move(none)), NORV_STATUS_NO_MEMORY);
    kernel.fail("norv_malloc", ENOMEM);
    task<int> number = soon(1);
    EXPECT_THROW(
        run([](task<int> inner) -> task<int> { co_return co_await std::move(inner); }(std::move(number))),
        norv::error);
}

TEST_F(Task, ATaskWhoseLoopEndsBeforeHasABadState) {
    norv::timer end([this] { EXPECT_TRUE(loop_.exit().ok()); });
    ASSERT_TRUE(end.start(loop_, 1ms).ok());
    EXPECT_EQ(run(forever()), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
    ASSERT_TRUE(end.start(loop_, 1ms).ok());
    EXPECT_THROW(run([]() -> task<int> {
                     (co_await norv::sleep(10h)).value();
                     co_return 1;
                 }()),
                 norv::error);
}

TEST_F(Task, AHandlerCannotRunATaskOnItsOwnLoop) {
    norv::timer nested([this] {
        EXPECT_EQ(run(forever()), NORV_STATUS_BAD_STATE);
        EXPECT_TRUE(loop_.exit().ok());
    });
    ASSERT_TRUE(nested.start(loop_, 0ms).ok());
    loop_.run();
}

TEST_F(Task, ATaskThatCannotBeStartedHasTheStatus) {
    const loop other = std::move(loop_);
    job<status> nowhere(loop_, forever());
    EXPECT_TRUE(nowhere.done());
    EXPECT_EQ(nowhere.take(), NORV_STATUS_INVALID_ARG);
    kernel.fail("eventfd", EMFILE);
    std::stop_source source;
    job<status> unwatched(other, forever(), source.get_token());
    EXPECT_TRUE(unwatched.done());
    EXPECT_EQ(unwatched.take(), status(norv_get_status_by_errno(EMFILE)));
}

TEST_F(Task, AwaitingAllocatesNothing) {
    const norv::file counter = norv::file::adopt(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)).value();
    run([](kernel_double& board, int ready) -> task<> {
        norv::readiness readiness(ready);
        const size_t before = board.allocations();
        board.fail("norv_malloc", ENOMEM);
        (co_await norv::sleep(0ms)).value();
        (co_await readiness.wait(EPOLLIN)).value();
        EXPECT_FALSE(board.struck());
        EXPECT_EQ(board.allocations(), before);
    }(kernel, counter.descriptor()));
}

TEST_F(Task, TasksThatNeverWaitNeedNoStack) {
    EXPECT_EQ(run([]() -> task<int> {
                  const auto at_once = [](int value) -> task<int> { co_return value; };
                  int sum = 0;
                  for (int count = 0; count < 200000; ++count) {
                      sum += co_await at_once(1);
                      sum += (co_await norv::with_timeout(1h, at_once(1))).value();
                  }
                  co_return sum;
              }()),
              400000);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

// ---- ending early

TEST_F(Task, AFunctionForTheEndIsNotCalledAfterIt) {
    job<status> ended(loop_, []() -> task<status> { co_return norv::ok; }());
    ended.on_done([] { ADD_FAILURE(); });
    ended.stop();
    EXPECT_EQ(ended.take(), norv::ok);
}

TEST_F(Task, AnExceptionOfTheFunctionForTheEndEndsTheLoop) {
    std::optional<job<status>> ended;
    ended.emplace(loop_, []() -> task<status> { co_return co_await norv::sleep(1ms); }());
    ended->on_done([&] {
        ended.reset();
        throw std::runtime_error("at the end");
    });
    EXPECT_THROW(loop_.run(), std::runtime_error);
    EXPECT_FALSE(ended.has_value());
    job<status> stopped(loop_, forever());
    stopped.on_done([] { throw std::runtime_error("at the end"); });
    EXPECT_THROW(stopped.stop(), std::runtime_error);
    EXPECT_EQ(stopped.take(), NORV_STATUS_TIMEOUT);
}

TEST(TaskDeathTest, ATaskThatDestroysItsJobEndsTheProgram) {
    EXPECT_DEATH(
        {
            loop on = loop::open().value();
            std::optional<job<status>> own;
            own.emplace(on, [](std::optional<job<status>>& to_end) -> task<status> {
                (co_await norv::with_timeout(1ms, forever())).ignore();
                to_end.reset();
                co_return norv::ok;
            }(own));
            on.run();
        },
        "destroyed by its own task");
}

TEST_F(Task, ATaskMayDestroyAnotherJob) {
    std::optional<job<status>> other;
    other.emplace(loop_, forever());
    EXPECT_EQ(run([](std::optional<job<status>>& to_end) -> task<status> {
                  (co_await norv::sleep(0ms)).value();
                  to_end.reset();
                  co_return norv::ok;
              }(other)),
              norv::ok);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

TEST_F(Task, ATaskThatIsDestroyedWhileItWaitsLeavesNothing) {
    const norv::file silent = norv::file::adopt(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)).value();
    {
        const auto waits = [](int descriptor) -> task<status> {
            norv::readiness readiness(descriptor);
            co_return (co_await norv::with_timeout(1h,
                                                   [](norv::readiness& of) -> task<result<uint32_t>> {
                                                       co_return co_await of.wait(EPOLLIN);
                                                   }(readiness)))
                .status();
        };
        job<status> destroyed(loop_, waits(silent.descriptor()));
        EXPECT_FALSE(destroyed.done());
    }
    EXPECT_EQ(eventfd_write(silent.descriptor(), 1), 0);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
    norv::test::run_a_while(loop_);
}

TEST_F(Task, AJobThatIsStoppedEndsItsWaits) {
    job<status> stopped(loop_, []() -> task<status> {
        const status first = co_await norv::sleep(10h);
        EXPECT_EQ(first, NORV_STATUS_TIMEOUT);
        EXPECT_TRUE(co_await norv::stop_requested());
        co_return co_await norv::sleep(10h);
    }());
    EXPECT_FALSE(stopped.done());
    stopped.stop();
    EXPECT_TRUE(stopped.done());
    EXPECT_EQ(stopped.take(), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

TEST_F(Task, AnyThreadStopsAJobThroughItsToken) {
    std::stop_source source;
    job<status> stopped(loop_, forever(), source.get_token());
    stopped.on_done([&] { EXPECT_TRUE(loop_.exit().ok()); });
    std::thread other([&] { source.request_stop(); });
    loop_.run();
    other.join();
    EXPECT_EQ(stopped.take(), NORV_STATUS_TIMEOUT);
}

TEST_F(Task, ATokenThatHasStoppedAlreadyStopsTheJob) {
    std::stop_source source;
    source.request_stop();
    job<status> stopped(loop_, forever(), source.get_token());
    stopped.on_done([&] { EXPECT_TRUE(loop_.exit().ok()); });
    loop_.run();
    EXPECT_EQ(stopped.take(), NORV_STATUS_TIMEOUT);
}

TEST_F(Task, AJobMayBeDestroyedWhenItIsDone) {
    for (const bool stops : {false, true}) {
        std::optional<job<status>> running;
        running.emplace(
            loop_, stops ? forever() : []() -> task<status> { co_return co_await norv::sleep(1ms); }());
        running->on_done([&] {
            running.reset();
            EXPECT_TRUE(loop_.exit().ok());
        });
        norv::timer stop([&] { running->stop(); });
        if (stops) {
            ASSERT_TRUE(stop.start(loop_, 1ms).ok());
        }
        loop_.run();
        EXPECT_FALSE(running.has_value());
    }
}

// ---- limits

TEST_F(Task, ALimitEndsTheWaitsOfATask) {
    EXPECT_EQ(run([]() -> task<status> { co_return co_await norv::with_timeout(1ms, forever()); }()),
              NORV_STATUS_TIMEOUT);
}

TEST_F(Task, ATaskWithinItsLimitReturnsItsValue) {
    EXPECT_EQ(
        run([]() -> task<result<int>> { co_return co_await norv::with_timeout(1h, soon(5)); }()).value(), 5);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

TEST_F(Task, AnInnerLimitLeavesTheOuterTaskRunning) {
    EXPECT_EQ(run([]() -> task<int> {
                  const status inner = co_await norv::with_timeout(1ms, forever());
                  EXPECT_EQ(inner, NORV_STATUS_TIMEOUT);
                  EXPECT_FALSE(co_await norv::stop_requested());
                  co_return co_await soon(6);
              }()),
              6);
}

TEST_F(Task, AnOuterLimitEndsInnerOnesToo) {
    EXPECT_EQ(run([]() -> task<status> {
                  co_return co_await norv::with_timeout(
                      1ms, []() -> task<status> { co_return co_await norv::with_timeout(1h, forever()); }());
              }()),
              NORV_STATUS_TIMEOUT);
}

TEST_F(Task, AHundredThousandLimitsLeaveNothing) {
    EXPECT_TRUE(run([]() -> task<status> {
                    for (int count = 0; count < 100000; ++count) {
                        const bool in_time = count % 2 == 0;
                        const status ended = co_await norv::with_timeout(
                            in_time ? 1h : 0h, [](bool short_wait) -> task<status> {
                                co_return co_await norv::sleep(short_wait ? 0h : 1h);
                            }(in_time));
                        if (ended != (in_time ? NORV_STATUS_OK : NORV_STATUS_TIMEOUT)) {
                            co_return ended;
                        }
                    }
                    co_return norv::ok;
                }())
                    .ok());
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

TEST_F(Task, ALimitOfManyDaysIsNotOverBefore) {
    kernel.set_clock(1000, 0);
    job<status> limited(loop_, []() -> task<status> {
        co_return co_await norv::with_timeout(std::chrono::hours(24 * 20), []() -> task<status> {
            co_return co_await norv::sleep(std::chrono::hours(24 * 30));
        }());
    }());
    for (const int day : {13, 19}) {
        kernel.set_clock(1000 + day * 86400, 0);
        norv::event round([this] { EXPECT_TRUE(loop_.exit().ok()); });
        ASSERT_TRUE(round.start(loop_).ok());
        ASSERT_TRUE(round.raise().ok());
        loop_.run();
        EXPECT_FALSE(limited.done()) << day;
    }
    kernel.set_clock(1000 + 20 * 86400, 0);
    limited.on_done([this] { EXPECT_TRUE(loop_.exit().ok()); });
    loop_.run();
    EXPECT_EQ(limited.take(), NORV_STATUS_TIMEOUT);
}

// ---- several tasks

TEST_F(Task, AllTasksReturnTheirValues) {
    const auto [number, nothing, text] = run([]() -> task<std::tuple<int, std::monostate, std::string>> {
        co_return co_await norv::when_all(
            soon(1), []() -> task<> { (co_await norv::sleep(2ms)).value(); }(),
            []() -> task<std::string> { co_return "at once"; }());
    }());
    EXPECT_EQ(number, 1);
    EXPECT_EQ(text, "at once");
}

TEST_F(Task, AllTasksEndBeforeAnExceptionOfOneArrives) {
    bool ended = false;
    EXPECT_THROW(run([](bool& other) -> task<int> {
                     const auto [first, second] =
                         co_await norv::when_all(failing("one"), [](bool& to_set) -> task<int> {
                             (co_await norv::sleep(2ms)).value();
                             to_set = true;
                             co_return 1;
                         }(other));
                     co_return first + second;
                 }(ended)),
                 std::runtime_error);
    EXPECT_TRUE(ended);
}

TEST_F(Task, TheFirstTaskEndsTheOthers) {
    status others[2];
    const auto noted = [](status& to) -> task<int> {
        to = co_await norv::sleep(10h);
        co_return 0;
    };
    EXPECT_EQ(run([](auto& waits, status* to) -> task<int> {
                  const auto first = co_await norv::when_any(waits(to[0]), soon(9), waits(to[1]));
                  EXPECT_EQ(first.index(), 1U);
                  co_return std::get<1>(first);
              }(noted, others)),
              9);
    EXPECT_EQ(others[0], NORV_STATUS_TIMEOUT);
    EXPECT_EQ(others[1], NORV_STATUS_TIMEOUT);
    EXPECT_EQ(loop_.get()->timers.top, nullptr);
}

TEST_F(Task, ATaskThatEndsAtOnceIsTheFirst) {
    EXPECT_EQ(
        run([]() -> task<size_t> {
            co_return (co_await norv::when_any([]() -> task<int> { co_return 1; }(), forever())).index();
        }()),
        0U);
}

TEST_F(Task, ALimitEndsAllTasksOfAGroup) {
    EXPECT_EQ(run([]() -> task<status> {
                  co_return co_await norv::with_timeout(1ms, []() -> task<> {
                      const auto [first, second] = co_await norv::when_all(forever(), forever());
                      EXPECT_EQ(first, NORV_STATUS_TIMEOUT);
                      EXPECT_EQ(second, NORV_STATUS_TIMEOUT);
                  }());
              }()),
              NORV_STATUS_TIMEOUT);
}

// ---- descriptors

class Descriptor : public Task {
  protected:
    const norv::file counter = norv::file::adopt(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)).value();
    const int descriptor = counter.descriptor();
};

task<uint64_t> sum_of(int descriptor, int count) {
    norv::readiness readiness(descriptor);
    uint64_t sum = 0;
    for (int index = 0; index < count; ++index) {
        (co_await readiness.wait(EPOLLIN)).value();
        eventfd_t value = 0;
        eventfd_read(descriptor, &value);
        sum += value;
        if (index + 1 < count) {
            eventfd_write(descriptor, 1);
        }
    }
    co_return sum;
}

TEST_F(Descriptor, StaysRegisteredFromOneWaitToTheNext) {
    eventfd_write(descriptor, 1);
    // Added for the first wait, removed at the end.
    kernel.fail({.call = "epoll_ctl", .nth = 3, .error = EPERM});
    EXPECT_EQ(run(sum_of(descriptor, 1000)), 1000U);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(Descriptor, IsRemovedWhenItIsReadyAndNobodyWaits) {
    EXPECT_EQ(run([](int ready) -> task<status> {
                  norv::readiness readiness(ready);
                  eventfd_write(ready, 1);
                  (co_await readiness.wait(EPOLLIN)).value();
                  (co_await norv::sleep(2ms)).value();
                  co_return (co_await readiness.wait(EPOLLIN)).status();
              }(descriptor)),
              norv::ok);
}

TEST_F(Descriptor, OneTaskReadsWhileAnotherOneWrites) {
    eventfd_write(descriptor, 0xFFFFFFFFFFFFFFFEU);  // full
    EXPECT_EQ(run([](int both) -> task<uint32_t> {
                  norv::readiness readiness(both);
                  const auto waits = [](norv::readiness& of, uint32_t events) -> task<uint32_t> {
                      co_return (co_await of.wait(events)).value();
                  };
                  const auto drains = [](norv::readiness& of, int from) -> task<uint32_t> {
                      const uint32_t came = (co_await of.wait(EPOLLIN)).value();
                      eventfd_t value = 0;
                      eventfd_read(from, &value);
                      co_return came;
                  };
                  const auto [out, in] =
                      co_await norv::when_all(waits(readiness, EPOLLOUT), drains(readiness, both));
                  co_return out | in;
              }(descriptor)),
              EPOLLIN | EPOLLOUT);
}

TEST_F(Descriptor, ASecondReaderIsABadState) {
    EXPECT_EQ(run([](int silent) -> task<status> {
                  norv::readiness readiness(silent);
                  const auto waits = [](norv::readiness& of) -> task<result<uint32_t>> {
                      co_return co_await of.wait(EPOLLIN);
                  };
                  const auto first = co_await norv::when_any(waits(readiness), waits(readiness));
                  co_return std::get<1>(first).status();
              }(descriptor)),
              NORV_STATUS_BAD_STATE);
}

TEST_F(Descriptor, AWaitOutlivesWhatItWaitsFor) {
    std::optional<norv::readiness> readiness(std::in_place, descriptor);
    job<result<uint32_t>> waits(loop_, [](norv::readiness& of) -> task<result<uint32_t>> {
        co_return co_await of.wait(EPOLLIN);
    }(*readiness));
    readiness.reset();
    eventfd_write(descriptor, 1);
    norv::test::run_a_while(loop_);
    EXPECT_FALSE(waits.done());
    waits.stop();
    EXPECT_EQ(waits.take().status(), NORV_STATUS_TIMEOUT);
}

TEST_F(Descriptor, OneThatCannotBeWaitedForHasTheStatusOfEpollCtl) {
    EXPECT_EQ(run([]() -> task<status> {
                  norv::readiness readiness(-1);
                  co_return (co_await readiness.wait(EPOLLIN)).status();
              }()),
              status(norv_get_status_by_errno(EBADF)));
}

// ---- values of other threads

TEST_F(Task, AValueOfAnotherThreadIsWaitedFor) {
    norv::completion<std::string> answer(loop_);
    std::thread other([&] { EXPECT_TRUE(answer.set("from there").ok()); });
    EXPECT_EQ(run([](norv::completion<std::string>& given) -> task<std::string> {
                  co_return (co_await given).value();
              }(answer)),
              "from there");
    other.join();
}

TEST_F(Task, AValueThatIsThereIsNotWaitedFor) {
    norv::completion<int> answer(loop_);
    ASSERT_TRUE(answer.set(3).ok());
    job<int> done(
        loop_, [](norv::completion<int>& given) -> task<int> { co_return (co_await given).value(); }(answer));
    EXPECT_TRUE(done.done());
    EXPECT_EQ(done.take(), 3);
}

TEST_F(Task, AWaitForAValueCanBeLimited) {
    norv::completion<int> answer(loop_);
    EXPECT_EQ(run([](norv::completion<int>& given) -> task<result<int>> {
                  co_return co_await norv::with_timeout(
                      1ms, [](norv::completion<int>& inner) -> task<result<int>> {
                          co_return co_await inner;
                      }(given));
              }(answer))
                  .status(),
              NORV_STATUS_TIMEOUT);
}

}  // namespace
