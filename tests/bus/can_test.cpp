// SPDX-License-Identifier: MIT
// CAN channels.
#include "norv_linux_can.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bus/can_network.hpp"
#include "hotplug/mutex_ends.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::address_binding;
using norv::test::can_network;
using norv::test::can_socket;
using norv::test::descriptor_control;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::no_standard_input;
using norv::test::option_setting;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

can_frame frame_of(uint32_t identifier, const std::string& data = "") {
    can_frame frame = {};
    frame.can_id = identifier;
    frame.len = static_cast<uint8_t>(data.copy(reinterpret_cast<char*>(frame.data), sizeof frame.data));
    return frame;
}

std::string text_of(const can_frame& frame) {
    return {reinterpret_cast<const char*>(frame.data), frame.len};
}

class Can : public testing::Test {
  protected:
    Can() { network.add_to(kernel); }

    std::vector<std::string> names_of_calls() const {
        std::vector<std::string> names;
        for (const auto& call : kernel.calls()) {
            names.push_back(call.name);
        }
        return names;
    }

    can_network network;
    kernel_double kernel;
    norv_linux_can_t* can = nullptr;
};

// A context for can0.
class OpenCan : public Can {
  protected:
    OpenCan() { EXPECT_EQ(norv_linux_can_open("can0", &can), 0U); }
    ~OpenCan() override { norv_linux_can_close(&can); }

    norv_linux_can_raw_t* add(uint32_t identifier) {
        norv_linux_can_raw_t* added = nullptr;
        EXPECT_EQ(norv_linux_can_raw_add(&can, 1, identifier, &added), 0U);
        return added;
    }

    can_socket& socket(size_t number) { return *network.sockets.at(number); }

    norv_linux_can_raw_t* channel = nullptr;
};

// ---- open and close

TEST_F(Can, OpeningTouchesNoInterface) {
    EXPECT_EQ(norv_linux_can_open("there is no such interface", &can), 0U);
    EXPECT_NE(can, nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    norv_linux_can_close(&can);
}

// quirk 62
TEST_F(Can, TheInterfaceNameIsKeptByPointerAndReadWhenAChannelIsAdded) {
    char name[] = "can0";
    EXPECT_EQ(norv_linux_can_open(name, &can), 0U);
    name[3] = '1';
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, nullptr), 0U);
    EXPECT_EQ(network.sockets.at(0)->interface, 6);
    norv_linux_can_close(&can);
}

TEST_F(Can, OpeningWithoutMemoryLeavesTheVariableNull) {
    can = reinterpret_cast<norv_linux_can_t*>(&network);  // an arbitrary previous value
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_can_open("can0", &can), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(can, nullptr);
}

