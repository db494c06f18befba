// SPDX-License-Identifier: MIT
//
// Buses and ports:
//
//     bus can INTERFACE PARTNER   sends frames of two identifiers from one interface, and shows them at the other
//     bus i2c BUS ADDRESS         writes a text into an EEPROM, and reads it back
//     bus i2c_bus BUS ADDRESS     sets up the registers of a device, and reads them back
//     bus spi DEVICE              sends a text, and checks that it comes back
//     bus uart PORT               the same through a serial port
#include <algorithm>
#include <array>
#include <chrono>

#include "norv/can.hpp"
#include "norv/clock.hpp"
#include "norv/i2c.hpp"
#include "norv/i2c_bus.hpp"
#include "norv/spi.hpp"
#include "norv/uart.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

void show_can(char** arguments) {
    norv::can port = norv::can::open(arguments[0], 0x100, 0x200).value();
    norv::can partner = norv::can::open(arguments[1], 0x100).value();
    for (uint8_t count = 0; count < 4; ++count) {
        can_frame sent{};
        sent.can_id = count % 2 == 0 ? 0x100 : 0x200;
        sent.len = 1;
        sent.data[0] = count;
        partner.write(sent, 1s).value();
        const can_frame frame = port.read(10s).value();
        std::printf("  %s  %03X  [%d]  %02X\n", arguments[0], frame.can_id, frame.len, frame.data[0]);
    }
}

// While an EEPROM stores a page it does not answer. A write of the address alone stores nothing, and succeeds when
// it answers again.
void wait_until_stored(norv::i2c& bus, uint8_t address) {
    const auto begin = norv::monotonic_clock::now();
    const std::byte first[] = {std::byte(0)};
    norv::status answered = bus.raw_write(address, first);
    while (!answered.ok() && norv::monotonic_clock::now() - begin < 100ms) {
        answered = bus.raw_write(address, first);
    }
    answered.value();
}

void show_i2c(char** arguments) {
    norv::i2c bus = norv::i2c::open(number(arguments[0])).value();
    const auto address = static_cast<uint8_t>(number(arguments[1]));
    constexpr std::string_view text = "norv";
    std::array<char, text.size()> found;
    bus.write(address, 0, std::as_bytes(std::span(text))).value();
    wait_until_stored(bus, address);
    bus.read(address, 0, std::as_writable_bytes(std::span(found))).value();
    std::printf("  EEPROM %s on bus %s: \"%.*s\"\n", arguments[1], arguments[0],
                static_cast<int>(found.size()), found.data());
}

// The driver of a device with registers 0x10 to 0x13.
norv::status set_up_device(norv::i2c_bus& bus, uint8_t address) {
    static constexpr norv::i2c_bus::reg_value settings[] = {{0x13, 0xF0}, {0x10, 0x01}};
    static constexpr std::byte limits[] = {std::byte(20), std::byte(80)};
    const norv::status written = bus.write_regs(address, 0x11, limits);
    return written.ok() ? bus.write_reg_list(address, settings) : written;
}

void show_i2c_bus(char** arguments) {
    norv::i2c_bus bus = norv::i2c_bus::open(number(arguments[0])).value();
    const auto address = static_cast<uint8_t>(number(arguments[1]));
    set_up_device(bus, address).value();
    for (uint8_t reg = 0x10; reg <= 0x13; ++reg) {
        std::printf("  register 0x%02x is 0x%02x\n", reg, bus.read_reg(address, reg).value());
    }
}

void show_spi(char** arguments) {
    constexpr std::string_view text = "norv: anybody there?";  // an even number of bytes
    std::array<char, text.size()> received;
    norv::spi slave = norv::spi::open(arguments[0], {.max_speed_hz = 1000000, .bits_per_word = 16}).value();
    slave.duplex(std::as_bytes(std::span(text)), std::as_writable_bytes(std::span(received))).value();
    std::printf("  %s: the text %s, 16-bit words are %s\n", arguments[0],
                std::ranges::equal(text, received) ? "came back" : "is lost",
                slave.emulates_words() ? "emulated" : "the controller's");
}

void show_uart(char** arguments) {
    constexpr std::string_view line = "hello at 9600 bit/s";
    std::array<char, line.size()> back;
    norv::uart port = norv::uart::open(arguments[0], {.baud = 9600}).value();
    port.send(std::as_bytes(std::span(line)), norv::no_limit).status.value();
    const norv::transferred received = port.receive(std::as_writable_bytes(std::span(back)), 2s);
    if (received.status == NORV_STATUS_TIMEOUT) {
        std::printf("  %zu of %zu bytes came back in 2 s\n", received.count, line.size());
    }
    received.status.value();
    std::printf("  \"%.*s\" came back\n", static_cast<int>(back.size()), back.data());
}

constexpr family families[] = {{"can", 2, show_can},
                               {"i2c", 2, show_i2c},
                               {"i2c_bus", 2, show_i2c_bus},
                               {"spi", 1, show_spi},
                               {"uart", 1, show_uart}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
