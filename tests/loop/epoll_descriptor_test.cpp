// SPDX-License-Identifier: MIT
// Event and timer descriptors: how they are created, raised, called back and destroyed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "norv_epoll.h"
#include "support/event_loop.hpp"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"

namespace {

using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::loop_thread;
using norv::test::no_standard_input;
using norv::test::open_loop;
using norv::test::source;
using norv::test::strike;
using norv::test::timer;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint64_t ticks_per_millisecond = 10000;

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

// A record whose callback is a function of the test.
template <typename record_type>
class called_back {
  public:
    explicit called_back(std::function<void()> on_call = {}) : on_call_(std::move(on_call)) {
        record.callback = call;
    }
    called_back(const called_back&) = delete;
    called_back& operator=(const called_back&) = delete;

    void on_call(std::function<void()> on_call) { on_call_ = std::move(on_call); }
    int32_t descriptor() const { return record.registration.descriptor; }

    record_type record = {};
    int calls = 0;

  private:
    static void call(record_type* record) {
        auto* self = reinterpret_cast<called_back*>(record);
        ++self->calls;
        if (self->on_call_) {
            self->on_call_();
        }
    }

    std::function<void()> on_call_;
};

using event = called_back<norv_epoll_event_fd_t>;
using timer_descriptor = called_back<norv_epoll_timer_fd_t>;

class Descriptors : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(loop.opened, NORV_STATUS_OK); }

    uint32_t create(event& created) { return norv_epoll_event_fd_create(&loop.handle, &created.record); }
    uint32_t create(timer_descriptor& created) {
        return norv_epoll_timer_fd_create(&loop.handle, &created.record);
    }
    void destroy(event& created) { norv_epoll_event_fd_destroy(&loop.handle, &created.record); }
    void destroy(timer_descriptor& created) { norv_epoll_timer_fd_destroy(&loop.handle, &created.record); }
    // Runs one round, in which what is ready now is dispatched.
    void run_one_round() {
        timer last([this] { norv_epoll_delayed_schedule(&loop.handle, &exit_.record, 0); });
        norv_epoll_timer_schedule(&loop.handle, &last.record, 0, false);
        loop.run();
    }

    open_loop loop;

  private:
    norv::test::delayed_call exit_{[this] { loop.exit(); }};
};

using EventDescriptor = Descriptors;
using TimerDescriptor = Descriptors;

uint32_t activate(event& raised) {
    return norv_epoll_event_fd_activate(&raised.record);
}

uint32_t expire_at_once(timer_descriptor& armed) {
    return norv_linux_timer_set_alarm_time(&armed.record.timer, 1, 0);
}

// ---- event descriptors: create