TEST_F(Can, AnOpenWhoseMutexFailsReleasesTheContextAndReturnsThatStatus) {
    can = reinterpret_cast<norv_linux_can_t*>(&network);
    kernel.fail("norv_mutex_init", EAGAIN);
    EXPECT_EQ(norv_linux_can_open("can0", &can), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(can, nullptr);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(Can, ANullNameOrVariableIsAnInvalidArgument) {
    can = reinterpret_cast<norv_linux_can_t*>(&network);
    EXPECT_EQ(norv_linux_can_open(nullptr, &can), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(can, nullptr);
    EXPECT_EQ(norv_linux_can_open("can0", nullptr), NORV_STATUS_INVALID_ARG);
}

TEST_F(Can, ClosingANullVariableDoesNothing) {
    norv_linux_can_close(&can);
    norv_linux_can_close(nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenCan, ClosingReleasesEveryChannelAndMakesTheVariableNull) {
    add(0x100);
    add(0x200);
    add(0x300);
    norv_linux_can_close(&can);
    EXPECT_EQ(can, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(OpenCan, TheNewestChannelIsClosedFirst) {
    std::vector<uint32_t> order;
    for (const uint32_t identifier : {0x100U, 0x200U, 0x300U}) {
        add(identifier);
        network.sockets.back()->on_close = [&order, identifier] { order.push_back(identifier); };
    }
    norv_linux_can_close(&can);
    EXPECT_THAT(order, ElementsAre(0x300U, 0x200U, 0x100U));
}

TEST_F(OpenCan, ClosingTwiceClosesNothingTheSecondTime) {
    add(0x100);
    norv_linux_can_close(&can);
    kernel.forget_calls();
    norv_linux_can_close(&can);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenCan, ClosingReleasesEverythingEvenIfTheLockFails) {
    add(0x100);
    kernel.fail("norv_mutex_lock", EINVAL);
    norv_linux_can_close(&can);
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(can, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(OpenCan, ClosingReleasesEveryChannelUnderTheLock) {
    add(0x100);
    add(0x200);
    std::vector<size_t> open;
    std::vector<size_t> allocated;
    kernel.on_lock([&](bool) {
        open.push_back(kernel.open_descriptors());
        allocated.push_back(kernel.allocations());
    });
    norv_linux_can_close(&can);
    EXPECT_THAT(open, ElementsAre(2, 0));
    EXPECT_THAT(allocated, ElementsAre(3, 1)) << "the context and its channels; the context";
}

TEST_F(OpenCan, ClosingDestroysTheLock) {
    norv::test::mutex_ends = 0;
    norv_linux_can_close(&can);
    EXPECT_EQ(norv::test::mutex_ends, 1);
}

TEST_F(OpenCan, ClosingUnlocks) {
    kernel.fail("norv_mutex_unlock", EINVAL);
    norv_linux_can_close(&can);
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(can, nullptr);
}

// A channel with the descriptor 0.
class CanWithoutStandardInput : public Can {
  protected:
    CanWithoutStandardInput() {
        EXPECT_EQ(norv_linux_can_open("can0", &can), 0U);
        EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), 0U);
        EXPECT_EQ(norv_linux_can_get_fd(channel), 0);
    }
    ~CanWithoutStandardInput() override {
        EXPECT_EQ(kernel.open_descriptors(), 1U);
        close(0);
        norv_linux_can_close(&can);
    }

    norv_linux_can_raw_t* channel = nullptr;

  private:
    const no_standard_input guard_;
};

TEST_F(CanWithoutStandardInput, RemovingDoesNotCloseTheDescriptor0) {
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST_F(CanWithoutStandardInput, ASocketWhoseFlagsCannotBeReadEndsTheAdd) {
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    close(0);
    kernel.forget_calls();
    kernel.fail("fcntl", EIO);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(norv_linux_can_get_fd(channel), 0);
    EXPECT_THAT(names_of_calls(), ElementsAre("socket", "fcntl"));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST_F(CanWithoutStandardInput, ClosingDoesNotCloseTheDescriptor0) {
    norv_linux_can_close(&can);
}

// ---- add: the system calls

TEST_F(OpenCan, AChannelIsARawCanSocketThatIsClosedOnExec) {
    channel = add(0x123);
    EXPECT_GT(norv_linux_can_get_fd(channel), 0);
    ASSERT_THAT(network.sockets, SizeIs(1));
    EXPECT_EQ(socket(0).type, SOCK_RAW | SOCK_CLOEXEC);
    EXPECT_EQ(socket(0).protocol, CAN_RAW);
}

TEST_F(OpenCan, ABlockingChannelKeepsItsFlags) {
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), 0U);
    EXPECT_THAT(names_of_calls(), ElementsAre("socket", "ioctl", "setsockopt", "setsockopt", "bind"));
}

TEST_F(OpenCan, ANonBlockingChannelKeepsItsOtherFlags) {
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), 0U);
    EXPECT_THAT(names_of_calls(),
                ElementsAre("socket", "fcntl", "fcntl", "ioctl", "setsockopt", "setsockopt", "bind"));
    const auto calls = kernel.calls("fcntl");
    EXPECT_EQ(calls[0].as<descriptor_control>().command, F_GETFL);
    EXPECT_EQ(calls[1].as<descriptor_control>().command, F_SETFL);
    EXPECT_EQ(calls[1].as<descriptor_control>().argument, calls[0].result | O_NONBLOCK);
    EXPECT_EQ(fcntl(norv_linux_can_get_fd(channel), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

// quirk 70
TEST_F(OpenCan, TheNonBlockingFlagIsSetEvenIfItIsAlreadySet) {
    kernel.answer("fcntl", O_RDWR | O_NONBLOCK);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), 0U);
    ASSERT_THAT(kernel.calls("fcntl"), SizeIs(2));
    EXPECT_EQ(kernel.calls("fcntl")[1].as<descriptor_control>().command, F_SETFL);
    EXPECT_EQ(kernel.calls("fcntl")[1].as<descriptor_control>().argument, O_RDWR | O_NONBLOCK);
}

// quirk 70
TEST_F(OpenCan, OnlyTheLowByteOfTheNonBlockingFlagCounts) {
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0x100, 0x1, nullptr), 0U);
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 0xFFFFFF00U, 0x2, 0x3, nullptr), 0U);
    EXPECT_THAT(kernel.calls("fcntl"), IsEmpty());
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0x80, 0x4, nullptr), 0U);
    EXPECT_THAT(kernel.calls("fcntl"), SizeIs(2));
}

