// SPDX-License-Identifier: MIT
// Serial ports of a real kernel: 16550s, with /dev/ttyS1 wired to /dev/ttyS2 and /dev/ttyS3 to itself, and
// pseudo-terminals. A Zynq has only one port for this, /dev/ttyPS1, which is wired to itself.
#include "norv_uart.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <span>
#include <string>
#include <thread>

#include "norv/file.hpp"
#include "norv_base.h"
#include "norv_epoll.h"

namespace {

constexpr int modem_loopback = 0x8000;  // the kernel's TIOCM_LOOP, which the C library does not define

constexpr int32_t plenty = 60000;  // ms, longer than any test below needs

constexpr norv_uart_settings_t plain = {
    .baud = 115200, .data_bits = 8, .stop_bits = 0, .parity = 0, .flow_control = 0};

const bool is_zynq = access("/dev/ttyPS1", F_OK) == 0;
const char* const first_port = is_zynq ? "/dev/ttyPS1" : "/dev/ttyS1";
const char* const second_port = is_zynq ? "/dev/ttyPS1" : "/dev/ttyS2";
const char* const plugged_port = is_zynq ? "/dev/ttyPS1" : "/dev/ttyS3";

uint32_t errno_status(int error) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error));
}

norv_uart_settings_t at_speed(uint32_t baud) {
    norv_uart_settings_t settings = plain;
    settings.baud = baud;
    return settings;
}

termios settings_of(int descriptor) {
    termios settings = {};
    EXPECT_EQ(tcgetattr(descriptor, &settings), 0);
    return settings;
}

int modem_lines_of(int descriptor) {
    int lines = 0;
    EXPECT_EQ(ioctl(descriptor, TIOCMGET, &lines), 0);
    return lines;
}

void send(norv_uart_t** uart, const std::string& text) {
    auto length = static_cast<uint32_t>(text.size());
    EXPECT_EQ(norv_uart_send(uart, text.data(), &length, -1), 0U);
    EXPECT_EQ(length, text.size());
}

std::string receive(norv_uart_t** uart, size_t size) {
    std::string text(size, '\0');
    auto length = static_cast<uint32_t>(size);
    EXPECT_EQ(norv_uart_recv(uart, text.data(), &length, plenty), 0U);
    text.resize(length);
    return text;
}