TEST_F(EventDescriptor, CreatingMakesANonBlockingEventfdThatIsNotInherited) {
    event raised;
    ASSERT_EQ(create(raised), NORV_STATUS_OK);
    ASSERT_GT(raised.descriptor(), 0);
    EXPECT_NE(fcntl(raised.descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(raised.descriptor(), F_GETFD), FD_CLOEXEC);
    destroy(raised);
}

TEST_F(EventDescriptor, CreatingRegistersTheRecordForItsLoop) {
    event raised;
    create(raised);
    EXPECT_EQ(raised.record.registration.loop, &loop.handle);
    EXPECT_NE(raised.record.registration.handler, nullptr);
    destroy(raised);
}

TEST_F(EventDescriptor, ANewEventIsNotRaised) {
    event raised;
    create(raised);
    run_one_round();
    EXPECT_EQ(raised.calls, 0);
    destroy(raised);
}

TEST_F(EventDescriptor, AFailedEventfdIsReportedAndLeavesNothing) {
    kernel_double kernel;
    kernel.fail("eventfd", EMFILE);
    event raised;
    EXPECT_EQ(create(raised), norv_get_status_by_errno(EMFILE));
    EXPECT_LE(raised.descriptor(), 0);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(EventDescriptor, AFailedEventfdWhoseErrnoMapsToZeroFailsToRegister) {
    kernel_double kernel;
    kernel.map_errno(EMFILE, 0);
    kernel.fail("eventfd", EMFILE);
    event raised;
    EXPECT_EQ(create(raised), norv_get_status_by_errno(EBADF));
}

TEST_F(EventDescriptor, AFailedRegistrationIsReportedAndClosesTheDescriptor) {
    kernel_double kernel;
    kernel.fail("epoll_ctl", ENOSPC);
    event raised;
    EXPECT_EQ(create(raised), norv_get_status_by_errno(ENOSPC));
    EXPECT_EQ(raised.descriptor(), 0);
    EXPECT_EQ(raised.record.registration.loop, nullptr);
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
}

TEST(EventDescriptorOfNoLoop, NullIsAnInvalidArgument) {
    open_loop loop;
    event raised;
    EXPECT_EQ(norv_epoll_event_fd_create(nullptr, &raised.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_event_fd_create(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_event_fd_activate(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_event_fd_deactivate(nullptr), NORV_STATUS_INVALID_ARG);
    norv_epoll_event_fd_destroy(&loop.handle, nullptr);
}

// ---- event descriptors: raising and calling back

TEST_F(EventDescriptor, AnActivationCallsBackOnce) {
    event raised;
    create(raised);
    EXPECT_EQ(activate(raised), NORV_STATUS_OK);
    run_one_round();
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    destroy(raised);
}

TEST_F(EventDescriptor, AnEventThatIsNotRegisteredIsRaised) {
    event raised;
    create(raised);
    norv_epoll_fd_remove(&loop.handle, &raised.record.registration);
    EXPECT_EQ(activate(raised), NORV_STATUS_OK);
    norv_epoll_fd_add(&loop.handle, &raised.record.registration, EPOLLIN);
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    destroy(raised);
}

TEST_F(EventDescriptor, ThreeActivationsBeforeTheLoopRunsYieldOneCallback) {
    event raised;
    create(raised);
    activate(raised);
    activate(raised);
    activate(raised);
    run_one_round();
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    destroy(raised);
}

TEST_F(EventDescriptor, AnActivationFromTheCallbackCallsBackAgain) {
    event raised;
    raised.on_call([&] {
        if (raised.calls == 1) {
            activate(raised);
        }
    });
    create(raised);
    activate(raised);
    run_one_round();
    run_one_round();
    EXPECT_EQ(raised.calls, 2);
    destroy(raised);
}

TEST_F(EventDescriptor, TheCallbackGetsItsRecordOnTheLoopThread) {
    static norv_epoll_event_fd_t* given;
    static std::thread::id thread;
    norv_epoll_event_fd_t record = {};
    record.callback = [](norv_epoll_event_fd_t* raised) {
        given = raised;
        thread = std::this_thread::get_id();
        norv_epoll_exit(raised->registration.loop);
    };
    norv_epoll_event_fd_create(&loop.handle, &record);
    norv_epoll_event_fd_activate(&record);
    std::thread runner([&] { loop.run(); });
    const std::thread::id loop_thread = runner.get_id();
    runner.join();
    EXPECT_EQ(given, &record);
    EXPECT_EQ(thread, loop_thread);
    norv_epoll_event_fd_destroy(&loop.handle, &record);
}

TEST_F(EventDescriptor, AnyThreadActivatesWithoutWaitingForTheLoopThread) {
    event raised([this] { loop.exit(); });
    create(raised);
    std::thread other([&] { EXPECT_EQ(activate(raised), NORV_STATUS_OK); });
    other.join();  // although no loop runs yet
    loop.run();
    EXPECT_EQ(raised.calls, 1);
    destroy(raised);
}

TEST_F(EventDescriptor, ADeactivatedEventDoesNotCallBack) {
    event raised;
    create(raised);
    activate(raised);
    activate(raised);
    EXPECT_EQ(norv_epoll_event_fd_deactivate(&raised.record), NORV_STATUS_OK);
    run_one_round();
    EXPECT_EQ(raised.calls, 0);
    destroy(raised);
}

TEST_F(EventDescriptor, AnEventDeactivatedInTheSameRoundDoesNotCallBack) {
    event raised;
    source earlier([&](uint32_t) { norv_epoll_event_fd_deactivate(&raised.record); });
    earlier.signal();
    norv_epoll_fd_add(&loop.handle, &earlier.record, EPOLLIN);
    create(raised);
    activate(raised);
    run_one_round();
    EXPECT_EQ(earlier.deliveries, 1);
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(raised.calls, 0);
    destroy(raised);
}

TEST_F(EventDescriptor, DeactivatingAnEventThatIsNotRaisedReturnsZero) {
    event raised;
    create(raised);
    EXPECT_EQ(norv_epoll_event_fd_deactivate(&raised.record), NORV_STATUS_OK);
    destroy(raised);
}

TEST_F(EventDescriptor, TheCallbackMayDestroyItsEvent) {
    event raised;
    raised.on_call([&] { destroy(raised); });
    create(raised);
    activate(raised);
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    EXPECT_EQ(raised.descriptor(), 0);
}

TEST_F(EventDescriptor, AnActivationBeyondTheLimitOfTheCounterIsRefused) {
    event raised;
    create(raised);
    eventfd_write(raised.descriptor(), 0xfffffffffffffffe);
    EXPECT_EQ(activate(raised), NORV_STATUS_AGAIN);
    destroy(raised);
}

// ---- event descriptors: destroy

// quirk 30
TEST_F(EventDescriptor, DestroyingSetsTheDescriptorToZero) {
    event raised;
    create(raised);
    const int descriptor = raised.descriptor();
    destroy(raised);
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_EQ(raised.descriptor(), 0);
    EXPECT_EQ(raised.record.registration.loop, nullptr);
}

TEST_F(EventDescriptor, DestroyingTwiceDoesNothingTheSecondTime) {
    kernel_double kernel;
    event raised;
    create(raised);
    destroy(raised);
    kernel.forget_calls();
    destroy(raised);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EventDescriptor, DestroyingAnEventThatWasNeverCreatedTouchesNothing) {
    kernel_double kernel;
    event raised;
    kernel.fail("epoll_ctl", EINVAL);
    destroy(raised);
    EXPECT_FALSE(kernel.struck());
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EventDescriptor, DestroyingRemovesTheRegistrationBeforeItClosesTheDescriptor) {
    event raised;
    create(raised);
    activate(raised);
    // Keeps the eventfd alive when the descriptor is closed, and so a registration that was not removed.
    const int copy = fcntl(raised.descriptor(), F_DUPFD_CLOEXEC, 0);
    destroy(raised);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 0);
    close(copy);
}

TEST_F(EventDescriptor, DestroyingDoesNothingWithANegativeDescriptor) {
    kernel_double kernel;
    event raised;
    raised.record.registration.descriptor = -1;
    destroy(raised);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(raised.descriptor(), -1);
}

TEST_F(EventDescriptor, AnEventDestroyedInTheSameRoundIsNotCalledBack) {
    event raised;
    source earlier([&](uint32_t) { destroy(raised); });
    earlier.signal();
    norv_epoll_fd_add(&loop.handle, &earlier.record, EPOLLIN);
    create(raised);
    activate(raised);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(raised.calls, 0);
}

TEST_F(EventDescriptor, DestroyingWithoutALoopStillClosesTheDescriptor) {
    event raised;
    create(raised);
    const int descriptor = raised.descriptor();
    norv_epoll_event_fd_destroy(nullptr, &raised.record);
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_EQ(raised.descriptor(), 0);
}

TEST_F(EventDescriptor, ADestroyedEventLeavesDescriptorZeroAlone) {
    const int saved = dup(0);
    const int stranger = eventfd(5, EFD_NONBLOCK);
    ASSERT_EQ(dup2(stranger, 0), 0);
    event raised;
    create(raised);
    destroy(raised);
    EXPECT_EQ(activate(raised), norv_get_status_by_errno(EBADF));
    EXPECT_EQ(norv_epoll_event_fd_deactivate(&raised.record), NORV_STATUS_OK);
    eventfd_t count = 0;
    EXPECT_EQ(eventfd_read(stranger, &count), 0);
    EXPECT_EQ(count, 5U);
    close(stranger);
    saved >= 0 ? dup2(saved, 0) : close(0);
    close(saved);
}

// ---- descriptor 0, which counts as not open

TEST_F(EventDescriptor, AnEventWithDescriptor0IsCalledBack) {
    const no_standard_input closed;
    event raised;
    ASSERT_EQ(create(raised), NORV_STATUS_OK);
    ASSERT_EQ(raised.descriptor(), 0);
    EXPECT_EQ(activate(raised), NORV_STATUS_OK);
    run_one_round();
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    norv_epoll_fd_remove(&loop.handle, &raised.record.registration);
}

TEST_F(EventDescriptor, AnEventWithDescriptor0CanBeDeactivated) {
    const no_standard_input closed;
    event raised;
    create(raised);
    activate(raised);
    EXPECT_EQ(norv_epoll_event_fd_deactivate(&raised.record), NORV_STATUS_OK);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 0);
    norv_epoll_fd_remove(&loop.handle, &raised.record.registration);
}

// quirk 3
TEST_F(EventDescriptor, DestroyingAnEventWithDescriptor0DoesNothing) {
    const no_standard_input closed;
    event raised;
    create(raised);
    destroy(raised);
    EXPECT_TRUE(is_open(0));
    EXPECT_EQ(activate(raised), NORV_STATUS_OK);
    run_one_round();
    EXPECT_EQ(raised.calls, 1);
    norv_epoll_fd_remove(&loop.handle, &raised.record.registration);
}

TEST_F(EventDescriptor, RemovingAndClosingEndsAnEventWithDescriptor0) {
    const no_standard_input closed;
    event raised;
    create(raised);
    activate(raised);
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &raised.record.registration), NORV_STATUS_OK);
    close(0);
    EXPECT_EQ(activate(raised), norv_get_status_by_errno(EBADF));
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 0);
    EXPECT_EQ(raised.calls, 0);
}