TEST_F(OpenCan, TheInterfaceIsLookedUpAndTheSocketBoundToItsIndex) {
    add(0x123);
    EXPECT_EQ(socket(0).looked_up_name, "can0" + std::string(12, '\0'));
    ASSERT_THAT(kernel.calls("bind"), SizeIs(1));
    EXPECT_EQ(
        kernel.calls("bind")[0].as<address_binding>().address,  // family 29, padding, index 5, the rest zeros
        "\x1d\0\0\0\x05\0\0\0"s + std::string(16, '\0'));
}

TEST_F(Can, AnInterfaceNameIsCopiedUpTo16Characters) {
    network.interfaces["interface_nam"] = 9;
    network.interfaces["interface_name_"] = 7;  // the kernel's name for the 16 characters
    EXPECT_EQ(norv_linux_can_open("interface_name_that_is_too_long", &can), 0U);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, nullptr), 0U);
    EXPECT_EQ(network.sockets.at(0)->looked_up_name, "interface_name_t");
    EXPECT_EQ(network.sockets.at(0)->interface, 7);
    norv_linux_can_close(&can);
}

TEST_F(OpenCan, OneIdentifierIsOneFilterOfItsLow11Bits) {
    add(0x123);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().level, SOL_CAN_RAW);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().name, CAN_RAW_FILTER);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().value, "\x23\x01\0\0\xff\x07\0\0"s);
}

TEST_F(OpenCan, TwoIdentifiersAreTwoFilters) {
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 0, 0x100, 0x200, &channel), 0U);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().value,
              "\0\x01\0\0\xff\x07\0\0\0\x02\0\0\xff\x07\0\0"s);
}

TEST_F(OpenCan, TheAlternativeIdentifier0IsAFilterToo) {
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 0, 0x100, 0, &channel), 0U);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().value,
              "\0\x01\0\0\xff\x07\0\0\0\0\0\0\xff\x07\0\0"s);
}

TEST_F(OpenCan, AFilterHoldsAllBitsOfItsIdentifier) {
    add(0x9ABCDEF0U);
    EXPECT_EQ(kernel.calls("setsockopt")[0].as<option_setting>().value, "\xf0\xde\xbc\x9a\xff\x07\0\0"s);
}

TEST_F(OpenCan, LoopbackIsSwitchedOffByAnIntOfZero) {
    add(0x123);
    EXPECT_EQ(kernel.calls("setsockopt")[1].as<option_setting>().level, SOL_CAN_RAW);
    EXPECT_EQ(kernel.calls("setsockopt")[1].as<option_setting>().name, CAN_RAW_LOOPBACK);
    EXPECT_EQ(kernel.calls("setsockopt")[1].as<option_setting>().value, std::string(4, '\0'));
}

// ---- add: the returned channel

TEST_F(OpenCan, AddingAnIdentifierTwiceReturnsOneChannelWithOneSocket) {
    norv_linux_can_raw_t* first = add(0x123);
    EXPECT_EQ(add(0x123), first);
    EXPECT_THAT(network.sockets, SizeIs(1));
}

// quirk 63
TEST_F(OpenCan, TheSecondAddComparesNothingButTheMainIdentifier) {
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), 0U);
    kernel.forget_calls();
    norv_linux_can_raw_t* again = nullptr;
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 1, 0x123, 0x456, &again), 0U);
    EXPECT_EQ(again, channel);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 63
TEST_F(OpenCan, AnAlternativeIdentifierIsNotAKey) {
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 0, 0x100, 0x200, &channel), 0U);
    EXPECT_NE(add(0x200), channel);
    EXPECT_THAT(network.sockets, SizeIs(2));
}

TEST_F(OpenCan, TheKeyIsTheWholeIdentifierNotItsLow11Bits) {
    EXPECT_NE(add(0x123), add(0x123 | CAN_EFF_FLAG));
    EXPECT_NE(add(0x123), add(0x923));
    EXPECT_THAT(network.sockets, SizeIs(3));
}

TEST_F(OpenCan, TheOldestOfManyChannelsIsFoundAgain) {
    norv_linux_can_raw_t* oldest = add(0);
    for (uint32_t identifier = 1; identifier < 20; ++identifier) {
        EXPECT_NE(add(identifier), oldest);
    }
    EXPECT_EQ(add(0), oldest);
    EXPECT_THAT(network.sockets, SizeIs(20));
}

TEST_F(OpenCan, TheChannelPointerMayBeNull) {
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, nullptr), 0U);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, nullptr), 0U);
    EXPECT_NE(add(0x123), nullptr);
    EXPECT_THAT(network.sockets, SizeIs(1));
}