// Waits until `size` bytes have arrived, without reading them.
void await(norv_uart_t** uart, int size) {
    int arrived = 0;
    while (arrived < size) {
        ASSERT_EQ(ioctl(norv_uart_get_fd(uart), FIONREAD, &arrived), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Bytes without a short period, so that a lost, repeated or swapped byte is noticed.
std::string many_bytes(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 1;
    std::generate(bytes.begin(), bytes.end(), [&] {
        state = state * 1664525U + 1013904223U;
        return static_cast<char>(state >> 24U);
    });
    return bytes;
}

// Reads 64 bytes at a time, each with a timeout, until everything has arrived.
std::string receive_in_small_pieces(norv_uart_t** uart, size_t size) {
    std::string text;
    while (text.size() < size) {
        const std::string piece = receive(uart, std::min<size_t>(64, size - text.size()));
        if (piece.empty()) {
            break;
        }
        text += piece;
    }
    return text;
}

// The position of the first difference between two long texts; their size if there is none.
size_t first_difference(const std::string& left, const std::string& right) {
    const auto [at, other] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    return static_cast<size_t>(at - left.begin());
}

// Both ends of a wire, open.
class ConnectedPorts : public testing::Test {
  protected:
    ConnectedPorts(const char* first_path, const char* second_path) {
        EXPECT_EQ(norv_uart_open(first_path, &plain, &first), 0U);
        EXPECT_EQ(norv_uart_open(second_path, &plain, &second), 0U);
    }
    ~ConnectedPorts() override {
        norv_uart_close(&first);
        norv_uart_close(&second);
    }

    void configure_both(const norv_uart_settings_t& settings) {
        EXPECT_EQ(norv_uart_config(&first, &settings), 0U);
        EXPECT_EQ(norv_uart_config(&second, &settings), 0U);
    }
    void expect_text_in_both_directions() {
        send(&first, "from the first port\n");
        EXPECT_EQ(receive(&second, 20), "from the first port\n");
        send(&second, "and back\r\n\x03\x04\x11\x13");
        EXPECT_EQ(receive(&first, 14), "and back\r\n\x03\x04\x11\x13");
    }
    void expect_nothing_lost_of(size_t size) {
        const std::string bytes = many_bytes(size);
        std::thread sender([&] { send(&first, bytes); });
        const std::string received = receive_in_small_pieces(&second, bytes.size());
        sender.join();
        EXPECT_EQ(first_difference(bytes, received), bytes.size());
    }

    norv_uart_t* first = nullptr;
    norv_uart_t* second = nullptr;
};

class UartOnBoard : public ConnectedPorts {
  protected:
    UartOnBoard() : ConnectedPorts(first_port, second_port) {}
};

// ---- text on the wire

// No speed below 2400: the 8250 driver would then raise an interrupt for each byte from then on, at any
// speed.
TEST_F(UartOnBoard, TextGoesInBothDirectionsAtSeveralSpeeds) {
    for (const auto& [baud, code] :
         {std::pair{2400U, B2400}, {9600U, B9600}, {38400U, B38400}, {57600U, B57600}, {115200U, B115200}}) {
        SCOPED_TRACE(baud);
        configure_both(at_speed(baud));
        const termios taken = settings_of(norv_uart_get_fd(&first));
        EXPECT_EQ(cfgetospeed(&taken), static_cast<speed_t>(code));
        expect_text_in_both_directions();
    }
}

TEST_F(UartOnBoard, EveryFramingAndFlowControlReachesTheDriver) {
    for (uint32_t number = 0; number < 4 * 2 * 5 * 3; ++number) {
        const norv_uart_settings_t settings = {.baud = 9600,
                                               .data_bits = 5 + number % 4,
                                               .stop_bits = number / 4 % 2,
                                               .parity = number / 8 % 5,
                                               .flow_control = number / 40};
        ASSERT_EQ(norv_uart_config(&first, &settings), 0U) << number;
        const termios taken = settings_of(norv_uart_get_fd(&first));
        // The driver of a Zynq's ports uses 8 bits instead of 5.
        const tcflag_t five_bits = is_zynq ? CS8 : CS5;
        const tcflag_t size[] = {five_bits, CS6, CS7, CS8};
        const tcflag_t parity[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
        const tcflag_t flow[] = {0, 0, CRTSCTS};
        const tcflag_t expected = CLOCAL | CREAD | B9600 | size[number % 4] | parity[number / 8 % 5] |
                                  flow[number / 40] | (number / 4 % 2 == 1 ? CSTOPB : 0U);
        EXPECT_EQ(taken.c_cflag, expected) << number;
        EXPECT_EQ(taken.c_iflag, number / 40 == 1 ? IXON | IXOFF : 0U) << number;
        EXPECT_EQ(taken.c_oflag, 0U);
        EXPECT_EQ(taken.c_lflag, 0U);
    }
}

TEST_F(UartOnBoard, ConfigurationDiscardsWhatWasReceived) {
    send(&first, "noise");
    await(&second, 5);
    EXPECT_EQ(norv_uart_config(&second, &plain), 0U);
    send(&first, "text");
    EXPECT_EQ(receive(&second, 4), "text");
}

TEST_F(UartOnBoard, AnUnsupportedSpeedLeavesTheDriversSettingsUnchanged) {
    const norv_uart_settings_t settings = at_speed(250000);
    EXPECT_EQ(norv_uart_config(&first, &settings), NORV_STATUS_INVALID_ARG);
    const termios kept = settings_of(norv_uart_get_fd(&first));
    EXPECT_EQ(cfgetospeed(&kept), static_cast<speed_t>(B115200));
}

TEST_F(UartOnBoard, AnIdlePortReturnsNoBytesAtOnceOrTimesOut) {
    char buffer[16];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&first, buffer, &length, 0), 0U);
    EXPECT_EQ(length, 0U);
    length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&first, buffer, &length, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
}

TEST_F(UartOnBoard, ATimeoutReportsHowMuchWasReceived) {
    send(&first, "half");
    await(&second, 4);
    char buffer[8];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&second, buffer, &length, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(std::string(buffer, length), "half");
}

TEST_F(UartOnBoard, APortThatMustNotSendAcceptsBytesUntilItIsFull) {
    const std::string bytes = many_bytes(65536);
    ASSERT_EQ(tcflow(norv_uart_get_fd(&first), TCOOFF), 0);
    auto taken = static_cast<uint32_t>(bytes.size());
    EXPECT_EQ(norv_uart_send(&first, bytes.data(), &taken, 0), 0U);
    EXPECT_GT(taken, 0U);
    EXPECT_LT(taken, bytes.size());
    uint32_t length = 1;
    EXPECT_EQ(norv_uart_send(&first, "x", &length, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(norv_uart_send(&first, "x", &length, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
    ASSERT_EQ(tcflow(norv_uart_get_fd(&first), TCOON), 0);
    EXPECT_EQ(receive_in_small_pieces(&second, taken), bytes.substr(0, taken));
}

TEST_F(UartOnBoard, AWaitWithoutLimitEndsWithTheLastByte) {
    std::thread sender([&] {
        send(&first, "in two ");
        send(&first, "pieces");
    });
    char buffer[13];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&second, buffer, &length, -1), 0U);
    EXPECT_EQ(std::string(buffer, length), "in two pieces");
    sender.join();
}

// ---- software flow control

norv_uart_settings_t with_software_flow_control() {
    norv_uart_settings_t settings = plain;
    settings.flow_control = NORV_UART_FLOW_CONTROL_SOFTWARE;
    return settings;
}

// The part that the library leaves to the caller.
void set_flow_control_characters(norv_uart_t** uart) {
    termios settings = settings_of(norv_uart_get_fd(uart));
    settings.c_cc[VSTART] = 0x11;
    settings.c_cc[VSTOP] = 0x13;
    ASSERT_EQ(tcsetattr(norv_uart_get_fd(uart), TCSANOW, &settings), 0);
}

std::string receive_within(norv_uart_t** uart, size_t size, int32_t timeout) {
    std::string text(size, '\0');
    auto length = static_cast<uint32_t>(size);
    norv_uart_recv(uart, text.data(), &length, timeout);
    text.resize(length);
    return text;
}

// The first port has software flow control; the second one, without it, plays the device.
class SoftwareFlowControlOnBoard : public UartOnBoard {
  protected:
    SoftwareFlowControlOnBoard() {
        const norv_uart_settings_t settings = with_software_flow_control();
        EXPECT_EQ(norv_uart_config(&first, &settings), 0U);
    }

    // Sends more than the first port stores while no one reads.
    std::string answer_to_a_flood(int32_t timeout) {
        std::thread sender([&] { send(&second, std::string(8192, 'x')); });
        await(&first, 4000);
        const std::string answer = receive_within(&second, 1, timeout);
        sender.join();
        receive(&first, 8192);
        return answer;
    }
};

// quirk 86
TEST_F(SoftwareFlowControlOnBoard, DoesNothingBecauseItsCharactersAreZero) {
    send(&second, "\x13x");
    EXPECT_EQ(receive(&first, 2), "\x13x");
    send(&first, "not held");
    EXPECT_EQ(receive(&second, 8), "not held");
    EXPECT_EQ(answer_to_a_flood(100), "");
}

// quirk 86
TEST_F(SoftwareFlowControlOnBoard, HoldsOutputOnceTheCallerHasSetItsCharacters) {
    set_flow_control_characters(&first);
    send(&second, "\x13x");
    EXPECT_EQ(receive(&first, 1), "x");
    send(&first, "held");
    EXPECT_EQ(receive_within(&second, 4, 100), "");
    send(&second, "\x11");
    EXPECT_EQ(receive(&second, 4), "held");
}

// quirk 86
TEST_F(SoftwareFlowControlOnBoard, StopsASenderOnceTheCallerHasSetItsCharacters) {
    set_flow_control_characters(&first);
    EXPECT_EQ(answer_to_a_flood(plenty), "\x13");
}

// quirk 86
TEST_F(SoftwareFlowControlOnBoard, LosesItsCharactersWithTheNextConfiguration) {
    const norv_uart_settings_t settings = with_software_flow_control();
    set_flow_control_characters(&first);
    EXPECT_EQ(norv_uart_config(&first, &settings), 0U);
    const termios taken = settings_of(norv_uart_get_fd(&first));
    EXPECT_EQ(taken.c_iflag, static_cast<tcflag_t>(IXON | IXOFF));
    EXPECT_EQ(taken.c_cc[VSTART], 0);
    EXPECT_EQ(taken.c_cc[VSTOP], 0);
}

// ---- many bytes

// A mebibyte takes minutes on an emulated port: `make soak` sends all of it, the daily run a part.
size_t soak_size() {
    return std::getenv("NORV_LONG_SOAK") != nullptr ? 1 << 20 : 1 << 16;
}

TEST_F(UartOnBoard, ManyBytesReadInSmallPiecesArriveWithoutLoss) {
    expect_nothing_lost_of(soak_size());
}

TEST_F(UartOnBoard, OneThreadSendsWhileAnotherReceives) {
    norv_uart_t* plug = nullptr;
    ASSERT_EQ(norv_uart_open(plugged_port, &plain, &plug), 0U);
    const std::string bytes = many_bytes(16384);
    std::thread sender([&] { send(&plug, bytes); });
    const std::string received = receive_in_small_pieces(&plug, bytes.size());
    sender.join();
    EXPECT_EQ(first_difference(bytes, received), bytes.size());
    norv_uart_close(&plug);
}

struct reader {
    norv_epoll_fd_t record;  // first, so that the handler can convert it to the whole
    norv_epoll_t* loop;
    norv_uart_t** uart;
    std::string text;
};

void read_in_the_loop(norv_epoll_fd_t* record, uint32_t) {
    auto& self = *reinterpret_cast<reader*>(record);
    char buffer[16];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(self.uart, buffer, &length, 0), 0U);
    self.text.append(buffer, length);
    if (self.text.size() == 24) {
        norv_epoll_exit(self.loop);
    }
}

TEST_F(UartOnBoard, TheEventLoopServesThePort) {
    static norv_epoll_t loop;
    reader input = {};
    input.loop = &loop;
    input.uart = &second;
    input.record.descriptor = norv_uart_get_fd(&second);
    input.record.handler = read_in_the_loop;
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    ASSERT_EQ(norv_epoll_fd_add(&loop, &input.record, EPOLLIN), 0U);
    send(&first, "served by the event loop");
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_EQ(input.text, "served by the event loop");
    norv_epoll_fd_remove(&loop, &input.record);
    norv_epoll_close(&loop);
}

// ---- modem lines

TEST_F(UartOnBoard, RtsAndDtrReachTheDriver) {
    const int descriptor = norv_uart_get_fd(&first);
    EXPECT_EQ(norv_uart_set_rts(&first, 0), 0U);
    EXPECT_EQ(norv_uart_set_dtr(&first, 1), 0U);
    EXPECT_EQ(modem_lines_of(descriptor) & (TIOCM_RTS | TIOCM_DTR), TIOCM_DTR);
    EXPECT_EQ(norv_uart_set_rts(&first, 1), 0U);
    EXPECT_EQ(norv_uart_set_dtr(&first, 0), 0U);
    EXPECT_EQ(modem_lines_of(descriptor) & (TIOCM_RTS | TIOCM_DTR), TIOCM_RTS);
}

// The chip's loopback mode connects RTS with CTS and DTR with DSR.
TEST_F(UartOnBoard, CtsFollowsRtsAndDsrFollowsDtrThroughTheChip) {
    int loop_back = modem_loopback;
    ASSERT_EQ(ioctl(norv_uart_get_fd(&first), TIOCMBIS, &loop_back), 0);
    for (const bool rts : {true, false, true}) {
        for (const bool dtr : {false, true, false}) {
            EXPECT_EQ(norv_uart_set_rts(&first, rts ? 1 : 0), 0U);
            EXPECT_EQ(norv_uart_set_dtr(&first, dtr ? 1 : 0), 0U);
            uint8_t cts = 9;
            uint8_t dsr = 9;
            EXPECT_EQ(norv_uart_get_cts(&first, &cts), 0U);
            EXPECT_EQ(norv_uart_get_dsr(&first, &dsr), 0U);
            EXPECT_EQ(cts, rts ? 1 : 0);
            EXPECT_EQ(dsr, dtr ? 1 : 0);
        }
    }
    ASSERT_EQ(ioctl(norv_uart_get_fd(&first), TIOCMBIC, &loop_back), 0);
}

TEST_F(UartOnBoard, SpeedZeroHangsUpUntilAnotherSpeedIsSet) {
    const norv_uart_settings_t hung_up = at_speed(0);
    const int descriptor = norv_uart_get_fd(&first);
    EXPECT_EQ(norv_uart_config(&first, &hung_up), 0U);
    EXPECT_EQ(modem_lines_of(descriptor) & (TIOCM_RTS | TIOCM_DTR), 0);
    EXPECT_EQ(norv_uart_config(&first, &plain), 0U);
    EXPECT_EQ(modem_lines_of(descriptor) & (TIOCM_RTS | TIOCM_DTR), TIOCM_RTS | TIOCM_DTR);
}

// ---- a cable with all wires

// /dev/ttyNORV0 and /dev/ttyNORV1: what one drives, the other sees, and both need the same settings.
class UartCableOnBoard : public ConnectedPorts {
  protected:
    UartCableOnBoard() : ConnectedPorts("/dev/ttyNORV0", "/dev/ttyNORV1") {}

    // What the second port receives of a text, even if it is garbled.
    std::string sent_to_second(const std::string& text) {
        send(&first, text);
        return receive(&second, text.size());
    }
};

TEST_F(UartCableOnBoard, TextGoesInBothDirectionsAtSeveralSpeeds) {
    for (const uint32_t baud : {2400U, 9600U, 115200U, 921600U}) {
        configure_both(at_speed(baud));
        expect_text_in_both_directions();
    }
}

TEST_F(UartCableOnBoard, ManyBytesReadInSmallPiecesArriveWithoutLoss) {
    configure_both(at_speed(921600));
    expect_nothing_lost_of(32768);
}

TEST_F(UartCableOnBoard, AtADifferentSpeedOtherBytesArrive) {
    const norv_uart_settings_t settings = at_speed(9600);
    EXPECT_EQ(norv_uart_config(&second, &settings), 0U);
    EXPECT_NE(sent_to_second("hello"), "hello");
}

TEST_F(UartCableOnBoard, WithADifferentFramingOtherBytesArrive) {
    norv_uart_settings_t settings = plain;
    settings.data_bits = 7;
    EXPECT_EQ(norv_uart_config(&second, &settings), 0U);
    EXPECT_NE(sent_to_second("hello"), "hello");
}

TEST_F(UartCableOnBoard, RtsIsTheOtherSidesCtsAndDtrIsItsDsr) {
    for (const bool rts : {true, false, true}) {
        for (const bool dtr : {false, true}) {
            EXPECT_EQ(norv_uart_set_rts(&first, rts ? 1 : 0), 0U);
            EXPECT_EQ(norv_uart_set_dtr(&first, dtr ? 1 : 0), 0U);
            uint8_t cts = 9;
            uint8_t dsr = 9;
            EXPECT_EQ(norv_uart_get_cts(&second, &cts), 0U);
            EXPECT_EQ(norv_uart_get_dsr(&second, &dsr), 0U);
            EXPECT_EQ(cts, rts ? 1 : 0);
            EXPECT_EQ(dsr, dtr ? 1 : 0);
        }
    }
}

TEST_F(UartCableOnBoard, HardwareFlowControlHoldsOutputUntilTheOtherSideIsReady) {
    norv_uart_settings_t settings = plain;
    settings.flow_control = NORV_UART_FLOW_CONTROL_HARDWARE;
    EXPECT_EQ(norv_uart_set_rts(&second, 0), 0U);
    EXPECT_EQ(norv_uart_config(&first, &settings), 0U);
    send(&first, "held");
    EXPECT_EQ(receive_within(&second, 4, 100), "");
    EXPECT_EQ(norv_uart_set_rts(&second, 1), 0U);
    EXPECT_EQ(receive(&second, 4), "held");
}

// ---- open and close

// Another process that has the port open too, and so keeps its settings alive.
class other_user {
  public:
    explicit other_user(const char* path)
        : port_(norv::file::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK).value()) {}

    termios settings() const { return settings_of(port_.descriptor()); }
    void set(const termios& settings) const {
        EXPECT_EQ(tcsetattr(port_.descriptor(), TCSANOW, &settings), 0);
    }

  private:
    norv::file port_;
};

TEST(UartSettingsOnBoard, ClosingRestoresThePortsOldSettings) {
    const other_user other(plugged_port);
    termios before = other.settings();
    before.c_lflag = ICANON | ECHO;
    before.c_oflag = OPOST | ONLCR;
    cfsetspeed(&before, B19200);
    other.set(before);
    norv_uart_t* uart = nullptr;
    EXPECT_EQ(norv_uart_open(plugged_port, &plain, &uart), 0U);
    EXPECT_EQ(other.settings().c_lflag, 0U);
    norv_uart_close(&uart);
    const termios after = other.settings();
    EXPECT_EQ(after.c_lflag, static_cast<tcflag_t>(ICANON | ECHO));
    EXPECT_EQ(after.c_oflag, static_cast<tcflag_t>(OPOST | ONLCR));
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B19200));
}