TEST_F(TimerDescriptor, DestroyingATimerWithDescriptor1RemovesIt) {
    timer_descriptor armed;
    armed.record.registration = {&loop.handle, 1, nullptr};
    armed.record.timer.descriptor = -1;  // standard output stays open
    destroy(armed);
    EXPECT_EQ(armed.record.registration.loop, nullptr);
}

// quirk 3
TEST_F(TimerDescriptor, DestroyingATimerWithDescriptor0NeitherRemovesNorClosesIt) {
    const no_standard_input closed;
    timer_descriptor due;
    create(due);
    ASSERT_EQ(due.descriptor(), 0);
    expire_at_once(due);
    destroy(due);
    EXPECT_TRUE(is_open(0));
    run_one_round();
    EXPECT_EQ(due.calls, 1);
}

TEST_F(TimerDescriptor, RemovingAndClosingEndsATimerWithDescriptor0) {
    const no_standard_input closed;
    timer_descriptor due;
    create(due);
    expire_at_once(due);
    EXPECT_EQ(norv_epoll_fd_remove(&loop.handle, &due.record.registration), NORV_STATUS_OK);
    close(0);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 0);
    EXPECT_EQ(due.calls, 0);
}

TEST_F(EventDescriptor, WithDescriptor0TakenEventsAndTimersGetOthers) {
    const no_standard_input closed;
    ASSERT_EQ(open("/dev/null", O_RDWR), 0);
    event raised;
    timer_descriptor due;
    create(raised);
    create(due);
    EXPECT_GT(raised.descriptor(), 0);
    EXPECT_GT(due.descriptor(), 0);
    destroy(raised);
    destroy(due);
}

