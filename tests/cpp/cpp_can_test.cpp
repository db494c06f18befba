// SPDX-License-Identifier: MIT
// The owner of a CAN channel, and tasks that wait for frames.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "bus/can_network.hpp"
#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"
#include "norv/can.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::can;
using norv::can_stream;
using norv::result;
using norv::status;
using norv::task;
using norv::test::can_network;
using norv::test::can_socket;
using norv::test::kernel_double;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

can_frame frame_of(uint32_t identifier, uint8_t first_byte = 0) {
    can_frame frame = {};
    frame.can_id = identifier;
    frame.len = 1;
    frame.data[0] = first_byte;
    return frame;
}

class Can : public testing::Test {
  protected:
    Can() { network.add_to(kernel); }

    can_socket& socket(size_t number) { return *network.sockets.at(number); }

    can_network network;
    kernel_double kernel;
};

class OpenCan : public Can {
  protected:
    OpenCan() { kernel.forget_calls(); }

    can channel = can::open("can0", 0x123).value();
};

// ---- open and close

TEST_F(Can, AnOpenChannelIsClosedWithItsOwner) {
    {
        const result<can> channel = can::open("can0", 0x123);
        ASSERT_TRUE(channel);
        EXPECT_GT(channel->descriptor(), 0);
        EXPECT_NE(channel->get(), nullptr);
        EXPECT_EQ(socket(0).interface, 5);
        ASSERT_THAT(socket(0).filters, SizeIs(1));
        EXPECT_EQ(socket(0).filters[0].can_id, 0x123U);
    }
    EXPECT_FALSE(socket(0).open);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(Can, AChannelMayHaveTwoIdentifiers) {
    const can channel = can::open("can1", 0x123, 0x321).value();
    EXPECT_EQ(socket(0).interface, 6);
    ASSERT_THAT(socket(0).filters, SizeIs(2));
    EXPECT_EQ(socket(0).filters[1].can_id, 0x321U);
}

TEST_F(Can, ChannelsOfOneIdentifierAreIndependent) {
    std::optional<can> first = can::open("can0", 0x123).value();
    can second = can::open("can0", 0x123).value();
    first.reset();
    network.arrive("can0", frame_of(0x123, 7));
    EXPECT_EQ(second.read(0ms).value().data[0], 7);
}

TEST_F(Can, AFailedOpenHasTheStatusAndLeavesNothing) {
    EXPECT_EQ(can::open("can2", 0x123).status(), norv_get_status_by_errno(ENODEV));
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(can::open("can0", 0x123).status(), NORV_STATUS_NO_MEMORY);
    kernel.fail({.call = "norv_zalloc", .nth = 2, .error = ENOMEM});
    EXPECT_EQ(can::open("can0", 0x123).status(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(Can, AnInterfaceNameThatWouldBeTruncatedIsAnInvalidArgument) {
    network.interfaces["can0123456789ab"] = 7;
    const can channel = can::open("can0123456789ab", 1).value();
    EXPECT_EQ(socket(0).interface, 7);
    EXPECT_EQ(can::open(std::string_view("can01").substr(0, 4), 1).status(), norv::ok);
    EXPECT_EQ(socket(1).interface, 5);
    kernel.forget_calls();
    EXPECT_EQ(can::open("can0123456789abc", 1).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(can::open("can0\0x"s, 1).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- transfers

TEST_F(OpenCan, AFrameIsWritten) {
    EXPECT_EQ(channel.write(frame_of(0x42, 9), 0ms), norv::ok);
    EXPECT_EQ(channel.write(frame_of(0x43, 8), norv::no_limit), norv::ok);
    ASSERT_THAT(network.sent[5], SizeIs(2));
    EXPECT_EQ(network.sent[5][0].can_id, 0x42U);
    EXPECT_EQ(network.sent[5][1].data[0], 8);
    kernel.fail("write", ENOBUFS);
    EXPECT_EQ(channel.write(frame_of(0x42), 0ms), norv_get_status_by_errno(ENOBUFS));
}

TEST_F(OpenCan, AFrameIsRead) {
    EXPECT_EQ(channel.read(0ms).status(), NORV_STATUS_AGAIN);
    network.arrive("can0", frame_of(0x123, 1));
    socket(0).arriving = {frame_of(0x123, 2), frame_of(0x123, 3)};
    EXPECT_EQ(channel.read(0ms).value().data[0], 1);
    EXPECT_EQ(channel.read(1s).value().data[0], 2);
    EXPECT_EQ(channel.read(norv::no_limit).value().data[0], 3);
}

TEST_F(OpenCan, ALessThanWholeFrameIsNotAFrame) {
    network.arrive("can0", frame_of(0x123, 1));
    kernel.fail({.call = "read", .how = norv::test::fault::kind::short_count});
    EXPECT_EQ(channel.read(0ms).status(), NORV_STATUS_EMPTY);
}

TEST_F(OpenCan, FramesAreReadUntilTheBufferIsFull) {
    socket(0).arriving = {frame_of(0x123, 1), frame_of(0x123, 2), frame_of(0x123, 3)};
    std::array<can_frame, 2> buffer{};
    const can::frames read = channel.read(buffer, 1s);
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 2U);
    EXPECT_EQ(buffer[1].data[0], 2);
}

TEST_F(OpenCan, WhatArrivedBeforeTheLimitIsCounted) {
    kernel.set_clock(1000, 0);
    network.arrive("can0", frame_of(0x123, 1));
    std::array<can_frame, 2> buffer{};
    const can::frames read = channel.read(buffer, 1ms);
    EXPECT_EQ(read.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(read.count, 1U);
    EXPECT_EQ(buffer[0].data[0], 1);
}

TEST_F(OpenCan, AnEmptyBufferTakesNoFrame) {
    network.arrive("can0", frame_of(0x123, 1));
    const can::frames read = channel.read({}, 0ms);
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(channel.read(0ms).value().data[0], 1);
}

TEST_F(OpenCan, AChannelThatWasMovedFromIsAnInvalidArgument) {
    can other = std::move(channel);
    EXPECT_EQ(channel.write(frame_of(1), norv::no_limit), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(channel.read(norv::no_limit).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(channel.read({}, 0ms).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(channel.descriptor(), -1);
    EXPECT_EQ(channel.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.write(frame_of(1), 0ms), norv::ok);
}

TEST_F(OpenCan, MovingIntoAnOpenChannelClosesIt) {
    channel = can::open("can1", 0x123).value();
    EXPECT_FALSE(socket(0).open);
    EXPECT_TRUE(socket(1).open);
    EXPECT_EQ(channel.write(frame_of(1), 0ms), norv::ok);
    EXPECT_THAT(network.sent[6], SizeIs(1));
}

TEST(CanSweep, NothingLeaksThroughTheOwner) {
    can_network network;
    norv::test::owner_sweep([&](kernel_double& kernel) { network.add_to(kernel); },
                            [] {
                                result<can> channel = can::open("can0", 0x123, 0x321);
                                return channel ? channel->write(frame_of(1), 1s).number()
                                               : channel.status().number();
                            });
}

// ---- tasks

class CanTask : public OpenCan {
  protected:
    // Makes the socket readable, as the kernel does when a frame arrives.
    void arrive(const can_frame& frame) {
        network.arrive("can0", frame);
        EXPECT_EQ(eventfd_write(channel.descriptor(), 1), 0);
    }

    norv::loop loop = norv::loop::open().value();
    can_stream stream{channel};
};

task<result<can_frame>> read_one(can_stream& stream) {
    co_return co_await stream.read();
}

TEST_F(CanTask, AFrameThatHasArrivedIsNotWaitedFor) {
    network.arrive("can0", frame_of(0x123, 5));
    norv::job<result<can_frame>> job(loop, read_one(stream));
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().value().data[0], 5);
}

TEST_F(CanTask, ATaskWaitsForAFrame) {
    norv::job<result<can_frame>> job(loop, read_one(stream));
    EXPECT_FALSE(job.done());
    norv::test::run_a_while(loop);
    EXPECT_FALSE(job.done());
    arrive(frame_of(0x123, 6));
    norv::test::run_a_while(loop);
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().value().data[0], 6);
}

TEST_F(CanTask, AFailureEndsTheWait) {
    norv::job<result<can_frame>> job(loop, read_one(stream));
    arrive(frame_of(0x123, 6));
    kernel.fail("read", ENETDOWN);
    norv::test::run_a_while(loop);
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().status(), norv_get_status_by_errno(ENETDOWN));
}

TEST_F(CanTask, ATaskWaitsForRoomToWrite) {
    kernel.fail("write", EAGAIN);
    norv::job<status> job(
        loop, [](can_stream& to) -> task<status> { co_return co_await to.write(frame_of(0x42, 3)); }(stream));
    EXPECT_FALSE(job.done());
    EXPECT_THAT(network.sent[5], IsEmpty());
    norv::test::run_a_while(loop);
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take(), norv::ok);
    ASSERT_THAT(network.sent[5], SizeIs(1));
    EXPECT_EQ(network.sent[5][0].data[0], 3);
}

TEST_F(CanTask, ATaskThatIsDestroyedWhileItWaitsReadsNothing) {
    { norv::job<result<can_frame>> job(loop, read_one(stream)); }
    arrive(frame_of(0x123, 6));
    kernel.forget_calls();
    norv::test::run_a_while(loop);
    EXPECT_THAT(kernel.calls("read"), IsEmpty());
    EXPECT_EQ(channel.read(0ms).value().data[0], 6);
}

TEST_F(CanTask, AStoppedTaskReturnsTimeout) {
    std::stop_source stop;
    norv::job<result<can_frame>> job(loop, read_one(stream), stop.get_token());
    stop.request_stop();
    norv::test::run_a_while(loop);
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().status(), NORV_STATUS_TIMEOUT);
}

TEST_F(CanTask, ATaskThatIsStoppedWhileItWaitsForRoomReturnsTimeout) {
    kernel.fail("write", EAGAIN);
    norv::job<status> job(
        loop, [](can_stream& to) -> task<status> { co_return co_await to.write(frame_of(0x42)); }(stream));
    EXPECT_FALSE(job.done());
    job.stop();
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take(), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(network.sent[5], IsEmpty());
}

TEST_F(CanTask, WaitingAllocatesNothing) {
    task<result<can_frame>> reading = read_one(stream);
    const size_t before = kernel.allocations();
    kernel.fail("norv_malloc", ENOMEM);
    norv::job<result<can_frame>> job(loop, std::move(reading));
    EXPECT_EQ(kernel.allocations(), before);
    arrive(frame_of(0x123, 4));
    norv::test::run_a_while(loop);
    EXPECT_FALSE(kernel.struck());
    EXPECT_EQ(job.take().value().data[0], 4);
}

// A socket that has no room for the first frame.
class busy_socket : public can_socket {
  public:
    using can_socket::can_socket;

    long write(const void* buffer, size_t size, off_t offset) override {
        return std::exchange(busy_, false) ? -EAGAIN : can_socket::write(buffer, size, offset);
    }

  private:
    bool busy_ = true;
};

TEST(CanSweep, NothingLeaksFromAWait) {
    can_network network;
    norv::test::owner_sweep(
        [&](kernel_double& kernel) {
            kernel.add_socket_family(AF_CAN, [&](int type, int protocol) {
                return std::make_shared<busy_socket>(network, type, protocol);
            });
        },
        [] {
            result<norv::loop> loop = norv::loop::open();
            result<can> channel = can::open("can0", 0x123);
            if (!loop || !channel) {
                return (loop ? channel.status() : loop.status()).number();
            }
            can_stream stream(*channel);
            return norv::run(*loop,
                             [](can_stream& to) -> task<status> {
                                 co_return co_await to.write(frame_of(1));
                             }(stream))
                .number();
        });
}

}  // namespace