TEST(UartSettingsOnBoard, AfterTwoConfigurationsClosingRestoresThoseOfTheFirst) {
    const other_user other(plugged_port);
    const norv_uart_settings_t slow = at_speed(2400);
    norv_uart_t* uart = nullptr;
    EXPECT_EQ(norv_uart_open(plugged_port, &slow, &uart), 0U);
    EXPECT_EQ(norv_uart_config(&uart, &plain), 0U);
    norv_uart_close(&uart);
    const termios after = other.settings();
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B2400));
}

TEST(UartSettingsOnBoard, AFailedOpenRestoresThePortsOldSettings) {
    const other_user other(plugged_port);
    const termios before = other.settings();
    const norv_uart_settings_t unsupported = at_speed(14400);
    norv_uart_t* uart = nullptr;
    EXPECT_EQ(norv_uart_open(plugged_port, &unsupported, &uart), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(other.settings().c_cflag, before.c_cflag);
}

TEST(UartOpeningOnBoard, AFileThatIsNotASerialPortIsRefused) {
    norv_uart_t* uart = nullptr;
    EXPECT_EQ(norv_uart_open("/dev/null", &plain, &uart), errno_status(ENOTTY));
    EXPECT_EQ(uart, nullptr);
    EXPECT_EQ(norv_uart_open("/dev/ttyS99", &plain, &uart), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uart, nullptr);
}

TEST(UartOpeningOnBoard, AfterAHangUpSendingFailsAndReceivingTimesOut) {
    norv_uart_t* uart = nullptr;
    ASSERT_EQ(norv_uart_open(plugged_port, &plain, &uart), 0U);
    const int other = open(plugged_port, O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(other, 0);
    ASSERT_EQ(ioctl(other, TIOCVHANGUP), 0);
    close(other);
    char buffer[4] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(norv_uart_send(&uart, buffer, &length, plenty), NORV_STATUS_DEVICE_ERROR);
    length = sizeof buffer;
    EXPECT_EQ(norv_uart_recv(&uart, buffer, &length, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
    norv_uart_close(&uart);
    EXPECT_EQ(uart, nullptr);
}

// ---- pseudo-terminals

// A pseudo-terminal; the test plays the device at its other end.
class PseudoTerminal : public testing::Test {
  protected:
    PseudoTerminal() {
        EXPECT_EQ(grantpt(far_end.descriptor()), 0);
        EXPECT_EQ(unlockpt(far_end.descriptor()), 0);
        char path[64] = {};
        EXPECT_EQ(ptsname_r(far_end.descriptor(), path, sizeof path), 0);
        EXPECT_EQ(norv_uart_open(path, &plain, &uart), 0U);
    }
    ~PseudoTerminal() override { norv_uart_close(&uart); }

    norv::file far_end = norv::file::adopt(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)).value();
    norv_uart_t* uart = nullptr;
};

TEST_F(PseudoTerminal, OneMebibyteReceivedInSmallPiecesArrivesWithoutLoss) {
    const std::string bytes = many_bytes(1048576);
    std::thread device([&] {
        const std::chrono::milliseconds limit(plenty);
        EXPECT_EQ(far_end.write(std::as_bytes(std::span(bytes)), limit).status, norv::ok);
    });
    const std::string received = receive_in_small_pieces(&uart, bytes.size());
    device.join();
    EXPECT_EQ(first_difference(bytes, received), bytes.size());
}

TEST_F(PseudoTerminal, OneMebibyteSentArrivesWithoutLoss) {
    const std::string bytes = many_bytes(1048576);
    std::string received(bytes.size(), '\0');
    std::thread device([&] {
        const std::chrono::milliseconds limit(plenty);
        EXPECT_EQ(far_end.read(std::as_writable_bytes(std::span(received)), limit).status, norv::ok);
    });
    send(&uart, bytes);
    device.join();
    EXPECT_EQ(first_difference(bytes, received), bytes.size());
}

// quirk 86
TEST_F(PseudoTerminal, HasSoftwareFlowControlOnceTheCallerHasSetItsCharacters) {
    const norv_uart_settings_t settings = with_software_flow_control();
    EXPECT_EQ(norv_uart_config(&uart, &settings), 0U);
    ASSERT_EQ(write(far_end.descriptor(), "\x13x", 2), 2);
    EXPECT_EQ(receive(&uart, 2), "\x13x");
    set_flow_control_characters(&uart);
    ASSERT_EQ(write(far_end.descriptor(), "\x13x", 2), 2);
    EXPECT_EQ(receive(&uart, 1), "x");
    uint32_t length = 4;
    EXPECT_EQ(norv_uart_send(&uart, "held", &length, 0), NORV_STATUS_AGAIN);
}

TEST_F(PseudoTerminal, HasNoModemLines) {
    uint8_t level = 9;
    EXPECT_EQ(norv_uart_set_rts(&uart, 1), errno_status(ENOTTY));
    EXPECT_EQ(norv_uart_set_dtr(&uart, 1), errno_status(ENOTTY));
    EXPECT_EQ(norv_uart_get_cts(&uart, &level), errno_status(ENOTTY));
    EXPECT_EQ(norv_uart_get_dsr(&uart, &level), errno_status(ENOTTY));
    EXPECT_EQ(level, 9);
}

}  // namespace
