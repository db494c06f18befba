// SPDX-License-Identifier: MIT
// The owner of a serial port, and tasks that send and receive.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <array>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "bus/serial_port.hpp"
#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"
#include "norv/uart.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::result;
using norv::status;
using norv::task;
using norv::uart;
using norv::uart_stream;
using norv::test::bytes_of;
using norv::test::kernel_double;
using norv::test::serial_port;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

class CppUart : public testing::Test {
  protected:
    CppUart() { kernel.add_device("/dev/ttyS1", port); }

    std::shared_ptr<serial_port> port = std::make_shared<serial_port>();
    kernel_double kernel;
};

class CppOpenUart : public CppUart {
  protected:
    CppOpenUart() { kernel.forget_calls(); }
    // What a wait is given does not depend on the machine.
    void stop_clock() { kernel.set_clock(1, 0); }

    uart line = uart::open("/dev/ttyS1", {}).value();
};

std::string text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// ---- open and close

TEST_F(CppUart, AnOpenPortIsClosedWithItsOwner) {
    {
        const result<uart> opened = uart::open("/dev/ttyS1", {.baud = 9600});
        ASSERT_TRUE(opened);
        EXPECT_GT(opened->descriptor(), 0);
        EXPECT_NE(opened->get(), nullptr);
        EXPECT_EQ(cfgetospeed(&port->settings), speed_t{B9600});
    }
    EXPECT_EQ(cfgetospeed(&port->settings), speed_t{B38400});
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(CppUart, AFailedOpenHasTheStatusAndLeavesNothing) {
    EXPECT_EQ(uart::open("/dev/ttyS7", {}).status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uart::open("/dev/ttyS1", {.baud = 12345}).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(CppUart, APathThatWouldBeTruncatedIsAnInvalidArgument) {
    EXPECT_EQ(uart::open("/dev/" + std::string(251, 'x'), {}).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uart::open("/dev/ttyS1\0x"s, {}).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_TRUE(uart::open(std::string_view("/dev/ttyS1x").substr(0, 10), {}));
}

// ---- settings and modem lines

TEST_F(CppOpenUart, ItHas8BitsNoParityAndNoFlowControlUnlessOthersAreWanted) {
    EXPECT_EQ(cfgetospeed(&port->settings), speed_t{B115200});
    const tcflag_t chosen = CSIZE | CSTOPB | PARENB | CRTSCTS;
    EXPECT_EQ(port->settings.c_cflag & chosen, tcflag_t{CS8});
    EXPECT_EQ(port->settings.c_iflag & (IXON | IXOFF), tcflag_t{0});
}

TEST_F(CppOpenUart, EachSettingReachesThePort) {
    EXPECT_EQ(line.configure({.baud = 57600,
                              .data_bits = 7,
                              .stop_bits = uart::stop_bits::two,
                              .parity = uart::parity::odd,
                              .flow_control = uart::flow_control::hardware}),
              norv::ok);
    EXPECT_EQ(cfgetospeed(&port->settings), speed_t{B57600});
    const tcflag_t chosen = CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS;
    EXPECT_EQ(port->settings.c_cflag & chosen, tcflag_t{CS7 | CSTOPB | PARENB | PARODD | CRTSCTS});
    EXPECT_EQ(line.configure({.data_bits = 9}), NORV_STATUS_INVALID_ARG);
}

TEST_F(CppOpenUart, TheModemLinesAreSetAndRead) {
    EXPECT_EQ(line.set_rts(true), norv::ok);
    EXPECT_EQ(line.set_dtr(true), norv::ok);
    EXPECT_EQ(port->modem_lines, TIOCM_RTS | TIOCM_DTR);
    EXPECT_EQ(line.set_rts(false), norv::ok);
    EXPECT_EQ(port->modem_lines, TIOCM_DTR);
    port->modem_lines = TIOCM_CTS;
    EXPECT_TRUE(line.get_cts().value());
    EXPECT_FALSE(line.get_dsr().value());
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(line.get_dsr().status(), NORV_STATUS_DEVICE_ERROR);
}

// ---- transfers

TEST_F(CppOpenUart, BytesAreSentWithinALimit) {
    stop_clock();
    port->room = 3;
    const norv::transferred sent = line.send(bytes_of("abcdef"), 1s);
    EXPECT_EQ(sent.status, norv::ok);
    EXPECT_EQ(sent.count, 6U);
    EXPECT_EQ(port->sent, "abcdef");
    EXPECT_THAT(port->poll_waits, Each(1000));
}

TEST_F(CppOpenUart, ASendWithoutTimeSendsWhatThereIsRoomFor) {
    port->room = 2;
    const norv::transferred sent = line.send(bytes_of("abc"), 0ms);
    EXPECT_EQ(sent.status, norv::ok);
    EXPECT_EQ(sent.count, 2U);
    EXPECT_EQ(line.send(bytes_of("c"), 0ms).status, NORV_STATUS_AGAIN);
    EXPECT_EQ(port->sent, "ab");
}

TEST_F(CppOpenUart, BytesAreReceivedUntilTheBufferIsFull) {
    port->arriving = {"ab", "cd"};
    std::array<std::byte, 4> buffer{};
    const norv::transferred received = line.receive(buffer, norv::no_limit);
    EXPECT_EQ(received.status, norv::ok);
    EXPECT_EQ(received.count, 4U);
    EXPECT_EQ(text_of(buffer), "abcd");
    EXPECT_THAT(port->poll_waits, ElementsAre(-1, -1));
}

TEST_F(CppOpenUart, WhatArrivedBeforeTheLimitIsCounted) {
    stop_clock();
    port->arriving = {"ab"};
    std::array<std::byte, 4> buffer{};
    const norv::transferred received = line.receive(buffer, 5ms);
    EXPECT_EQ(received.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(received.count, 2U);
}

TEST_F(CppOpenUart, APortThatWasMovedFromIsAnInvalidArgument) {
    uart other = std::move(line);
    std::array<std::byte, 1> buffer{};
    EXPECT_EQ(line.configure({}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.send(buffer, 0ms).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.receive(buffer, 0ms).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.set_rts(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.set_dtr(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.get_cts().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.get_dsr().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.descriptor(), -1);
    EXPECT_EQ(line.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.send(bytes_of("a"), 0ms).status, norv::ok);
}

TEST_F(CppOpenUart, MovingIntoAnOpenPortClosesIt) {
    const auto second = std::make_shared<serial_port>();
    kernel.add_device("/dev/ttyS2", second);
    line = uart::open("/dev/ttyS2", {}).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(line.send(bytes_of("a"), 0ms).status, norv::ok);
    EXPECT_EQ(second->sent, "a");
}

// ---- tasks

class CppUartTask : public CppOpenUart {
  protected:
    task<status> receive() {
        const result<size_t> count = co_await stream.receive_some(buffer);
        received = count ? text_of(std::span(buffer).first(count.value())) : "";
        co_return count.status();
    }
    task<status> send(std::string text) {
        const norv::transferred moved = co_await stream.send_all(bytes_of(text));
        sent = moved.count;
        co_return moved.status;
    }

    // Makes the descriptor readable, as the driver does when bytes arrive; it always is writable.
    void arrive(std::string bytes) {
        port->received = std::move(bytes);
        EXPECT_EQ(eventfd_write(line.descriptor(), 1), 0);
    }

    norv::loop loop = norv::loop::open().value();
    uart_stream stream{line};
    std::array<std::byte, 8> buffer{};
    std::string received;
    size_t sent = 0;
};

TEST_F(CppUartTask, BytesThatHaveArrivedAreNotWaitedFor) {
    port->received = "now";
    norv::job<status> job(loop, receive());
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take(), norv::ok);
    EXPECT_EQ(received, "now");
}

TEST_F(CppUartTask, ATaskWaitsForBytes) {
    EXPECT_EQ(norv::test::run_until_ready(loop, receive(), [this] { arrive("later"); }), norv::ok);
    EXPECT_EQ(received, "later");
}

TEST_F(CppUartTask, AFailureEndsTheWait) {
    const auto fail = [this] {
        arrive("lost");
        kernel.fail("read", EIO);
    };
    EXPECT_EQ(norv::test::run_until_ready(loop, receive(), fail), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(CppUartTask, AStoppedTaskReceivesNothing) {
    EXPECT_EQ(norv::test::stop_before_ready(loop, receive(), [this] { arrive("kept"); }),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(port->received, "kept");
}

TEST_F(CppUartTask, ATaskThatEndsWhileItWaitsLeavesNothing) {
    norv::test::end_before_ready(loop, receive(), [this] { arrive("kept"); });
    EXPECT_EQ(port->received, "kept");
}

TEST_F(CppUartTask, AllBytesAreSentInPieces) {
    kernel.fail("write", EAGAIN);
    norv::job<status> job(loop, send("in pieces"));
    EXPECT_FALSE(job.done());
    EXPECT_EQ(port->sent, "");
    norv::test::run_a_while(loop);
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take(), norv::ok);
    EXPECT_EQ(sent, 9U);
    EXPECT_EQ(port->sent, "in pieces");
}

TEST_F(CppUartTask, OneTaskReceivesWhileAnotherSends) {
    kernel.fail("write", EAGAIN);
    norv::job<status> receiving(loop, receive());
    norv::job<status> sending(loop, send("out"));
    EXPECT_FALSE(receiving.done());
    EXPECT_FALSE(sending.done());
    arrive("in");
    norv::test::run_a_while(loop);
    ASSERT_TRUE(receiving.done());
    ASSERT_TRUE(sending.done());
    EXPECT_EQ(received, "in");
    EXPECT_EQ(port->sent, "out");
    EXPECT_EQ(receiving.take(), norv::ok);
    EXPECT_EQ(sending.take(), norv::ok);
}

// ---- failures

TEST(CppUartSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            const auto port = std::make_shared<serial_port>();
            port->received = "in";
            kernel.add_device("/dev/ttyS1", port);
        },
        [] {
            result<uart> opened = uart::open("/dev/ttyS1", {});
            if (!opened) {
                return opened.status().number();
            }
            uart line = *std::move(opened);
            std::array<std::byte, 2> buffer{};
            status done = line.send(bytes_of("out"), 1s).status;
            done = done.ok() ? line.receive(buffer, 1s).status : done;
            return (done.ok() ? line.get_cts().status() : done).number();
        });
}

}  // namespace
