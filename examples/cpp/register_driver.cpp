// SPDX-License-Identifier: MIT
//
// A driver for a device of registers: its registers have types, and a task awaits its interrupts. The device is
// the one that the virtual board's module norv_board_uio has: an operand is written, and the next interrupt
// brings its complement.
//
//     register_driver [COUNT]
//
// Computes COUNT complements (default: 3), or ends at SIGTERM or SIGINT. A number N written to a debug file makes
// the device interrupt N times:
//
//     board/run --module norv_board_uio sh -c 'echo 3 >/sys/kernel/debug/norv_board_uio/raise &&
//         build/release/examples/cpp/register_driver'
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <variant>

#include "norv/uio.hpp"
#include "program.hpp"

namespace {

// The device. It must not move while a task awaits it.
class inverter {
  public:
    static norv::result<inverter> open() {
        norv::result<norv::uio> device = norv::uio::open_by_name("norv-board-regs");
        if (!device) {
            return device.status();
        }
        if (device->read(identity) != expected_identity) {
            return norv::status(NORV_STATUS_NOT_AVAILABLE);
        }
        return inverter(std::move(*device));
    }

    uint32_t interrupts() const { return device_.read(interrupt_count); }

    // Writes an operand, waits for the interrupt, and returns the result.
    norv::task<norv::result<uint32_t>> invert(uint32_t value) {
        device_.write(operand, value);
        norv::status waited = device_.enable_irq();
        if (waited.ok()) {
            norv::uio_interrupts interrupts(device_);
            waited = co_await interrupts.next();
        }
        if (!waited.ok()) {
            device_.disable_irq().ignore();
            co_return waited;
        }
        co_return device_.read(complement);
    }

  private:
    static constexpr norv::reg identity{0x00};
    static constexpr norv::reg interrupt_count{0x04};
    static constexpr norv::reg operand{0x08};
    static constexpr norv::reg complement{0x0C};
    static constexpr uint32_t expected_identity = 0x4E4F5256;

    explicit inverter(norv::uio&& device) : device_(std::move(device)) {}

    norv::uio device_;
};

norv::task<norv::status> invert_numbers(inverter& device, uint32_t count) {
    for (uint32_t value = 1; value <= count; ++value) {
        const norv::result<uint32_t> inverted = co_await device.invert(value);
        if (!inverted) {
            co_return inverted.status();
        }
        std::printf("~%u is 0x%08x, after %u interrupts\n", value, *inverted, device.interrupts());
    }
    co_return norv::ok;
}

norv::task<norv::status> invert_until_terminated(inverter& device, uint32_t count, termination& end) {
    const auto first = co_await norv::when_any(invert_numbers(device, count), end.requested());
    co_return std::visit([](norv::status status) { return status; }, first);
}

}  // namespace

int main(int count, char** arguments) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    termination end;
    norv::loop loop = must("event loop", norv::loop::open());
    inverter device = must("norv-board-regs", inverter::open());
    const uint32_t numbers = count > 1 ? number(arguments[1]) : 3;
    const norv::status ended = norv::run(loop, invert_until_terminated(device, numbers, end));
    if (!ended.ok()) {
        report("norv-board-regs", ended);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
