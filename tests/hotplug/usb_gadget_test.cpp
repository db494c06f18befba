// SPDX-License-Identifier: MIT
// The USB device controller.
#include "norv_usb_gadget.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer_at;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::no_standard_input;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* state_file = "/sys/class/udc/20980000.usb/state";
constexpr const char* connect_file = "/sys/class/udc/20980000.usb/soft_connect";
constexpr const char* win_file = "/sys/class/udc/20980000.usb/is_host_win";

void add_controller(kernel_double& kernel) {
    kernel.add_file(state_file, "not attached\n");
    kernel.add_file(connect_file);
    kernel.add_file(win_file, "0\n");
}

class UsbGadget : public testing::Test {
  protected:
    UsbGadget() { add_controller(kernel); }

    kernel_double kernel;
    int32_t descriptor = 77;
};

class OpenUsbGadget : public UsbGadget {
  protected:
    OpenUsbGadget() { EXPECT_EQ(norv_usb_gadget_open("20980000.usb", &descriptor), 0U); }
    ~OpenUsbGadget() override { norv_usb_gadget_close(descriptor); }

    uint32_t state_of(std::string_view text) {
        kernel.add_file(state_file, text);
        uint32_t state = 77;
        EXPECT_EQ(norv_usb_gadget_get_state(descriptor, &state), 0U);
        return state;
    }
};

// ---- open and close