TEST_F(OpenCan, WithoutMemoryTheChannelVariableIsUnchanged) {
    auto* const before = reinterpret_cast<norv_linux_can_raw_t*>(&network);
    channel = before;
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(channel, before);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Can, AddingWithoutAContextIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_can_raw_add(nullptr, 0, 0x123, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 0, 0x1, 0x2, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- add: failures

// The steps of an add, each with the calls before it.
struct step {
    const char* call;
    int nth;
    std::vector<std::string> before;
};

const std::vector<step> steps_after_the_socket = {
    {"fcntl", 1, {"socket"}},
    {"fcntl", 2, {"socket", "fcntl"}},
    {"ioctl", 1, {"socket", "fcntl", "fcntl"}},
    {"setsockopt", 1, {"socket", "fcntl", "fcntl", "ioctl"}},
    {"setsockopt", 2, {"socket", "fcntl", "fcntl", "ioctl", "setsockopt"}},
};

// quirk 67
TEST_F(OpenCan, AFailedStepEndsTheAddAndReturnsTheChannel) {
    for (const step& failing : steps_after_the_socket) {
        kernel.forget_calls();
        kernel.fail({.call = failing.call, .nth = failing.nth, .error = ENOBUFS});
        channel = nullptr;
        EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), errno_status(ENOBUFS)) << failing.call;
        std::vector<std::string> expected = failing.before;
        expected.emplace_back(failing.call);
        EXPECT_EQ(names_of_calls(), expected);
        ASSERT_NE(channel, nullptr);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
        EXPECT_EQ(norv_linux_can_remove(channel), 0U);
        EXPECT_EQ(kernel.open_descriptors(), 0U);
    }
}

TEST_F(OpenCan, AFailedStepWhoseErrnoMapsToZeroLetsTheAddContinue) {
    kernel.map_errno(ENOBUFS, 0);
    for (const step& failing : steps_after_the_socket) {
        kernel.forget_calls();
        kernel.fail({.call = failing.call, .nth = failing.nth, .error = ENOBUFS});
        norv_linux_can_raw_t* added = add(0x123);
        EXPECT_TRUE(kernel.struck());
        EXPECT_THAT(names_of_calls(),
                    ElementsAre("socket", "fcntl", "fcntl", "ioctl", "setsockopt", "setsockopt", "bind"));
        EXPECT_EQ(add(0x123), added) << "is in the list";
        EXPECT_EQ(norv_linux_can_remove(added), 0U);
    }
}

TEST_F(OpenCan, UnreadableFlagsCountAsNoneIfTheErrnoMapsToZero) {
    kernel.map_errno(EIO, 0);
    kernel.fail("fcntl", EIO);
    add(0x123);
    EXPECT_EQ(kernel.calls("fcntl").at(1).as<descriptor_control>().argument, O_NONBLOCK);
}

TEST_F(OpenCan, AFailedSocketEndsTheAddOfABlockingChannel) {
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(EMFILE));
    EXPECT_THAT(names_of_calls(), ElementsAre("socket"));
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(norv_linux_can_get_fd(channel), -1);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// quirk 68
TEST_F(OpenCan, ATransferOnAChannelWithoutASocketWaits) {
    can_frame frame = {};
    uint32_t length = sizeof frame;
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(EMFILE));
    EXPECT_EQ(norv_linux_can_read(channel, &frame, &length, 1), NORV_STATUS_TIMEOUT);
    length = sizeof frame;
    EXPECT_EQ(norv_linux_can_write(channel, &frame, &length, 1), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

// quirk 69
TEST_F(OpenCan, TheFcntlPairReportsAFailedSocketOfANonBlockingChannel) {
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), errno_status(EBADF));
    EXPECT_THAT(names_of_calls(), ElementsAre("socket", "fcntl", "fcntl"));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST_F(OpenCan, AFailedSocketWhoseErrnoMapsToZeroLetsTheAddContinue) {
    kernel.map_errno(EMFILE, 0);
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(EBADF));
    EXPECT_THAT(names_of_calls(), ElementsAre("socket", "ioctl"));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST_F(OpenCan, AFailedSocketWhoseFcntlErrnoMapsToZeroLetsTheAddContinue) {
    kernel.map_errno(EBADF, 0);
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), errno_status(EPERM));
    EXPECT_THAT(names_of_calls(),
                ElementsAre("socket", "fcntl", "fcntl", "ioctl", "setsockopt", "setsockopt", "bind"));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

// quirk 66
TEST_F(OpenCan, EveryFailureOfBindIsReportedAsEperm) {
    for (const int error : {ENODEV, ENETDOWN, EADDRNOTAVAIL, EINVAL, EPERM}) {
        kernel.fail("bind", error);
        EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), errno_status(EPERM));
        EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    }
}

TEST_F(OpenCan, AFailedBindCountsAsSuccessIfEpermMapsToZero) {
    kernel.map_errno(EPERM, 0);
    kernel.fail("bind", ENODEV);
    channel = add(0x123);
    EXPECT_EQ(add(0x123), channel);
    EXPECT_THAT(network.sockets, SizeIs(1));
}