// ---- event descriptors: many threads

TEST_F(EventDescriptor, ManyThreadsMayActivateWhileTheLoopCallsBack) {
    std::atomic<int> seen = 0;
    event raised([&] { ++seen; });
    create(raised);
    {
        const loop_thread running(&loop.handle);
        std::vector<std::thread> others;
        for (int index = 0; index < 4; ++index) {
            others.emplace_back([&] {
                for (int turn = 0; turn < 200; ++turn) {
                    EXPECT_EQ(activate(raised), NORV_STATUS_OK);
                }
            });
        }
        for (std::thread& other : others) {
            other.join();
        }
        const int before = seen;
        activate(raised);
        while (seen == before) {
            std::this_thread::yield();
        }
        destroy(raised);
    }
    EXPECT_GE(seen, 1);
    EXPECT_LE(seen, 801);
}

TEST_F(EventDescriptor, SeveralThreadsMayEndTheLoopThroughAnEvent) {
    event ending([this] { loop.exit(); });
    create(ending);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::thread> others;
        for (int index = 0; index < 4; ++index) {
            others.emplace_back([&] { EXPECT_EQ(activate(ending), NORV_STATUS_OK); });
        }
        loop.run();
        for (std::thread& other : others) {
            other.join();
        }
        norv_epoll_event_fd_deactivate(&ending.record);  // those that came after the exit
    }
    EXPECT_EQ(ending.calls, 200);
    destroy(ending);
}

