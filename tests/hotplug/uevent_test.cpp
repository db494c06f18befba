// SPDX-License-Identifier: MIT
// The kernel's uevent messages, unparsed.
#include "norv_uevent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "hotplug/uevent_socket.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

// Without these options, sanitizers end the program at an allocation as large as the one below.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using norv::test::address_binding;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::no_standard_input;
using norv::test::option_setting;
using norv::test::reception;
using norv::test::socket_making;
using norv::test::strike;
using norv::test::uevent_message;
using norv::test::uevent_socket;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// What a handler received.
struct delivery {
    std::string message;
    const uint8_t* buffer;
};

void keep(const uint8_t* message, int64_t length, void* user) {
    const std::string text(reinterpret_cast<const char*>(message), static_cast<size_t>(length));
    static_cast<std::vector<delivery>*>(user)->push_back({text, message});
}

std::vector<std::string> messages_of(const std::vector<delivery>& deliveries) {
    std::vector<std::string> messages;
    for (const delivery& one : deliveries) {
        messages.push_back(one.message);
    }
    return messages;
}

class Uevent : public testing::Test {
  protected:
    kernel_double kernel;
    uevent_socket socket{kernel};
    norv_uevent_t uevent = {64, 0, nullptr};
    std::vector<delivery> deliveries;
};

class OpenUevent : public Uevent {
  protected:
    OpenUevent() { EXPECT_EQ(norv_uevent_open(&uevent), 0U); }
    ~OpenUevent() override { norv_uevent_close(&uevent); }

    uint32_t poll() { return norv_uevent_poll(&uevent, keep, &deliveries); }
    std::vector<std::string> messages() const { return messages_of(deliveries); }
};

// ---- the key table

TEST(UeventKeys, AreThePrefixesInAscendingOrder) {
    EXPECT_THAT(std::vector<std::string>(p_uevent_key, p_uevent_key + NORV_UEVENT_KEY_COUNT),
                ElementsAre("ACTION=", "CONNECTOR=", "DEVNAME=", "DEVPATH=", "DEVTYPE=", "MAJOR=", "MINOR=",
                            "PRODUCT=", "SUBSYSTEM="));
}

// quirk 108
TEST(UeventKeys, CanBeWritten) {
    const char* const kept = p_uevent_key[8];
    p_uevent_key[8] = "SEQNUM=";
    EXPECT_STREQ(p_uevent_key[8], "SEQNUM=");
    p_uevent_key[8] = kept;
}

// ---- open

TEST_F(OpenUevent, TheSocketIsANonBlockingDatagramSocketForUevents) {
    const auto sockets = kernel.calls<socket_making>("socket");
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(sockets[0].type, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC);
    EXPECT_EQ(sockets[0].protocol, NETLINK_KOBJECT_UEVENT);
    EXPECT_GT(uevent.fd, 0);
}

TEST_F(OpenUevent, TheReceiveBufferIsForcedTo65536Bytes) {
    const auto options = kernel.calls<option_setting>("setsockopt");
    ASSERT_EQ(options.size(), 1U);
    EXPECT_EQ(options[0].level, SOL_SOCKET);
    EXPECT_EQ(options[0].name, SO_RCVBUFFORCE);
    const int32_t size = 65536;
    EXPECT_EQ(options[0].value, std::string(reinterpret_cast<const char*>(&size), sizeof size));
}

TEST_F(OpenUevent, TheSocketIsBoundToEveryGroupAndTheKernelAssignsThePort) {
    const auto binds = kernel.calls<address_binding>("bind");
    ASSERT_EQ(binds.size(), 1U);
    ASSERT_EQ(binds[0].address.size(), 12U);
    sockaddr_nl address;
    memcpy(&address, binds[0].address.data(), sizeof address);
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pad, 0);
    EXPECT_EQ(address.nl_pid, 0U);
    EXPECT_EQ(address.nl_groups, 0xFFFFFFFFU);
}