// quirk 66
TEST_F(OpenCan, TheErrnoOfAFailedBindIsIgnored) {
    kernel.map_errno(ENODEV, 0);
    kernel.fail("bind", ENODEV);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 1, 0x123, &channel), errno_status(EPERM));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST_F(Can, AnUnknownInterfaceGivesTheStatusOfEnodevAndAChannelToRemove) {
    norv_linux_can_raw_t* channel = nullptr;
    EXPECT_EQ(norv_linux_can_open("can7", &can), 0U);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(ENODEV));
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    norv_linux_can_close(&can);
}

// quirk 67
TEST_F(OpenCan, AChannelOfAFailedAddIsNotFoundAgain) {
    kernel.fail("ioctl", ENODEV);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(ENODEV));
    EXPECT_NE(add(0x123), channel);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(OpenCan, AChannelOfAFailedAddCanBeRemovedAfterTheClose) {
    kernel.fail("bind", ENODEV);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(EPERM));
    norv_linux_can_close(&can);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    kernel.fail("norv_mutex_lock", EINVAL);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_FALSE(kernel.struck()) << "the context is gone: its lock must not be touched";
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(OpenCan, AFailedAddWithoutAVariableForItsChannelReleasesIt) {
    kernel.fail("bind", ENODEV);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, nullptr), errno_status(EPERM));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 1U) << "the context alone";
}

// ---- remove

TEST_F(OpenCan, RemovingClosesTheSocketAndForgetsTheIdentifier) {
    channel = add(0x123);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 1U) << "the context alone";
    add(0x123);
    EXPECT_THAT(network.sockets, SizeIs(2));
}

TEST_F(OpenCan, RemovingOneOfThreeLeavesTheOthersInTheList) {
    for (const uint32_t removed : {0x100U, 0x200U, 0x300U}) {
        for (const uint32_t identifier : {0x100U, 0x200U, 0x300U}) {
            add(identifier);
        }
        const size_t sockets = network.sockets.size();
        EXPECT_EQ(norv_linux_can_remove(add(removed)), 0U);
        EXPECT_EQ(kernel.open_descriptors(), 2U);
        for (const uint32_t identifier : {0x100U, 0x200U, 0x300U}) {
            add(identifier);
        }
        EXPECT_THAT(network.sockets, SizeIs(sockets + 1)) << "only the removed one was added anew";
    }
}