// ---- timer descriptors

TEST_F(TimerDescriptor, CreatingRegistersATimerThatIsNotArmed) {
    timer_descriptor due;
    ASSERT_EQ(create(due), NORV_STATUS_OK);
    ASSERT_GT(due.record.timer.descriptor, 0);
    EXPECT_EQ(due.descriptor(), due.record.timer.descriptor);
    EXPECT_EQ(due.record.registration.loop, &loop.handle);
    itimerspec setting = {};
    timerfd_gettime(due.descriptor(), &setting);
    EXPECT_EQ(setting.it_value.tv_sec, 0);
    EXPECT_EQ(setting.it_value.tv_nsec, 0);
    run_one_round();
    EXPECT_EQ(due.calls, 0);
    destroy(due);
}

TEST_F(TimerDescriptor, AnExpiryCallsBackOnce) {
    timer_descriptor due;
    create(due);
    expire_at_once(due);
    run_one_round();
    run_one_round();
    EXPECT_EQ(due.calls, 1);
    destroy(due);
}

TEST_F(TimerDescriptor, ManyExpiriesBeforeTheLoopRunsYieldOneCallback) {
    timer_descriptor due;
    create(due);
    norv_linux_timer_set_alarm_time(&due.record.timer, 1, 100000 * ticks_per_millisecond);
    run_one_round();
    run_one_round();
    EXPECT_EQ(due.calls, 1);
    destroy(due);
}

TEST_F(TimerDescriptor, APeriodCallsBackAgainAndAgain) {
    timer_descriptor due;
    due.on_call([&] {
        if (due.calls == 3) {
            loop.exit();
        }
    });
    create(due);
    norv_linux_timer_set_alarm_time(&due.record.timer, 0, 2 * ticks_per_millisecond);
    loop.run();
    EXPECT_EQ(due.calls, 3);
    destroy(due);
}

TEST_F(TimerDescriptor, AnAlarmMayBeFurtherAheadThanATimerOfTheLoop) {
    constexpr uint64_t day = 86400 * NORV_LINUX_TIMER_TICKS_PER_SECOND;
    timer_descriptor due;
    uint64_t now = 0;
    create(due);
    norv_linux_timer_get_time(&due.record.timer, &now);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&due.record.timer, now + 100 * day, 0), NORV_STATUS_OK);
    run_one_round();
    EXPECT_EQ(due.calls, 0);
    itimerspec setting = {};
    timerfd_gettime(due.descriptor(), &setting);
    EXPECT_EQ((setting.it_value.tv_sec + 43200) / 86400, 100) << "days, rounded";
    destroy(due);
}