TEST_F(OpenUevent, TheBufferIsAllocated) {
    EXPECT_NE(uevent.buffer, nullptr);
    EXPECT_EQ(kernel.allocations(), 1U);
    EXPECT_EQ(uevent.buffer_size, 64U);
}

TEST_F(Uevent, ARefusedReceiveBufferIsIgnored) {
    kernel.fail("setsockopt", EPERM);
    EXPECT_EQ(norv_uevent_open(&uevent), 0U);
    EXPECT_GT(uevent.fd, 0);
    norv_uevent_close(&uevent);
}

// quirk 106
TEST_F(Uevent, ASocketThatCannotBeOpenedLeavesMinusOneAndNoBuffer) {
    kernel.fail("socket", EPROTONOSUPPORT);
    EXPECT_EQ(norv_uevent_open(&uevent), errno_status(EPROTONOSUPPORT));
    EXPECT_EQ(uevent.fd, -1);
    EXPECT_EQ(uevent.buffer, nullptr);
    EXPECT_THAT(kernel.calls("bind"), IsEmpty());
}

TEST_F(Uevent, ASocketThatCannotBeBoundIsClosedAndLeavesMinusOne) {
    kernel.fail("bind", EADDRINUSE);
    EXPECT_EQ(norv_uevent_open(&uevent), errno_status(EADDRINUSE));
    EXPECT_EQ(uevent.fd, -1);
    EXPECT_EQ(uevent.buffer, nullptr);
    EXPECT_EQ(kernel.calls("close").size(), 1U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 1
TEST_F(Uevent, ABindFailureThatMapsToZeroOpensWithoutASocket) {
    kernel.fail("bind", EADDRINUSE);
    kernel.map_errno(EADDRINUSE, 0);
    EXPECT_EQ(norv_uevent_open(&uevent), 0U);
    EXPECT_EQ(uevent.fd, -1);
    EXPECT_NE(uevent.buffer, nullptr);
    EXPECT_EQ(norv_uevent_poll(&uevent, keep, &deliveries), errno_status(EBADF));
    norv_uevent_close(&uevent);
    EXPECT_EQ(uevent.fd, -1);
}

TEST_F(Uevent, WithoutMemoryForTheBufferTheSocketIsClosedAgain) {
    kernel.fail("malloc", ENOMEM);
    EXPECT_EQ(norv_uevent_open(&uevent), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(uevent.fd, 0);
    EXPECT_EQ(uevent.buffer, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Uevent, ABufferLargerThanAllMemoryIsOutOfMemory) {
    uevent.buffer_size = UINT64_MAX;
    EXPECT_EQ(norv_uevent_open(&uevent), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Uevent, AFailedOpenDoesNotReleaseWhatTheBufferFieldHeld) {
    uint8_t callers_own[4] = {};
    uevent.buffer = callers_own;
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_uevent_open(&uevent), errno_status(EMFILE));
    EXPECT_EQ(uevent.buffer, nullptr);
}

TEST_F(Uevent, AnOpenAfterAFailedOneSucceeds) {
    kernel.fail("socket", EMFILE);
    norv_uevent_open(&uevent);
    EXPECT_EQ(norv_uevent_open(&uevent), 0U);
    EXPECT_GT(uevent.fd, 0);
    norv_uevent_close(&uevent);
}

TEST_F(Uevent, ANullRecordOrHandlerIsAnInvalidArgument) {
    norv_uevent_close(nullptr);
    EXPECT_EQ(norv_uevent_open(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uevent_poll(nullptr, keep, nullptr), NORV_STATUS_INVALID_ARG);
    ASSERT_EQ(norv_uevent_open(&uevent), 0U);
    EXPECT_EQ(norv_uevent_poll(&uevent, nullptr, nullptr), NORV_STATUS_INVALID_ARG);
    norv_uevent_close(&uevent);
}

// ---- close

// quirk 106
TEST_F(Uevent, ClosingReleasesEverythingAndSetsTheDescriptorToZero) {
    norv_uevent_open(&uevent);
    norv_uevent_close(&uevent);
    EXPECT_EQ(uevent.fd, 0);
    EXPECT_EQ(uevent.buffer, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.calls("free").size(), 1U);
}

TEST_F(Uevent, ASecondCloseDoesNothing) {
    norv_uevent_open(&uevent);
    norv_uevent_close(&uevent);
    kernel.forget_calls();
    norv_uevent_close(&uevent);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(uevent.fd, 0);
}

TEST_F(Uevent, ClosingARecordWhoseOpenFailedDoesNothing) {
    kernel.fail("socket", EMFILE);
    norv_uevent_open(&uevent);
    kernel.forget_calls();
    norv_uevent_close(&uevent);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(uevent.fd, -1);
}

TEST_F(Uevent, AClosedRecordIsNotPolled) {
    norv_uevent_open(&uevent);
    norv_uevent_close(&uevent);
    kernel.forget_calls();
    EXPECT_EQ(norv_uevent_poll(&uevent, keep, &deliveries), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(UeventWithoutStandardInput, ASocketWithTheDescriptor0ThatCannotBeBoundIsClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    const uevent_socket socket(kernel);
    kernel.fail("bind", EACCES);
    norv_uevent_t uevent = {64, 0, nullptr};
    EXPECT_EQ(norv_uevent_open(&uevent), errno_status(EACCES));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 3
TEST(UeventWithoutStandardInput, ASocketWithTheDescriptor0IsNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    const uevent_socket socket(kernel);
    norv_uevent_t uevent = {64, 0, nullptr};
    ASSERT_EQ(norv_uevent_open(&uevent), 0U);
    ASSERT_EQ(uevent.fd, 0);
    norv_uevent_close(&uevent);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

// ---- poll

TEST_F(OpenUevent, WithoutMessagesThePollSucceedsWithoutACall) {
    EXPECT_EQ(poll(), 0U);
    EXPECT_THAT(deliveries, IsEmpty());
}

TEST_F(OpenUevent, ThreeWaitingMessagesAreThreeCallsOfOnePoll) {
    const std::string first = uevent_message("add", "/devices/a");
    const std::string second = uevent_message("change", "/devices/b");
    const std::string third = uevent_message("remove", "/devices/c");
    socket.send(first);
    socket.send(second);
    socket.send(third);
    EXPECT_EQ(poll(), 0U);
    EXPECT_THAT(messages(), ElementsAre(first, second, third));
}

TEST_F(OpenUevent, EveryMessageIsInTheRecordsBuffer) {
    socket.send("one");
    socket.send("two");
    poll();
    ASSERT_EQ(deliveries.size(), 2U);
    EXPECT_EQ(deliveries[0].buffer, uevent.buffer);
    EXPECT_EQ(deliveries[1].buffer, uevent.buffer);
}

TEST_F(OpenUevent, AMessageIsReceivedWithTheWholeBufferAndNoFlags) {
    poll();
    const auto received = kernel.calls<reception>("recv");
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].size, 64U);
    EXPECT_EQ(received[0].flags, 0);
}

TEST_F(OpenUevent, AMessageAsLongAsTheBufferIsReceivedWhole) {
    socket.send(std::string(64, 'x'));
    poll();
    EXPECT_THAT(messages(), ElementsAre(std::string(64, 'x')));
}

TEST_F(OpenUevent, ALongerMessageIsTruncatedAndItsRestIsLost) {
    socket.send(std::string(64, 'x') + "rest");
    socket.send("next");
    EXPECT_EQ(poll(), 0U);
    EXPECT_THAT(messages(), ElementsAre(std::string(64, 'x'), "next"));
}

TEST_F(OpenUevent, AMessageOfOneByteIsPassedOn) {
    socket.send("x");
    EXPECT_EQ(poll(), 0U);
    EXPECT_THAT(messages(), ElementsAre("x"));
}

TEST_F(OpenUevent, AMessageMayHoldNulsAndEndWithoutOne) {
    const std::string message("\0\0a\0b", 5);
    socket.send(message);
    poll();
    EXPECT_THAT(messages(), ElementsAre(message));
}

TEST_F(OpenUevent, AReceiveErrorIsReportedAfterTheMessagesBeforeIt) {
    socket.send("first");
    socket.fail_receive(ENOBUFS);
    socket.send("later");
    EXPECT_EQ(poll(), errno_status(ENOBUFS));
    EXPECT_THAT(messages(), ElementsAre("first"));
}

TEST_F(OpenUevent, APollAfterAReceiveErrorReceivesTheLaterMessages) {
    socket.fail_receive(ENOBUFS);
    socket.send("later");
    poll();
    EXPECT_EQ(poll(), 0U);
    EXPECT_THAT(messages(), ElementsAre("later"));
}

TEST_F(OpenUevent, AReceiveErrorWhoseErrnoMapsToZeroIsASuccess) {
    kernel.map_errno(EIO, 0);
    socket.fail_receive(EIO);
    EXPECT_EQ(poll(), 0U);
}

TEST_F(OpenUevent, AnEmptySocketIsASuccessWhateverItsErrnoMapsTo) {
    kernel.map_errno(EAGAIN, 99);
    EXPECT_EQ(poll(), 0U);
}

// quirk 107
TEST_F(OpenUevent, AnEmptyMessageEndsThePollWithTheStatusOfErrno) {
    socket.send("");
    socket.send("later");
    errno = EIO;
    EXPECT_EQ(poll(), errno_status(EIO));
    EXPECT_THAT(deliveries, IsEmpty());
    EXPECT_EQ(socket.waiting(), 1U);
}

TEST_F(OpenUevent, AnEmptyMessageIsASuccessIfErrnoIsEagain) {
    socket.send("");
    errno = EAGAIN;
    EXPECT_EQ(poll(), 0U);
}

TEST_F(OpenUevent, AStormOfTenThousandMessagesArrivesWholeAndInOrder) {
    std::vector<std::string> sent;
    for (int number = 0; number < 10'000; ++number) {
        sent.push_back(uevent_message("add", "/devices/" + std::to_string(number)).substr(0, 64));
        socket.send(sent.back());
    }
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(messages(), sent);
}

TEST_F(Uevent, ABufferOfNoBytesReceivesNothing) {
    uevent.buffer_size = 0;
    ASSERT_EQ(norv_uevent_open(&uevent), 0U);
    socket.send("message");
    errno = EAGAIN;
    EXPECT_EQ(norv_uevent_poll(&uevent, keep, &deliveries), 0U);
    EXPECT_THAT(deliveries, IsEmpty());
    norv_uevent_close(&uevent);
}

// ---- a real socket

TEST(UeventRealSocket, IsOpenedPolledAndClosed) {
    norv_uevent_t uevent = {8192, 0, nullptr};
    ASSERT_EQ(norv_uevent_open(&uevent), 0U);
    sockaddr_nl address = {};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(uevent.fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(address.nl_groups, 0xFFFFFFFFU);
    EXPECT_NE(address.nl_pid, 0U);
    std::vector<delivery> deliveries;
    EXPECT_EQ(norv_uevent_poll(&uevent, keep, &deliveries), 0U);
    norv_uevent_close(&uevent);
}

// ---- failures

TEST(UeventSweep, NothingLeaksAndNothingIsClosedTwice) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) -> uint32_t {
        if (struck.name == "setsockopt" || struck.name == "close") {
            return NORV_STATUS_OK;
        }
        return struck.name == "malloc" ? NORV_STATUS_NO_MEMORY : errno_status(struck.error);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            uevent_socket socket(kernel);
            socket.send("message");
        },
        [] {
            norv_uevent_t uevent = {64, 0, nullptr};
            std::vector<delivery> deliveries;
            uint32_t status = norv_uevent_open(&uevent);
            if (status == NORV_STATUS_OK) {
                status = norv_uevent_poll(&uevent, keep, &deliveries);
            }
            norv_uevent_close(&uevent);
            return status;
        },
        options);
}

}  // namespace