TEST_F(OpenCan, RemovingWithoutTheLockLeavesTheChannelInPlace) {
    channel = add(0x123);
    kernel.fail("norv_mutex_lock", EINVAL);
    EXPECT_EQ(norv_linux_can_remove(channel), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(add(0x123), channel);
}

TEST_F(OpenCan, RemovingUnlinksAndReleasesUnderTheLock) {
    channel = add(0x123);
    std::vector<norv_linux_can_raw_t*> found;
    kernel.on_lock([&](bool taken) {
        // Adding takes no lock. While the channel is in the list, an add returns it.
        found.push_back(taken ? add(0x123) : nullptr);
        EXPECT_EQ(kernel.open_descriptors(), taken ? 1U : 0U);
        EXPECT_EQ(kernel.allocations(), taken ? 2U : 1U) << "the context, and the channel";
    });
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    kernel.on_lock([](bool) {});
    EXPECT_THAT(found, ElementsAre(channel, nullptr));
}

TEST_F(OpenCan, RemovingReturnsTheStatusOfTheUnlock) {
    channel = add(0x123);
    kernel.fail("norv_mutex_unlock", EINVAL);
    EXPECT_EQ(norv_linux_can_remove(channel), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 1U) << "the context alone";
}

TEST_F(OpenCan, AFailedCloseOfTheSocketIsNotReported) {
    channel = add(0x123);
    kernel.fail("close", EIO);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
    EXPECT_TRUE(kernel.struck());
}

// quirk 71
TEST_F(OpenCan, AddingTakesNoLock) {
    kernel.fail("norv_mutex_lock", EINVAL);
    add(0x123);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(OpenCan, TwoThreadsMayRemoveDifferentChannelsAtTheSameTime) {
    std::vector<norv_linux_can_raw_t*> channels;
    for (uint32_t identifier = 0; identifier < 200; ++identifier) {
        channels.push_back(add(identifier));
    }
    // Neighbours in the list are removed by different threads.
    const auto remove_every_second = [&](size_t first) {
        for (size_t number = first; number < channels.size(); number += 2) {
            EXPECT_EQ(norv_linux_can_remove(channels[number]), 0U);
        }
    };
    std::thread other(remove_every_second, 1);
    remove_every_second(0);
    other.join();
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 1U) << "the context alone";
}

TEST_F(Can, WithoutAChannelEveryCallIsAnInvalidArgument) {
    can_frame frame = {};
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_remove(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_can_get_fd(nullptr), -1);
    for (const int32_t timeout : {0, -1, 10}) {
        EXPECT_EQ(norv_linux_can_write(nullptr, &frame, &length, timeout), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_can_read(nullptr, &frame, &length, timeout), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_EQ(length, sizeof frame);
}

// ---- write

// A channel for 0x123 on can0, the frame that it writes, and a stopped clock: what a wait is given
// does not depend on the machine.
class CanTransfer : public OpenCan {
  protected:
    CanTransfer() {
        kernel.set_clock(1, 0);
        channel = add(0x123);
        kernel.forget_calls();
    }

    uint32_t write(int32_t timeout) { return norv_linux_can_write(channel, &frame, &length, timeout); }
    uint32_t read(int32_t timeout) { return norv_linux_can_read(channel, &frame, &length, timeout); }

    can_frame frame = frame_of(0x123, "frame");
    uint32_t length = sizeof frame;
};

TEST_F(CanTransfer, AWrittenFrameReachesTheInterfaceUnchanged) {
    for (const int32_t timeout : {0, -1, 1000}) {
        network.sent.clear();
        length = sizeof frame;
        EXPECT_EQ(write(timeout), 0U);
        EXPECT_EQ(length, sizeof frame);
        ASSERT_THAT(network.sent[5], SizeIs(1));
        EXPECT_EQ(memcmp(&network.sent[5][0], &frame, sizeof frame), 0);
    }
}

TEST_F(CanTransfer, AFrameOfAnyIdentifierCanBeWritten) {
    frame = frame_of(0x1ABCDEF0U | CAN_EFF_FLAG, "other");
    EXPECT_EQ(write(0), 0U);
    EXPECT_EQ(network.sent[5].at(0).can_id, 0x1ABCDEF0U | CAN_EFF_FLAG);
}

TEST_F(CanTransfer, WritingWithTimeout0DoesNotPoll) {
    EXPECT_EQ(write(0), 0U);
    EXPECT_THAT(names_of_calls(), ElementsAre("write"));
}

TEST_F(CanTransfer, WritingWithAnyNegativeTimeoutPollsWithoutLimit) {
    for (const int32_t timeout : {-1, -7, -1000, INT32_MIN}) {
        socket(0).poll_waits.clear();
        EXPECT_EQ(write(timeout), 0U);
        EXPECT_THAT(socket(0).poll_waits, ElementsAre(-1)) << timeout;
    }
}

TEST_F(CanTransfer, WritingWithAPositiveTimeoutPollsForThatLong) {
    for (const int32_t timeout : {1, 1234, INT32_MAX}) {
        socket(0).poll_waits.clear();
        EXPECT_EQ(write(timeout), 0U);
        EXPECT_THAT(socket(0).poll_waits, ElementsAre(timeout));
    }
}

TEST_F(CanTransfer, AFailedWriteReturnsTheErrnoStatus) {
    for (const int error : {ENOBUFS, ENETDOWN, EAGAIN}) {
        kernel.fail("write", error);
        EXPECT_EQ(write(0), errno_status(error));
        EXPECT_EQ(length, sizeof frame);
    }
    kernel.fail("write", ENOBUFS);
    EXPECT_EQ(write(-1), errno_status(ENOBUFS));
    EXPECT_EQ(length, sizeof frame);
    kernel.fail("write", ENETDOWN);
    EXPECT_EQ(write(100), errno_status(ENETDOWN));
    EXPECT_EQ(length, 0U);
}

TEST_F(CanTransfer, AWriteOfOtherThanOneFrameGivesTheKernelsStatus) {
    const can_frame frames[] = {frame_of(0x1), frame_of(0x2)};
    for (const int32_t timeout : {0, -1}) {
        length = sizeof frames;
        EXPECT_EQ(norv_linux_can_write(channel, frames, &length, timeout), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(length, sizeof frames);
    }
    EXPECT_THAT(network.sent[5], IsEmpty());
}

// ---- read

TEST_F(CanTransfer, AReceivedFrameIsReadUnchanged) {
    for (const int32_t timeout : {0, -1, 1000}) {
        network.arrive("can0", frame_of(0x123, "arrived"));
        length = sizeof frame;
        EXPECT_EQ(read(timeout), 0U);
        EXPECT_EQ(length, sizeof frame);
        EXPECT_EQ(frame.can_id, 0x123U);
        EXPECT_EQ(text_of(frame), "arrived");
    }
}

TEST_F(CanTransfer, ReadingWithTimeout0DoesNotWaitForAFrame) {
    EXPECT_EQ(read(0), NORV_STATUS_AGAIN);
    EXPECT_EQ(length, sizeof frame);
    EXPECT_THAT(names_of_calls(), ElementsAre("read"));
}

TEST_F(CanTransfer, ReadingWithAnyNegativeTimeoutWaitsWithoutLimit) {
    for (const int32_t timeout : {-1, -7, -1000, INT32_MIN}) {
        socket(0).poll_waits.clear();
        socket(0).arriving = {frame_of(0x123, "late")};
        EXPECT_EQ(read(timeout), 0U);
        EXPECT_EQ(text_of(frame), "late");
        EXPECT_THAT(socket(0).poll_waits, ElementsAre(-1)) << timeout;
    }
}

TEST_F(CanTransfer, ReadingWithAPositiveTimeoutEndsWhenItExpires) {
    for (const int32_t timeout : {1, 50, INT32_MAX}) {
        socket(0).poll_waits.clear();
        length = sizeof frame;
        EXPECT_EQ(read(timeout), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 0U);
        EXPECT_THAT(socket(0).poll_waits, ElementsAre(timeout));
    }
}

TEST_F(CanTransfer, ABufferOfSeveralFramesIsFilledByOneReadEach) {
    for (const int32_t timeout : {-1, 1000}) {
        socket(0).arriving = {frame_of(0x123, "first"), frame_of(0x123, "second"), frame_of(0x123, "third")};
        can_frame frames[3] = {};
        length = sizeof frames;
        kernel.forget_calls();
        EXPECT_EQ(norv_linux_can_read(channel, frames, &length, timeout), 0U);
        EXPECT_EQ(length, sizeof frames);
        EXPECT_EQ(text_of(frames[0]), "first");
        EXPECT_EQ(text_of(frames[1]), "second");
        EXPECT_EQ(text_of(frames[2]), "third");
        EXPECT_THAT(kernel.calls("read"), SizeIs(3));
    }
}

TEST_F(CanTransfer, WithTimeout0ABufferOfSeveralFramesGetsOne) {
    network.arrive("can0", frame_of(0x123, "first"));
    network.arrive("can0", frame_of(0x123, "second"));
    can_frame frames[2] = {};
    length = sizeof frames;
    EXPECT_EQ(norv_linux_can_read(channel, frames, &length, 0), 0U);
    EXPECT_EQ(length, sizeof frames[0]);
    EXPECT_EQ(text_of(frames[0]), "first");
}

TEST_F(CanTransfer, AfterATimeoutTheReceivedFramesAreInTheBuffer) {
    socket(0).arriving = {frame_of(0x123, "first")};
    can_frame frames[2] = {};
    length = sizeof frames;
    EXPECT_EQ(norv_linux_can_read(channel, frames, &length, 50), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, sizeof frames[0]);
    EXPECT_EQ(text_of(frames[0]), "first");
}

TEST_F(CanTransfer, AFailedReadReturnsTheErrnoStatus) {
    kernel.fail("read", ENETDOWN);
    EXPECT_EQ(read(0), errno_status(ENETDOWN));
    EXPECT_EQ(length, sizeof frame);
}

TEST_F(CanTransfer, ANullLengthIsAnInvalidArgument) {
    for (const int32_t timeout : {0, -1, 10}) {
        EXPECT_EQ(norv_linux_can_write(channel, &frame, nullptr, timeout), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_can_read(channel, &frame, nullptr, timeout), NORV_STATUS_INVALID_ARG);
    }
}

TEST_F(CanTransfer, OneThreadMayWriteWhileAnotherReads) {
    constexpr int count = 200;
    std::thread writer([&] {
        for (int number = 0; number < count; ++number) {
            const can_frame sent = frame_of(0x123);
            uint32_t size = sizeof sent;
            EXPECT_EQ(norv_linux_can_write(channel, &sent, &size, 0), 0U);
        }
    });
    for (int number = 0; number < count; ++number) {
        EXPECT_EQ(read(0), NORV_STATUS_AGAIN);
    }
    writer.join();
    EXPECT_THAT(network.sent[5], SizeIs(count));
}

// ---- which frames a channel receives

// All frames that wait on a channel.
std::vector<uint32_t> identifiers_read(norv_linux_can_raw_t* channel) {
    std::vector<uint32_t> identifiers;
    can_frame frame = {};
    uint32_t length = sizeof frame;
    while (norv_linux_can_read(channel, &frame, &length, 0) == NORV_STATUS_OK) {
        identifiers.push_back(frame.can_id);
    }
    return identifiers;
}

TEST_F(OpenCan, AChannelWithTwoIdentifiersReceivesBothAndNoOther) {
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(&can, 1, 0x100, 0x200, &channel), 0U);
    for (const uint32_t identifier : {0x0U, 0x100U, 0x101U, 0x200U, 0x300U, 0x500U, 0x7FFU}) {
        network.arrive("can0", frame_of(identifier));
    }
    EXPECT_THAT(identifiers_read(channel), ElementsAre(0x100U, 0x200U));
}

TEST_F(OpenCan, AChannelWithOneIdentifierReceivesNoOther) {
    channel = add(0x100);
    for (uint32_t identifier = 0; identifier <= CAN_SFF_MASK; ++identifier) {
        network.arrive("can0", frame_of(identifier));
    }
    EXPECT_THAT(identifiers_read(channel), ElementsAre(0x100U));
}

// quirk 65
TEST_F(OpenCan, AnExtendedFrameWithTheSameLow11BitsPassesTheFilter) {
    channel = add(0x123);
    network.arrive("can0", frame_of(0x1FFFF923U | CAN_EFF_FLAG));
    network.arrive("can0", frame_of(0x1FFFF924U | CAN_EFF_FLAG));
    EXPECT_THAT(identifiers_read(channel), ElementsAre(0x1FFFF923U | CAN_EFF_FLAG));
}

// quirk 65
TEST_F(OpenCan, ARemoteRequestPassesTheFilter) {
    channel = add(0x123);
    network.arrive("can0", frame_of(0x123 | CAN_RTR_FLAG));
    EXPECT_THAT(identifiers_read(channel), ElementsAre(0x123U | CAN_RTR_FLAG));
}

TEST_F(OpenCan, AChannelReceivesNothingFromAnotherInterface) {
    channel = add(0x123);
    network.arrive("can1", frame_of(0x123));
    EXPECT_THAT(identifiers_read(channel), IsEmpty());
}

TEST_F(OpenCan, AWrittenFrameReachesNoOtherSocketOfThisHost) {
    const auto other = network.other_socket("can0");
    norv_linux_can_t* second_context = nullptr;
    norv_linux_can_raw_t* second = nullptr;
    EXPECT_EQ(norv_linux_can_open("can0", &second_context), 0U);
    EXPECT_EQ(norv_linux_can_raw_add(&second_context, 1, 0x123, &second), 0U);
    channel = add(0x123);
    const can_frame frame = frame_of(0x123);
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_write(channel, &frame, &length, 0), 0U);
    EXPECT_THAT(network.sent[5], SizeIs(1));
    EXPECT_THAT(other->waiting, IsEmpty());
    EXPECT_THAT(identifiers_read(second), IsEmpty());
    EXPECT_THAT(identifiers_read(channel), IsEmpty());
    norv_linux_can_close(&second_context);
}

// ---- failure sweep

// The status of each failed call.
uint32_t expected_status(const strike& struck) {
    if (struck.name == "bind") {
        return errno_status(EPERM);
    }
    if (struck.name == "socket") {
        return errno_status(EBADF);  // of the fcntl pair
    }
    if (struck.name == "norv_mutex_lock") {
        return NORV_STATUS_OK;  // of the close, which reports nothing
    }
    return struck.name == "norv_mutex_init" ? NORV_STATUS_NO_MEMORY : norv::test::status_of_fault(struck);
}

// Adds a channel and writes a frame; removes the channel of a failed add.
uint32_t add_and_write(norv_linux_can_t** can, uint32_t identifier) {
    norv_linux_can_raw_t* channel = nullptr;
    const uint32_t status = norv_linux_can_raw_add_with_alt_id(can, 1, identifier, identifier + 1, &channel);
    if (status != NORV_STATUS_OK) {
        EXPECT_EQ(norv_linux_can_remove(channel), channel == nullptr ? NORV_STATUS_INVALID_ARG : 0U);
        return status;
    }
    const can_frame frame = frame_of(identifier);
    uint32_t length = sizeof frame;
    return norv_linux_can_write(channel, &frame, &length, 0);
}

uint32_t write_on_two_channels() {
    norv_linux_can_t* can = nullptr;
    uint32_t status = norv_linux_can_open("can0", &can);
    if (status == NORV_STATUS_OK) {
        status = add_and_write(&can, 0x100);
    }
    if (status == NORV_STATUS_OK) {
        status = add_and_write(&can, 0x200);
    }
    norv_linux_can_close(&can);
    return status;
}

TEST(CanSweep, WritingOnTwoChannels) {
    can_network network;
    norv::test::sweep_options options;
    options.expect = expected_status;
    options.short_counts = false;  // a frame is written completely or not at all
    norv::test::failure_sweep([&](kernel_double& kernel) { network.add_to(kernel); }, write_on_two_channels,
                              options);
}

}  // namespace