TEST_F(TimerDescriptor, TheExpiryIsClearedBeforeTheCallback) {
    timer_descriptor due;
    due.on_call([&] { EXPECT_EQ(norv_linux_timer_clear_event(&due.record.timer), -1); });
    create(due);
    expire_at_once(due);
    run_one_round();
    EXPECT_EQ(due.calls, 1);
    destroy(due);
}

// quirk 31
TEST_F(TimerDescriptor, AnExpiryThatWasClearedElsewhereStillCallsBack) {
    timer_descriptor due;
    source earlier([&](uint32_t) { norv_linux_timer_clear_event(&due.record.timer); });
    earlier.signal();
    norv_epoll_fd_add(&loop.handle, &earlier.record, EPOLLIN);
    create(due);
    expire_at_once(due);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(due.calls, 1);
    destroy(due);
}

TEST_F(TimerDescriptor, TheCallbackMayDestroyItsTimer) {
    timer_descriptor due;
    due.on_call([&] { destroy(due); });
    create(due);
    expire_at_once(due);
    run_one_round();
    EXPECT_EQ(due.calls, 1);
    EXPECT_EQ(due.record.timer.descriptor, -1);
}

TEST_F(TimerDescriptor, AFailedOpenIsReportedAndClosesNoDescriptor) {
    kernel_double kernel;
    kernel.fail("timerfd_create", EMFILE);
    timer_descriptor due;
    due.record.registration.descriptor = loop.handle.call_descriptor;  // left over from an earlier use
    due.record.timer.descriptor = loop.handle.call_descriptor;
    EXPECT_EQ(create(due), norv_get_status_by_errno(EMFILE));
    EXPECT_EQ(due.descriptor(), -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_TRUE(is_open(loop.handle.call_descriptor));
}

TEST_F(TimerDescriptor, AFailedRegistrationIsReportedAndClosesTheTimer) {
    kernel_double kernel;
    kernel.fail("epoll_ctl", ENOSPC);
    timer_descriptor due;
    EXPECT_EQ(create(due), norv_get_status_by_errno(ENOSPC));
    EXPECT_EQ(due.record.timer.descriptor, -1);
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
}

TEST_F(TimerDescriptor, DestroyingRemovesTheRegistrationAndClosesTheTimer) {
    timer_descriptor due;
    create(due);
    const int descriptor = due.descriptor();
    destroy(due);
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_EQ(due.record.timer.descriptor, -1);
    EXPECT_EQ(due.record.registration.loop, nullptr);
}

TEST_F(TimerDescriptor, ATimerDestroyedInTheSameRoundIsNotCalledBack) {
    timer_descriptor due;
    source earlier([&](uint32_t) { destroy(due); });
    earlier.signal();
    norv_epoll_fd_add(&loop.handle, &earlier.record, EPOLLIN);
    create(due);
    expire_at_once(due);
    run_one_round();
    EXPECT_EQ(loop.handle.ready_count, 2);
    EXPECT_EQ(due.calls, 0);
}

TEST_F(TimerDescriptor, ASecondDestroyDoesNotRemoveTheNextOwnerOfTheNumber) {
    timer_descriptor due;
    create(due);
    destroy(due);
    event next_owner;  // its eventfd gets the number that has just become free
    create(next_owner);
    destroy(due);
    activate(next_owner);
    run_one_round();
    EXPECT_EQ(next_owner.calls, 1);
    destroy(next_owner);
}

TEST(TimerDescriptorOfAClosedLoop, DestroyingAfterTheLoopWasClosedOnlyClosesTheTimer) {
    kernel_double kernel;
    timer_descriptor due;
    norv_epoll_t loop = {};
    norv_epoll_open(&loop);
    norv_epoll_timer_fd_create(&loop, &due.record);
    norv_epoll_close(&loop);
    kernel.forget_calls();
    kernel.fail("epoll_ctl", EINVAL);
    norv_epoll_timer_fd_destroy(&loop, &due.record);
    EXPECT_FALSE(kernel.struck());
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
    EXPECT_EQ(due.record.timer.descriptor, -1);
}

// Destroys a record, and returns whether that made the kernel end a registration.
bool destroying_removes(norv_epoll_t* loop, norv_epoll_timer_fd_t* record) {
    kernel_double kernel;
    kernel.fail("epoll_ctl", EINVAL);
    norv_epoll_timer_fd_destroy(loop, record);
    return kernel.struck().has_value();
}

TEST(TimerDescriptorOfAClosedLoop, DestroyingRemovesOnlyWithBothDescriptorsAbove0) {
    open_loop loop;
    norv_epoll_t never_opened = {};
    norv_epoll_timer_fd_t never_created = {};
    EXPECT_FALSE(destroying_removes(&loop.handle, &never_created));
    norv_epoll_timer_fd_t due = {};
    norv_epoll_timer_fd_create(&loop.handle, &due);
    EXPECT_FALSE(destroying_removes(&never_opened, &due));
    norv_epoll_timer_fd_create(&loop.handle, &due);
    EXPECT_TRUE(destroying_removes(&loop.handle, &due));
}

TEST(TimerDescriptorOfAClosedLoop, DestroyingWithoutALoopOnlyClosesTheTimer) {
    const kernel_double kernel;
    open_loop loop;
    timer_descriptor due;
    norv_epoll_timer_fd_create(&loop.handle, &due.record);
    norv_epoll_timer_fd_destroy(nullptr, &due.record);
    EXPECT_EQ(due.record.timer.descriptor, -1);
}

TEST(TimerDescriptorOfNoLoop, NullIsAnInvalidArgument) {
    open_loop loop;
    timer_descriptor due;
    EXPECT_EQ(norv_epoll_timer_fd_create(nullptr, &due.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_fd_create(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
    norv_epoll_timer_fd_destroy(&loop.handle, nullptr);
}

// ---- every call may fail

uint32_t use_both(norv_epoll_t* loop, event& raised, timer_descriptor& due) {
    uint32_t status = norv_epoll_event_fd_create(loop, &raised.record);
    if (status == NORV_STATUS_OK) {
        status = norv_epoll_event_fd_activate(&raised.record);
    }
    if (status == NORV_STATUS_OK) {
        status = norv_epoll_timer_fd_create(loop, &due.record);
    }
    if (status == NORV_STATUS_OK) {
        status = norv_epoll_event_fd_deactivate(&raised.record);
    }
    return status;
}

TEST(DescriptorSweep, FailuresAreReportedAndNothingLeaks) {
    kernel_double* board = nullptr;
    norv_epoll_t loop = {};
    bool struck_in_use = false;
    const auto open_the_loop = [&](kernel_double& kernel) {
        board = &kernel;
        norv_epoll_open(&loop);
    };
    const auto scenario = [&] {
        event raised;
        timer_descriptor due;
        const uint32_t status = use_both(&loop, raised, due);
        struck_in_use = board->struck().has_value();
        norv_epoll_timer_fd_destroy(&loop, &due.record);
        norv_epoll_event_fd_destroy(&loop, &raised.record);
        norv_epoll_close(&loop);
        return status;
    };
    norv::test::sweep_options options;
    options.expect = [&](const strike& struck) {
        const bool reported = struck_in_use && struck.name != "eventfd_read";
        return reported ? norv::test::status_of_fault(struck) : NORV_STATUS_OK;
    };
    failure_sweep(open_the_loop, scenario, options);
}

}  // namespace
