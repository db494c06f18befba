// SPDX-License-Identifier: MIT
// Serial ports.
#include "norv_uart.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bus/serial_port.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using norv::test::control;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::no_standard_input;
using norv::test::serial_port;
using norv::test::strike;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr norv_uart_settings_t plain = {
    .baud = 115200, .data_bits = 8, .stop_bits = 0, .parity = 0, .flow_control = 0};

// The differences between two terminal settings, field by field; empty if there are none.
std::string differences(const termios& left, const termios& right) {
    std::string names;
    names += left.c_iflag == right.c_iflag ? "" : "c_iflag ";
    names += left.c_oflag == right.c_oflag ? "" : "c_oflag ";
    names += left.c_cflag == right.c_cflag ? "" : "c_cflag ";
    names += left.c_lflag == right.c_lflag ? "" : "c_lflag ";
    names += left.c_line == right.c_line ? "" : "c_line ";
    names += std::ranges::equal(left.c_cc, right.c_cc) ? "" : "c_cc ";
    names += left.c_ispeed == right.c_ispeed ? "" : "c_ispeed ";
    names += left.c_ospeed == right.c_ospeed ? "" : "c_ospeed ";
    return names;
}

class Uart : public testing::Test {
  protected:
    Uart() { kernel.add_device("/dev/ttyS1", port); }

    std::shared_ptr<serial_port> port = std::make_shared<serial_port>();
    const termios found = port->settings;  // before anything is opened
    kernel_double kernel;
    norv_uart_t* uart = nullptr;
};

// The port, opened with 115200 bit/s, 8 data bits, 1 stop bit, no parity, no flow control, and a stopped
// clock: what a wait is given does not depend on the machine.
class OpenUart : public Uart {
  protected:
    OpenUart() {
        kernel.set_clock(1, 0);
        EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
        kernel.forget_calls();
        port->requests.clear();
    }
    ~OpenUart() override { norv_uart_close(&uart); }
};

// ---- open

