// SPDX-License-Identifier: MIT
// The owner of a receiver of uevent messages, and the messages in tasks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"
#include "hotplug/uevent_socket.hpp"
#include "norv/uevent.hpp"

namespace {

using norv::status;
using norv::task;
using norv::uevent;
using norv::uevent_messages;
using norv::test::kernel_double;
using norv::test::uevent_socket;
using testing::ElementsAre;
using testing::IsEmpty;

class CppUevent : public testing::Test {
  protected:
    kernel_double kernel;
    uevent_socket socket{kernel};
    uevent events = uevent::open(64).value();
    std::vector<std::string> received;
};

// ---- opening and closing

TEST_F(CppUevent, AReceiverIsClosedWithItsOwner) {
    {
        const uevent second = uevent::open().value();
        EXPECT_GT(second.descriptor(), 0);
        EXPECT_EQ(kernel.open_descriptors(), 2U);
        EXPECT_EQ(kernel.allocations(), 2U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(CppUevent, TheBufferHasTheGivenSize) {
    EXPECT_EQ(events.get()->buffer_size, 64U);
    EXPECT_EQ(uevent::open().value().get()->buffer_size, 8192U);
}

// quirk 106
TEST_F(CppUevent, AFailedOpenHasTheStatusAndClosesNothing) {
    kernel.fail("malloc", ENOMEM);
    EXPECT_EQ(uevent::open().status(), NORV_STATUS_NO_MEMORY);
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(uevent::open().status(), norv_get_status_by_errno(EMFILE));
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST(CppUeventKeys, TheKeysAreThoseOfTheLibrary) {
    EXPECT_EQ(uevent::keys().size(), size_t{NORV_UEVENT_KEY_COUNT});
    EXPECT_STREQ(uevent::keys()[8], "SUBSYSTEM=");
}

// ---- messages

TEST_F(CppUevent, EachMessageIsPassedToTheFunction) {
    socket.send("add@/devices/a");
    socket.send(std::string("change@/devices/b\0ACTION=change", 31));
    EXPECT_EQ(events.poll([&](std::string_view message) { received.emplace_back(message); }), norv::ok);
    EXPECT_THAT(received, ElementsAre("add@/devices/a", std::string("change@/devices/b\0ACTION=change", 31)));
}

TEST_F(CppUevent, LostMessagesAreReported) {
    socket.send("first");
    socket.fail_receive(ENOBUFS);
    EXPECT_EQ(events.poll([&](std::string_view message) { received.emplace_back(message); }),
              norv_get_status_by_errno(ENOBUFS));
    EXPECT_THAT(received, ElementsAre("first"));
}

TEST_F(CppUevent, AnExceptionOfTheFunctionIsThrownAfterThePoll) {
    socket.send("first");
    socket.send("second");
    const auto failing = [&](std::string_view message) {
        received.emplace_back(message);
        throw std::runtime_error("from the function");
    };
    EXPECT_THROW(events.poll(failing).ignore(), std::runtime_error);
    EXPECT_THAT(received, ElementsAre("first"));
    EXPECT_EQ(socket.waiting(), 0U);
}

// ---- moving

TEST_F(CppUevent, AReceiverThatWasMovedFromIsAnInvalidArgument) {
    uevent other = std::move(events);
    kernel.forget_calls();
    EXPECT_EQ(events.poll([](std::string_view) {}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(events.descriptor(), -1);
    EXPECT_EQ(events.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    socket.send("message");
    EXPECT_EQ(other.poll([&](std::string_view message) { received.emplace_back(message); }), norv::ok);
    EXPECT_THAT(received, ElementsAre("message"));
}

TEST_F(CppUevent, MovingIntoAnOpenReceiverClosesIt) {
    events = uevent::open(128).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.allocations(), 1U);
    EXPECT_EQ(events.get()->buffer_size, 128U);
}

// ---- messages in tasks

class CppUeventMessages : public CppUevent {
  protected:
    task<status> one() {
        co_return co_await messages.poll(
            [this](std::string_view message) { received.emplace_back(message); });
    }
    task<status> failing() {
        co_return co_await messages.poll([](std::string_view) { throw std::runtime_error("in a task"); });
    }

    void raise() { eventfd_write(events.descriptor(), 1); }
    void send(const std::string& message) {
        socket.send(message);
        raise();
    }
    void lower() {
        eventfd_t count = 0;
        eventfd_read(events.descriptor(), &count);
    }

    norv::loop loop = norv::loop::open().value();
    uevent_messages messages{events};
};

TEST_F(CppUeventMessages, ATaskWaitsForMessages) {
    for (const char* const message : {"first", "second"}) {
        EXPECT_EQ(norv::test::run_until_ready(loop, one(), [&] { send(message); }), norv::ok);
        lower();
    }
    EXPECT_THAT(received, ElementsAre("first", "second"));
}

TEST_F(CppUeventMessages, AWaitOutlastsASocketWithoutMessages) {
    const norv::job<status> waiting(loop, one());
    raise();
    norv::test::run_a_while(loop);
    EXPECT_FALSE(waiting.done());
}

TEST_F(CppUeventMessages, LostMessagesEndTheWait) {
    EXPECT_EQ(norv::test::run_until_ready(loop, one(),
                                          [&] {
                                              socket.fail_receive(ENOBUFS);
                                              raise();
                                          }),
              norv_get_status_by_errno(ENOBUFS));
}

TEST_F(CppUeventMessages, AnExceptionOfTheFunctionIsThrownInTheTask) {
    EXPECT_THROW(norv::test::run_until_ready(loop, failing(), [this] { send("message"); }).ignore(),
                 std::runtime_error);
}

TEST_F(CppUeventMessages, AStoppedTaskReceivesNothing) {
    EXPECT_EQ(norv::test::stop_before_ready(loop, one(), [this] { send("message"); }), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(socket.waiting(), 1U);
}

TEST_F(CppUeventMessages, ATaskThatWasStoppedBeforeReceivesNothing) {
    socket.send("message");
    EXPECT_EQ(norv::test::stopped_before_waiting(loop, one()), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(socket.waiting(), 1U);
}

TEST_F(CppUeventMessages, ATaskThatEndsWhileItWaitsLeavesNothing) {
    norv::test::end_before_ready(loop, one(), [this] { send("message"); });
    EXPECT_EQ(socket.waiting(), 1U);
}

// ---- failures

TEST(CppUeventSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep([](kernel_double& kernel) { uevent_socket(kernel).send("message"); },
                            [] {
                                norv::result<uevent> events = uevent::open(64);
                                if (!events) {
                                    return events.status().number();
                                }
                                uevent moved = *std::move(events);
                                return moved.poll([](std::string_view) {}).number();
                            });
}

}  // namespace
