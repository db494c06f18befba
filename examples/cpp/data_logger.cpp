// SPDX-License-Identifier: MIT
//
// Logs over a serial port what happens on three interfaces: the edges of a GPIO line, the value of an I2C
// sensor, and the frames of a CAN bus. There is a coroutine for each, and one that sends the log.
//
//     data_logger LINE I2C_BUS ADDRESS CAN_INTERFACE IDENTIFIER SERIAL_PORT
//
// The sensor's value are the two bytes of its register 0, the high one first. Numbers may be hexadecimal (0x48).
// Ends at SIGTERM and SIGINT, after the rest of the log was sent.
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "norv/can.hpp"
#include "norv/gpio.hpp"
#include "norv/i2c.hpp"
#include "norv/uart.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

// What is logged and not sent yet. If the port cannot keep up, lines are lost, not memory.
class log_lines {
  public:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
        char line[128];
        va_list values;
        va_start(values, format);
        const int length = std::vsnprintf(line, sizeof line, format, values);
        va_end(values);
        if (length > 0 && text_.size() < 64 * 1024) {
            text_ += line;
            text_ += "\r\n";
        }
    }

    std::string take() { return std::exchange(text_, {}); }
    void put_back(const std::string& rest) { text_.insert(0, rest); }

  private:
    std::string text_;
};

norv::task<norv::status> log_edges(norv::gpio& line, log_lines& log) {
    norv::gpio_edges edges(line);
    for (;;) {
        const norv::result<bool> level = co_await edges.next();
        if (!level) {
            co_return level.status();
        }
        log.add("edge: level %d", *level);
    }
}

// A sensor that does not answer is logged, too, and asked again.
norv::task<norv::status> log_sensor(norv::i2c& bus, uint8_t address, log_lines& log) {
    for (;;) {
        std::byte value[2];
        if (const norv::status read = bus.read(address, 0, value); read.ok()) {
            log.add("sensor: %u",
                    std::to_integer<unsigned>(value[0]) << 8 | std::to_integer<unsigned>(value[1]));
        } else {
            log.add("sensor: %s", read.text());
        }
        if (const norv::status slept = co_await norv::sleep(500ms); !slept.ok()) {
            co_return slept;
        }
    }
}

norv::task<norv::status> log_frames(norv::can& channel, log_lines& log) {
    norv::can_stream frames(channel);
    for (;;) {
        const norv::result<can_frame> frame = co_await frames.read();
        if (!frame) {
            co_return frame.status();
        }
        log.add("frame: %x, %u bytes, first %02x", frame->can_id, frame->can_dlc, frame->data[0]);
    }
}

norv::task<norv::status> send_log(norv::uart& port, log_lines& log) {
    norv::uart_stream stream(port);
    for (;;) {
        const std::string text = log.take();
        const norv::transferred sent = co_await stream.send_all(std::as_bytes(std::span(text)));
        if (!sent.status.ok()) {
            log.put_back(text.substr(sent.count));
            co_return sent.status;
        }
        if (const norv::status slept = co_await norv::sleep(100ms); !slept.ok()) {
            co_return slept;
        }
    }
}

// The first task that ends, ends the others.
norv::task<int> run_logger(termination& end, norv::gpio& line, norv::i2c& bus, uint8_t address,
                           norv::can& channel, norv::uart& port, log_lines& log) {
    static constexpr const char* names[] = {"signal", "GPIO line", "I2C sensor", "CAN bus", "serial port"};
    const auto first =
        co_await norv::when_any(end.requested(), log_edges(line, log), log_sensor(bus, address, log),
                                log_frames(channel, log), send_log(port, log));
    const norv::status ended = std::visit([](norv::status status) { return status; }, first);
    if (!ended.ok()) {
        report(names[first.index()], ended);
    }
    co_return ended.ok() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** arguments) try {
    if (count != 7) {
        std::fputs("usage: data_logger LINE I2C_BUS ADDRESS CAN_INTERFACE IDENTIFIER SERIAL_PORT\n", stderr);
        return 2;
    }
    termination end;
    norv::loop loop = must("event loop", norv::loop::open());
    norv::gpio line = must(arguments[1], norv::gpio::open(number(arguments[1])));
    line.set_direction(norv::gpio::direction::input).value();
    line.set_edge(norv::gpio::edge::both).value();
    line.get_value().value();  // or the kernel reports an edge at once
    norv::i2c bus = must(arguments[2], norv::i2c::open(number(arguments[2])));
    norv::can channel = must(arguments[4], norv::can::open(arguments[4], number(arguments[5])));
    norv::uart port = must(arguments[6], norv::uart::open(arguments[6], {.baud = 115200}));

    log_lines log;
    log.add("logging");
    const auto address = static_cast<uint8_t>(number(arguments[3]));
    const int result = norv::run(loop, run_logger(end, line, bus, address, channel, port, log));
    log.add("stopped");
    const std::string rest = log.take();
    port.send(std::as_bytes(std::span(rest)), 1s).status.value();
    return result;
} catch (const norv::error& failed) {
    report("data_logger", failed.status());
    return EXIT_FAILURE;
}