TEST_F(UsbGadget, OpeningOpensTheStateForReadingWithCloseOnExec) {
    EXPECT_EQ(norv_usb_gadget_open("20980000.usb", &descriptor), 0U);
    EXPECT_GT(descriptor, 0);
    EXPECT_THAT(kernel.open_flags(state_file), ElementsAre(O_RDONLY | O_CLOEXEC));
    norv_usb_gadget_close(descriptor);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(UsbGadget, AControllerThatDoesNotExistIsNotFound) {
    EXPECT_EQ(norv_usb_gadget_open("none", &descriptor), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(descriptor, -1);
}

// quirk 94
TEST_F(UsbGadget, ANameWithDotsLeadsToAnotherFile) {
    kernel.add_file("/sys/class/leds/red/soft_connect");
    kernel.add_file("/sys/class/leds/red/state");
    EXPECT_EQ(norv_usb_gadget_connect("../leds/red", 1), 0U);
    EXPECT_EQ(kernel.content("/sys/class/leds/red/soft_connect"), "connect");
    EXPECT_EQ(norv_usb_gadget_open("../leds/red", &descriptor), 0U);
    norv_usb_gadget_close(descriptor);
}

// quirk 6
TEST_F(UsbGadget, ALongNameTruncatesThePath) {
    EXPECT_EQ(norv_usb_gadget_open(std::string(300, 'n').c_str(), &descriptor), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").at(0).path, "/sys/class/udc/" + std::string(240, 'n'));
}

// quirk 3
TEST_F(UsbGadget, ClosingADescriptorThatIsNotAbove0ClosesNothing) {
    norv_usb_gadget_close(0);
    norv_usb_gadget_close(-1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// ---- state

TEST_F(OpenUsbGadget, EachWordHasItsState) {
    EXPECT_EQ(state_of("not attached\n"), 0U);
    EXPECT_EQ(state_of("default\n"), 1U);
    EXPECT_EQ(state_of("configured\n"), 2U);
    EXPECT_EQ(state_of("addressed\n"), 4U);
}

TEST_F(OpenUsbGadget, AnythingElseIsThree) {
    for (const char* text : {"powered\n", "attached\n", "suspended\n", "unauthenticated\n", "reconnecting\n",
                             "\n", "configure\n", "Configured\n", " configured\n", "not"}) {
        EXPECT_EQ(state_of(text), 3U) << text;
    }
}

// quirk 92
TEST_F(OpenUsbGadget, OnlyTheBeginningOfTheTextIsCompared) {
    EXPECT_EQ(state_of("not attached at all"), 0U);
    EXPECT_EQ(state_of("default0"), 1U);
    EXPECT_EQ(state_of("configured"), 2U);
    EXPECT_EQ(state_of("addressed" + std::string(200, 'x')), 4U);
}

TEST_F(OpenUsbGadget, TheStateIsReadFromTheStartEveryTime) {
    EXPECT_EQ(state_of("configured\n"), 2U);
    EXPECT_EQ(state_of("not attached\n"), 0U);
    EXPECT_EQ(kernel.calls("pread").at(0).as<byte_transfer_at>().offset, 0);
    EXPECT_EQ(kernel.calls("pread").at(1).as<byte_transfer_at>().offset, 0);
    EXPECT_THAT(kernel.open_flags(state_file), testing::SizeIs(1));
}

TEST_F(OpenUsbGadget, AtMost128BytesOfTheStateAreRead) {
    state_of(std::string(300, 'x'));
    EXPECT_EQ(kernel.calls("pread").at(0).result, 128);
}

// quirk 91
TEST_F(OpenUsbGadget, AFailedReadIsStateThreeAndASuccess) {
    kernel.fail("pread", EIO);
    EXPECT_EQ(state_of("configured\n"), 3U);
}

// An attribute that cannot be read; keeps what the buffer held before.
class unreadable : public norv::test::device {
  public:
    std::string before;

    long read(void* buffer, size_t size, off_t) override {
        before.assign(static_cast<const char*>(buffer), size);
        return -EIO;
    }
};

TEST_F(UsbGadget, AFailedReadReadsIntoZeros) {
    const auto state_attribute = std::make_shared<unreadable>();
    const auto win_attribute = std::make_shared<unreadable>();
    kernel.add_device(state_file, state_attribute);
    kernel.add_device(win_file, win_attribute);
    uint32_t state = 77;
    uint8_t byte = 77;
    EXPECT_EQ(norv_usb_gadget_open("20980000.usb", &descriptor), 0U);
    EXPECT_EQ(norv_usb_gadget_get_state(descriptor, &state), 0U);
    EXPECT_EQ(norv_usb_gadget_is_host_win("20980000.usb", &byte), 0U);
    EXPECT_EQ(state, 3U);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(state_attribute->before, std::string(128, '\0'));
    EXPECT_EQ(win_attribute->before, std::string(16, '\0'));
    norv_usb_gadget_close(descriptor);
}

TEST_F(UsbGadget, AClosedDescriptorIsStateThreeAndASuccess) {
    uint32_t state = 77;
    EXPECT_EQ(norv_usb_gadget_get_state(-1, &state), 0U);
    EXPECT_EQ(state, 3U);
}

// ---- connect

TEST_F(UsbGadget, ConnectingAndDisconnectingWriteWordsWithTheirNul) {
    EXPECT_EQ(norv_usb_gadget_connect("20980000.usb", 1), 0U);
    EXPECT_EQ(norv_usb_gadget_connect("20980000.usb", 0), 0U);
    EXPECT_THAT(kernel.writes(connect_file), ElementsAre("connect\0"s, "disconnect\0"s));
    EXPECT_THAT(kernel.open_flags(connect_file), testing::Each(O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 93
TEST_F(UsbGadget, OnlyTheLowByteOfTheFlagCounts) {
    EXPECT_EQ(norv_usb_gadget_connect("20980000.usb", 0x100), 0U);
    EXPECT_EQ(norv_usb_gadget_connect("20980000.usb", 0xFFFFFF80), 0U);
    EXPECT_THAT(kernel.writes(connect_file), ElementsAre("disconnect\0"s, "connect\0"s));
}

TEST_F(UsbGadget, ARefusedConnectGivesTheErrnoStatus) {
    kernel.on_write(connect_file, [](std::string_view) { return EOPNOTSUPP; });
    EXPECT_EQ(norv_usb_gadget_connect("20980000.usb", 1), errno_status(EOPNOTSUPP));
    EXPECT_EQ(norv_usb_gadget_connect("none", 1), NORV_STATUS_NOT_FOUND);
}

// ---- is_host_win

class HostWin : public UsbGadget {
  protected:
    int host_win(std::string_view text) {
        kernel.add_file(win_file, text);
        uint8_t byte = 77;
        EXPECT_EQ(norv_usb_gadget_is_host_win("20980000.usb", &byte), 0U);
        return byte;
    }
};

TEST_F(HostWin, ATextThatBeginsWithOneIsOne) {
    EXPECT_EQ(host_win("1\n"), 1);
    EXPECT_EQ(host_win("123456789012345678901234567890"), 1);
    EXPECT_THAT(kernel.open_flags(win_file), testing::Each(O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(kernel.calls("pread").at(0).as<byte_transfer_at>().offset, 0);
    EXPECT_EQ(kernel.calls("pread").at(1).result, 16);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(HostWin, AnyOtherTextIsZero) {
    for (const char* text : {"0\n", "", " 1\n", "yes\n", "01\n"}) {
        EXPECT_EQ(host_win(text), 0) << text;
    }
}

// quirk 91
TEST_F(HostWin, AFailedReadIsZeroAndASuccess) {
    kernel.fail("pread", EIO);
    EXPECT_EQ(host_win("1\n"), 0);
}

TEST_F(HostWin, AFailedOpenWhoseErrnoMapsToZeroIsZeroAndASuccess) {
    kernel.map_errno(EACCES, 0);
    kernel.fail("open", EACCES);
    EXPECT_EQ(host_win("1\n"), 0);
}

TEST_F(HostWin, AMissingAttributeIsNotFoundAndTheByteUnchanged) {
    kernel.remove(win_file);
    uint8_t byte = 77;
    EXPECT_EQ(norv_usb_gadget_is_host_win("20980000.usb", &byte), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(byte, 77);
}

// quirk 3
TEST(HostWinWithoutStandardInput, AnAttributeWithDescriptor0IsReadAndNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_file(win_file, "1\n");
    uint8_t byte = 77;
    EXPECT_EQ(norv_usb_gadget_is_host_win("20980000.usb", &byte), 0U);
    EXPECT_EQ(byte, 1);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

// ---- null

TEST_F(UsbGadget, ANullNameOrOutputIsAnInvalidArgument) {
    uint8_t byte = 77;
    EXPECT_EQ(norv_usb_gadget_open(nullptr, &descriptor), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(norv_usb_gadget_open("20980000.usb", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_usb_gadget_get_state(5, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_usb_gadget_connect(nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_usb_gadget_is_host_win(nullptr, &byte), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_usb_gadget_is_host_win("20980000.usb", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

// All calls for a controller, up to the first failure.
uint32_t use_controller() {
    int32_t descriptor = -1;
    uint32_t state = 0;
    uint8_t byte = 0;
    uint32_t status = norv_usb_gadget_open("20980000.usb", &descriptor);
    if (status == 0) {
        status = norv_usb_gadget_connect("20980000.usb", 1);
    }
    if (status == 0) {
        status = norv_usb_gadget_get_state(descriptor, &state);
    }
    if (status == 0) {
        status = norv_usb_gadget_is_host_win("20980000.usb", &byte);
    }
    norv_usb_gadget_close(descriptor);
    return status;
}

TEST(UsbGadgetSweep, EveryFailureButThatOfAReadIsReportedAndNothingLeaks) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        return struck.name == "pread" ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(add_controller, use_controller, options);
}

}  // namespace