TEST_F(Uart, OpeningIsNonBlockingAndTakesNoControllingTerminal) {
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    EXPECT_GT(norv_uart_get_fd(&uart), 0);
    EXPECT_THAT(kernel.open_flags("/dev/ttyS1"), ElementsAre(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    norv_uart_close(&uart);
}

TEST_F(Uart, OpeningConfiguresThePort) {
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    EXPECT_EQ(cfgetospeed(&port->settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(port->settings.c_cflag & static_cast<tcflag_t>(CSIZE), static_cast<tcflag_t>(CS8));
    norv_uart_close(&uart);
}

TEST_F(Uart, TheVariableHoldsTheHandleWhileThePortIsOpened) {
    bool stood_there = false;
    int32_t descriptor = 0;
    port->on_open = [&] {
        stood_there = uart != nullptr;
        descriptor = norv_uart_get_fd(&uart);
    };
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    EXPECT_TRUE(stood_there);
    EXPECT_EQ(descriptor, -1);
    norv_uart_close(&uart);
}

TEST_F(Uart, APathIsNotAFormat) {
    kernel.add_device("/dev/tty%d", port);
    EXPECT_EQ(norv_uart_open("/dev/tty%d", &plain, &uart), 0U);
    norv_uart_close(&uart);
}

TEST_F(Uart, APathLongerThan255CharactersIsTruncated) {
    EXPECT_EQ(norv_uart_open(("/dev/" + std::string(300, 'x')).c_str(), &plain, &uart),
              NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").at(0).path, "/dev/" + std::string(250, 'x'));
}

TEST_F(Uart, APortThatDoesNotExistLeavesTheVariableNull) {
    EXPECT_EQ(norv_uart_open("/dev/ttyS7", &plain, &uart), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uart, nullptr);
}

TEST_F(Uart, AFileThatIsNotATerminalCannotBeOpened) {
    kernel.add_file("/dev/null");
    EXPECT_EQ(norv_uart_open("/dev/null", &plain, &uart), errno_status(ENOTTY));
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Uart, AFailedTerminalCheckLeavesThePortUnchanged) {
    kernel.fail("isatty", EIO);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(port->requests, IsEmpty());
    EXPECT_EQ(uart, nullptr);
}

TEST_F(Uart, ATerminalCheckWhoseErrnoMapsToZeroLetsTheOpenContinue) {
    kernel.map_errno(ENOTTY, 0);
    kernel.fail("isatty", ENOTTY);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    EXPECT_EQ(cfgetospeed(&port->settings), static_cast<speed_t>(B115200));
    norv_uart_close(&uart);
}

TEST_F(Uart, WithoutMemoryNothingIsOpened) {
    uart = reinterpret_cast<norv_uart_t*>(&port);  // an arbitrary previous value
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(uart, nullptr);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(Uart, AnOpenWithUnsupportedSettingsRestoresTheOldSettings) {
    const norv_uart_settings_t unsupported = {
        .baud = 14400, .data_bits = 8, .stop_bits = 0, .parity = 0, .flow_control = 0};
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &unsupported, &uart), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_THAT(port->requests, ElementsAre("get" /* is it a terminal? */, "get", "set now"));
    EXPECT_EQ(differences(port->settings, found), "");
}

TEST_F(Uart, AnOpenThatCannotConfigureThePortRestoresTheOldSettings) {
    kernel.fail("tcsetattr", EIO);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(uart, nullptr);
    EXPECT_THAT(port->requests, ElementsAre("get", "get", "discard input", "set now"));
    EXPECT_EQ(differences(port->settings, found), "");
}

TEST_F(Uart, AnOpenThatCannotReadTheSettingsRestoresNone) {
    kernel.fail("tcgetattr", EIO);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(uart, nullptr);
    EXPECT_THAT(kernel.calls("tcsetattr"), IsEmpty());
}

TEST_F(Uart, ANullPathSettingsOrVariableIsAnInvalidArgument) {
    uart = reinterpret_cast<norv_uart_t*>(&port);
    EXPECT_EQ(norv_uart_open(nullptr, &plain, &uart), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uart, nullptr);
    uart = reinterpret_cast<norv_uart_t*>(&port);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", nullptr, &uart), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- close

TEST_F(Uart, ClosingRestoresTheSettingsBeforeItClosesThePort) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    kernel.forget_calls();
    norv_uart_close(&uart);
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(differences(port->settings, found), "");
    ASSERT_EQ(kernel.calls().size(), 2U);
    EXPECT_EQ(kernel.calls()[0].name, "tcsetattr");
    EXPECT_EQ(kernel.calls()[0].as<control>().request, static_cast<unsigned long>(TCSETS));  // TCSANOW
    EXPECT_EQ(kernel.calls()[1].name, "close");
}

// quirk 83
TEST_F(Uart, AfterTwoConfigurationsClosingRestoresThoseOfTheFirst) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    const termios set_first = port->settings;
    const norv_uart_settings_t second = {
        .baud = 9600, .data_bits = 7, .stop_bits = 1, .parity = 2, .flow_control = 1};
    EXPECT_EQ(norv_uart_config(&uart, &second), 0U);
    norv_uart_close(&uart);
    EXPECT_EQ(differences(port->settings, set_first), "");
}

// quirk 84
TEST_F(Uart, ARefusedConfigurationStillUpdatesWhatClosingRestores) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    const termios set_by_open = port->settings;
    const norv_uart_settings_t unsupported = {
        .baud = 9600, .data_bits = 9, .stop_bits = 0, .parity = 0, .flow_control = 0};
    EXPECT_EQ(norv_uart_config(&uart, &unsupported), NORV_STATUS_INVALID_ARG);
    norv_uart_close(&uart);
    EXPECT_EQ(differences(port->settings, set_by_open), "");
}

TEST_F(Uart, AFailedReadOfTheSettingsKeepsWhatClosingRestores) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    kernel.fail("tcgetattr", EIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), NORV_STATUS_DEVICE_ERROR);
    norv_uart_close(&uart);
    EXPECT_EQ(differences(port->settings, found), "");
}

TEST_F(Uart, SettingsThatWereNeverReadAreNotRestored) {
    kernel.map_errno(EIO, 0);
    kernel.fail("tcgetattr", EIO);
    EXPECT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    const termios set_by_open = port->settings;
    norv_uart_close(&uart);
    EXPECT_EQ(differences(port->settings, set_by_open), "");
}

TEST_F(Uart, SettingsThatCannotBeRestoredDoNotKeepThePortOpen) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    kernel.fail("tcsetattr", EIO);
    norv_uart_close(&uart);
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Uart, ClosingANullVariableDoesNothing) {
    norv_uart_close(&uart);
    norv_uart_close(nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Uart, ClosingTwiceClosesNothingTheSecondTime) {
    norv_uart_open("/dev/ttyS1", &plain, &uart);
    norv_uart_close(&uart);
    kernel.forget_calls();
    norv_uart_close(&uart);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 3
TEST(UartWithoutStandardInput, APortWithTheDescriptor0IsNeitherRestoredNorClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/ttyS1", std::make_shared<serial_port>());
    norv_uart_t* uart = nullptr;
    ASSERT_EQ(norv_uart_open("/dev/ttyS1", &plain, &uart), 0U);
    ASSERT_EQ(norv_uart_get_fd(&uart), 0);
    kernel.forget_calls();
    norv_uart_close(&uart);
    EXPECT_EQ(uart, nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(Uart, WithoutAnOpenPortThereIsNoDescriptor) {
    EXPECT_EQ(norv_uart_get_fd(&uart), -1);
    EXPECT_EQ(norv_uart_get_fd(nullptr), -1);
}

// ---- the settings: every supported value of each, and the port's settings that it selects

struct baud_row {
    uint32_t baud;
    speed_t code;
};

constexpr baud_row bauds[] = {
    {0, B0},
    {50, B50},
    {75, B75},
    {110, B110},
    {134, B134},
    {150, B150},
    {200, B200},
    {300, B300},
    {600, B600},
    {1200, B1200},
    {1800, B1800},
    {2400, B2400},
    {4800, B4800},
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
    {230400, B230400},
    {460800, B460800},
    {500000, B500000},
    {576000, B576000},
    {921600, B921600},
    {1000000, B1000000},
    {1152000, B1152000},
    {1500000, B1500000},
    {2000000, B2000000},
    {2500000, B2500000},
    {3000000, B3000000},
    {3500000, B3500000},
    {4000000, B4000000},
};
static_assert(std::size(bauds) == 31);

struct flag_row {
    uint32_t value;
    tcflag_t control;
    tcflag_t input = 0;
};

constexpr flag_row data_bits[] = {{5, CS5}, {6, CS6}, {7, CS7}, {8, CS8}, {264, CS8}, {0xFFFFFF05U, CS5}};
constexpr flag_row stop_bits[] = {{NORV_UART_STOP_BITS_1, 0}, {NORV_UART_STOP_BITS_2, CSTOPB}};
constexpr flag_row parities[] = {{NORV_UART_PARITY_NONE, 0},
                                 {NORV_UART_PARITY_ODD, PARENB | PARODD},
                                 {NORV_UART_PARITY_EVEN, PARENB},
                                 {NORV_UART_PARITY_MARK, CMSPAR | PARENB | PARODD},
                                 {NORV_UART_PARITY_SPACE, CMSPAR | PARENB}};
constexpr flag_row flow_controls[] = {{NORV_UART_FLOW_CONTROL_NONE, 0},
                                      {NORV_UART_FLOW_CONTROL_SOFTWARE, 0, IXON | IXOFF},
                                      {NORV_UART_FLOW_CONTROL_HARDWARE, CRTSCTS}};

// Calls visit(settings, the port's settings) for each combination of supported values.
template <typename visitor>
void for_each_supported(visitor visit) {
    for (const baud_row& speed : bauds) {
        for (const flag_row& data : data_bits) {
            for (const flag_row& stop : stop_bits) {
                for (const flag_row& parity : parities) {
                    for (const flag_row& flow : flow_controls) {
                        termios expected = {};
                        expected.c_iflag = flow.input;
                        expected.c_cflag =
                            CLOCAL | CREAD | data.control | stop.control | parity.control | flow.control;
                        cfsetospeed(&expected, speed.code);
                        expected.c_ispeed = speed.code;
                        visit(norv_uart_settings_t{speed.baud, data.value, stop.value, parity.value,
                                                   flow.value},
                              expected);
                    }
                }
            }
        }
    }
}

std::string words(const norv_uart_settings_t& settings) {
    return std::to_string(settings.baud) + " bit/s, data bits " + std::to_string(settings.data_bits) +
           ", stop bits " + std::to_string(settings.stop_bits) + ", parity " +
           std::to_string(settings.parity) + ", flow control " + std::to_string(settings.flow_control);
}

TEST_F(OpenUart, ThePortReceivesEveryFieldOfEverySupportedCombination) {
    for_each_supported([&](const norv_uart_settings_t& settings, const termios& expected) {
        port->settings = found;
        kernel.forget_calls();
        ASSERT_EQ(norv_uart_config(&uart, &settings), 0U) << words(settings);
        ASSERT_EQ(differences(port->settings, expected), "") << words(settings);
    });
}

// Each combination with one of its values replaced by an unsupported one.
std::vector<norv_uart_settings_t> with_one_unsupported_value(const norv_uart_settings_t& supported) {
    std::vector<norv_uart_settings_t> spoilt;
    const auto spoil = [&](uint32_t norv_uart_settings_t::*setting, std::initializer_list<uint32_t> values) {
        for (const uint32_t value : values) {
            spoilt.push_back(supported);
            spoilt.back().*setting = value;
        }
    };
    spoil(&norv_uart_settings_t::baud, {1, 135, 14400, 28800, 250000, 3999999, 4000001, UINT32_MAX});
    spoil(&norv_uart_settings_t::data_bits, {0, 4, 9, 255, 256, 260, 265, UINT32_MAX});
    spoil(&norv_uart_settings_t::stop_bits, {2, 256, UINT32_MAX});
    spoil(&norv_uart_settings_t::parity, {5, 256, UINT32_MAX});
    spoil(&norv_uart_settings_t::flow_control, {3, 256, UINT32_MAX});
    return spoilt;
}

TEST_F(OpenUart, OneUnsupportedValueIsRefusedBeforeThePortIsChanged) {
    for_each_supported([&](const norv_uart_settings_t& supported, const termios&) {
        port->received = "not read yet";
        port->requests.clear();
        kernel.forget_calls();
        for (const norv_uart_settings_t& spoilt : with_one_unsupported_value(supported)) {
            ASSERT_EQ(norv_uart_config(&uart, &spoilt), NORV_STATUS_INVALID_ARG) << words(spoilt);
        }
        ASSERT_THAT(port->requests, Each("get")) << words(supported);
        ASSERT_EQ(port->received, "not read yet");
    });
}

TEST_F(OpenUart, Speed134SelectsTheConstantFor134Point5) {
    norv_uart_settings_t settings = plain;
    settings.baud = 134;
    EXPECT_EQ(norv_uart_config(&uart, &settings), 0U);
    EXPECT_EQ(cfgetospeed(&port->settings), static_cast<speed_t>(B134));
    EXPECT_EQ(cfgetispeed(&port->settings), static_cast<speed_t>(B134));
}

// quirk 85
TEST_F(OpenUart, OnlyTheLowByteOfTheDataBitsCounts) {
    norv_uart_settings_t settings = plain;
    settings.data_bits = 264;
    EXPECT_EQ(norv_uart_config(&uart, &settings), 0U);
    EXPECT_EQ(port->settings.c_cflag & static_cast<tcflag_t>(CSIZE), static_cast<tcflag_t>(CS8));
}

TEST_F(OpenUart, ThePortBecomesRawWhateverItsSettingsWere) {
    std::fill_n(reinterpret_cast<unsigned char*>(&port->settings), sizeof port->settings,
                static_cast<unsigned char>(0xFF));
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
    EXPECT_EQ(port->settings.c_iflag, 0U);
    EXPECT_EQ(port->settings.c_oflag, 0U);
    EXPECT_EQ(port->settings.c_lflag, 0U);
    EXPECT_EQ(port->settings.c_line, 0);
    EXPECT_THAT(port->settings.c_cc, Each(0));  // VMIN and VTIME included
}

// ---- configuration of an open port

TEST_F(OpenUart, ReceivedBytesAreDiscardedFirstAndOutputIsKept) {
    port->received = "noise";
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
    EXPECT_THAT(port->requests, ElementsAre("get", "discard input", "set now"));
}

TEST_F(OpenUart, APortThatCannotDiscardIsConfiguredNevertheless) {
    kernel.fail("tcflush", EIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
    EXPECT_THAT(port->requests, ElementsAre("get", "set now"));
}

TEST_F(OpenUart, SettingsThatCannotBeReadEndTheConfiguration) {
    kernel.fail("tcgetattr", EIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(port->requests, IsEmpty());
}

TEST_F(OpenUart, UnreadableSettingsWhoseErrnoMapsToZeroDoNotEndTheCall) {
    kernel.map_errno(EIO, 0);
    kernel.fail("tcgetattr", EIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
    EXPECT_THAT(port->requests, ElementsAre("discard input", "set now"));
}

TEST_F(OpenUart, APortThatRefusesItsSettingsGivesTheErrnoStatus) {
    kernel.fail("tcsetattr", ENXIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), errno_status(ENXIO));
}

TEST_F(OpenUart, ARefusalWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel.map_errno(EIO, 0);
    kernel.fail("tcsetattr", EIO);
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
}

TEST_F(OpenUart, NullSettingsAreAnInvalidArgument) {
    EXPECT_EQ(norv_uart_config(&uart, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(port->requests, IsEmpty());
}

// ---- sending

TEST_F(OpenUart, SendingWithoutWaitingWritesOnceWhatFits) {
    port->room = 3;
    uint32_t length = 5;
    EXPECT_EQ(norv_uart_send(&uart, "hello", &length, 0), 0U);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(port->sent, "hel");
    EXPECT_THAT(port->poll_waits, IsEmpty());
}

TEST_F(OpenUart, SendingToAFullPortWithoutWaitingReturnsAgain) {
    port->room = 0;
    uint32_t length = 5;
    EXPECT_EQ(norv_uart_send(&uart, "hello", &length, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(length, 5U);
}

TEST_F(OpenUart, SendingWithAnyNegativeTimeoutSendsEverythingWithoutLimit) {
    port->room = 2;
    for (const int32_t timeout : {-1, -5, -1000, INT32_MIN}) {
        port->sent.clear();
        port->poll_waits.clear();
        uint32_t length = 5;
        EXPECT_EQ(norv_uart_send(&uart, "hello", &length, timeout), 0U);
        EXPECT_EQ(length, 5U);
        EXPECT_EQ(port->sent, "hello");
        EXPECT_THAT(port->poll_waits, ElementsAre(-1, -1, -1)) << timeout;
    }
}

TEST_F(OpenUart, OneMillisecondIsATimeoutToo) {
    char byte = 0;
    uint32_t length = 1;
    EXPECT_EQ(norv_uart_recv(&uart, &byte, &length, 1), NORV_STATUS_TIMEOUT);
    port->room = 0;
    length = 1;
    EXPECT_EQ(norv_uart_send(&uart, "x", &length, 1), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(port->poll_waits, ElementsAre(1, 1));
}

TEST_F(OpenUart, SendingWithATimeoutSendsEverythingWithinIt) {
    port->room = 2;
    uint32_t length = 5;
    EXPECT_EQ(norv_uart_send(&uart, "hello", &length, 60000), 0U);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(port->sent, "hello");
    EXPECT_THAT(port->poll_waits, ElementsAre(60000, 60000, 60000));
}

TEST_F(OpenUart, ATimedOutSendReportsHowMuchWasSent) {
    port->room = 0;
    uint32_t length = 5;
    EXPECT_EQ(norv_uart_send(&uart, "hello", &length, 60000), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
}

TEST_F(OpenUart, AFailedSendGivesTheErrnoStatusWithEveryTimeout) {
    for (const int32_t timeout : {0, -1, 60000}) {
        kernel.fail("write", EIO);
        uint32_t length = 5;
        EXPECT_EQ(norv_uart_send(&uart, "hello", &length, timeout), NORV_STATUS_DEVICE_ERROR);
    }
}

// ---- receiving

TEST_F(OpenUart, ReceivingWithoutWaitingReadsOnceWhatHasArrived) {
    port->received = "hel";
    char buffer[5] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, 0), 0U);
    EXPECT_EQ(std::string(buffer, length), "hel");
    EXPECT_THAT(port->poll_waits, IsEmpty());
}

TEST_F(OpenUart, ReceivingFromAnIdlePortWithoutWaitingReturnsAtOnce) {
    char buffer[5] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(length, 5U);
    EXPECT_THAT(port->poll_waits, IsEmpty());
}

TEST_F(OpenUart, ReceivingWithANegativeTimeoutWaitsForEveryByte) {
    for (const int32_t timeout : {-1, -5, -1000, INT32_MIN}) {
        port->poll_waits.clear();
        port->arriving = {"he", "l", "lo"};
        char buffer[5] = {};
        uint32_t length = sizeof buffer;
        EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, timeout), 0U);
        EXPECT_EQ(std::string(buffer, length), "hello");
        EXPECT_THAT(port->poll_waits, ElementsAre(-1, -1, -1)) << timeout;
    }
}

TEST_F(OpenUart, ReceivingWithATimeoutWaitsForEveryByteWithinIt) {
    port->arriving = {"he", "l", "lo"};
    char buffer[5] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, 60000), 0U);
    EXPECT_EQ(std::string(buffer, length), "hello");
    EXPECT_THAT(port->poll_waits, ElementsAre(60000, 60000, 60000));
}

TEST_F(OpenUart, ATimedOutReceiveReportsHowMuchWasReceived) {
    port->arriving = {"he", "l"};
    char buffer[5] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, 60000), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(std::string(buffer, length), "hel");
}

TEST_F(OpenUart, AFailedReceiveGivesTheErrnoStatusWithEveryTimeout) {
    for (const int32_t timeout : {0, -1, 60000}) {
        port->received = "hello";
        kernel.fail("read", EIO);
        char buffer[5] = {};
        uint32_t length = sizeof buffer;
        EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, timeout), NORV_STATUS_DEVICE_ERROR);
    }
}

TEST_F(OpenUart, EveryNegativeTimeoutWaitsWithoutLimit) {
    for (const int32_t timeout : {-1, -1000, INT32_MIN}) {
        uint32_t length = 5;
        EXPECT_EQ(norv_uart_send(&uart, "hello", &length, timeout), 0U);
        port->arriving = {"hello"};
        char buffer[5] = {};
        EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, timeout), 0U);
    }
    EXPECT_THAT(port->poll_waits, ElementsAre(-1, -1, -1, -1, -1, -1));
}

TEST_F(OpenUart, ATransferWithoutALengthIsAnInvalidArgument) {
    char buffer[5] = {};
    for (const int32_t timeout : {0, -1, 60000}) {
        EXPECT_EQ(norv_uart_send(&uart, "hello", nullptr, timeout), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_recv(&uart, buffer, nullptr, timeout), NORV_STATUS_INVALID_ARG);
    }
}

// ---- modem lines

TEST_F(OpenUart, RtsAndDtrAreRaisedAndLoweredIndependently) {
    EXPECT_EQ(norv_uart_set_rts(&uart, 1), 0U);
    EXPECT_EQ(port->modem_lines, TIOCM_RTS);
    EXPECT_EQ(norv_uart_set_dtr(&uart, 1), 0U);
    EXPECT_EQ(port->modem_lines, TIOCM_RTS | TIOCM_DTR);
    EXPECT_EQ(norv_uart_set_rts(&uart, 0), 0U);
    EXPECT_EQ(port->modem_lines, TIOCM_DTR);
    EXPECT_EQ(norv_uart_set_dtr(&uart, 0), 0U);
    EXPECT_EQ(port->modem_lines, 0);
}

// quirk 85
TEST_F(OpenUart, OnlyTheLowByteOfALevelCounts) {
    EXPECT_EQ(norv_uart_set_rts(&uart, 0x180), 0U);
    EXPECT_EQ(port->modem_lines, TIOCM_RTS);
    EXPECT_EQ(norv_uart_set_rts(&uart, 256), 0U);
    EXPECT_EQ(port->modem_lines, 0);
    EXPECT_EQ(norv_uart_set_dtr(&uart, 0xFF), 0U);
    EXPECT_EQ(port->modem_lines, TIOCM_DTR);
    EXPECT_EQ(norv_uart_set_dtr(&uart, 0xFFFFFF00U), 0U);
    EXPECT_EQ(port->modem_lines, 0);
}

TEST_F(OpenUart, CtsAndDsrAreReadIndependently) {
    uint8_t cts = 9;
    uint8_t dsr = 9;
    port->modem_lines = TIOCM_CTS;
    EXPECT_EQ(norv_uart_get_cts(&uart, &cts), 0U);
    EXPECT_EQ(norv_uart_get_dsr(&uart, &dsr), 0U);
    EXPECT_EQ(cts, 1);
    EXPECT_EQ(dsr, 0);
    port->modem_lines = ~TIOCM_CTS;
    EXPECT_EQ(norv_uart_get_cts(&uart, &cts), 0U);
    EXPECT_EQ(norv_uart_get_dsr(&uart, &dsr), 0U);
    EXPECT_EQ(cts, 0);
    EXPECT_EQ(dsr, 1);
}

TEST_F(OpenUart, AFailedModemLineCallGivesTheErrnoStatusAndWritesNothing) {
    uint8_t level = 9;
    kernel.fail("ioctl", ENOTTY);
    EXPECT_EQ(norv_uart_get_cts(&uart, &level), errno_status(ENOTTY));
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_uart_get_dsr(&uart, &level), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(level, 9);
    kernel.fail("ioctl", ENOTTY);
    EXPECT_EQ(norv_uart_set_rts(&uart, 1), errno_status(ENOTTY));
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_uart_set_dtr(&uart, 0), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(OpenUart, AFailedReadOfALineWhoseErrnoMapsToZeroIsNotAsserted) {
    kernel.map_errno(EIO, 0);
    port->modem_lines = TIOCM_CTS;
    kernel.fail("ioctl", EIO);
    uint8_t level = 9;
    EXPECT_EQ(norv_uart_get_cts(&uart, &level), 0U);
    EXPECT_EQ(level, 0);
}

TEST_F(OpenUart, ANullLevelIsAnInvalidArgument) {
    EXPECT_EQ(norv_uart_get_cts(&uart, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uart_get_dsr(&uart, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- without an open port

TEST_F(Uart, WithoutAnOpenPortEveryCallIsAnInvalidArgument) {
    for (norv_uart_t** variable : {&uart, static_cast<norv_uart_t**>(nullptr)}) {
        char buffer[5] = {};
        uint32_t length = sizeof buffer;
        uint8_t level = 9;
        EXPECT_EQ(norv_uart_config(variable, &plain), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_send(variable, buffer, &length, 0), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_recv(variable, buffer, &length, 0), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_set_rts(variable, 1), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_set_dtr(variable, 1), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_get_cts(variable, &level), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uart_get_dsr(variable, &level), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(length, 5U);
        EXPECT_EQ(level, 9);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

// Makes every call on an open port, up to the first failure.
uint32_t use_port(norv_uart_t** uart) {
    norv_uart_settings_t slow = plain;
    slow.baud = 9600;
    uint8_t level = 0;
    uint32_t status = norv_uart_config(uart, &slow);
    if (status == 0) {
        status = norv_uart_set_rts(uart, 1);
    }
    if (status == 0) {
        status = norv_uart_set_dtr(uart, 1);
    }
    if (status == 0) {
        status = norv_uart_get_cts(uart, &level);
    }
    if (status == 0) {
        status = norv_uart_get_dsr(uart, &level);
    }
    char buffer[5] = {'h', 'e', 'l', 'l', 'o'};
    uint32_t length = sizeof buffer;
    if (status == 0) {
        status = norv_uart_send(uart, buffer, &length, -1);
    }
    if (status == 0) {
        status = norv_uart_recv(uart, buffer, &length, 60000);
    }
    return status;
}

uint32_t open_use_and_close() {
    norv_uart_t* uart = nullptr;
    uint32_t status = norv_uart_open("/dev/ttyS1", &plain, &uart);
    EXPECT_EQ(uart == nullptr, status != 0);
    if (status == 0) {
        status = use_port(&uart);
    }
    norv_uart_close(&uart);
    EXPECT_EQ(uart, nullptr);
    return status;
}

TEST(UartSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    std::shared_ptr<serial_port> port;
    norv::test::sweep_options options;
    options.expect = [&](const strike& struck) {
        // Transfers continue after a signal, bytes that cannot be discarded are kept, and closing ignores
        // failures. A port that is still set to 9600 could not be restored.
        const bool interrupted = struck.error == EINTR &&
                                 (struck.name == "poll" || struck.name == "read" || struck.name == "write");
        const bool unrestored =
            struck.name == "tcsetattr" && cfgetospeed(&port->settings) == static_cast<speed_t>(B9600);
        return interrupted || unrestored || struck.name == "tcflush" ? NORV_STATUS_OK
                                                                     : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [&](kernel_double& kernel) {
            port = std::make_shared<serial_port>();
            port->arriving = {"hel", "lo", "!"};
            kernel.add_device("/dev/ttyS1", port);
        },
        open_use_and_close, options);
}

}  // namespace
