// SPDX-License-Identifier: MIT
//
// Lines and signals of the kernel's attribute files:
//
//     sysfs gpio OUTPUT INPUT       drives one line, and reports the edges of another one
//     sysfs led NAME                lets the kernel blink an LED, and flashes it once
//     sysfs pwm CHIP OUTPUT INPUT   sweeps the duty of one channel, and measures it at another one
#include <chrono>
#include <thread>

#include "norv/gpio.hpp"
#include "norv/led.hpp"
#include "norv/pwm.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

norv::task<norv::status> report_edges(norv::gpio& input, int count) {
    norv::gpio_edges edges(input);
    for (int edge = 1; edge <= count; ++edge) {
        const norv::result<bool> level = co_await edges.next();
        if (!level) {
            co_return level.status();
        }
        std::printf("  edge %d   level %d\n", edge, *level);
    }
    co_return norv::ok;
}

void show_gpio(char** arguments) {
    norv::gpio output = norv::gpio::open(number(arguments[0])).value();
    output.set_direction(norv::gpio::direction::output).value();
    norv::gpio input = norv::gpio::open(number(arguments[1])).value();
    input.set_direction(norv::gpio::direction::input).value();
    input.set_edge(norv::gpio::edge::rising).value();
    input.get_value().value();  // or the kernel reports the line once before its first edge

    bool high = false;
    norv::loop loop = norv::loop::open().value();
    norv::timer driver([&] { output.set_value(high = !high).value(); });
    driver.start_periodic(loop, 20ms).value();
    norv::run(loop, report_edges(input, 3)).value();
}

void show_led(char** arguments) {
    const norv::led led(arguments[0]);
    std::printf("  %s blinks\n", arguments[0]);
    led.set_trigger("timer").value();
    led.set_delay(100ms, 150ms).value();
    std::this_thread::sleep_for(1s);

    std::printf("  %s flashes once\n", arguments[0]);
    led.set_trigger("oneshot").value();
    led.set_delay(100ms, 150ms).value();
    led.trigger_shot().value();
}

void show_pwm(char** arguments) {
    norv::pwm output = norv::pwm::open(number(arguments[0]), number(arguments[1])).value();
    norv::pwm input = norv::pwm::open(number(arguments[0]), number(arguments[2])).value();
    const std::chrono::nanoseconds period = 50us;
    output.set_period(period).value();
    output.set_polarity(norv::pwm::polarity::normal).value();
    output.enable(true).value();

    for (int percent = 0; percent <= 100; percent += 20) {
        output.set_duty(period / 100 * percent).value();
        const norv::pwm::capture measured = input.get_capture().value();
        std::printf("  duty %3d %%   measured %lld ns of %lld ns\n", percent,
                    static_cast<long long>(measured.duty.count()),
                    static_cast<long long>(measured.period.count()));
    }
    output.enable(false).value();
}

constexpr family families[] = {{"gpio", 2, show_gpio}, {"led", 1, show_led}, {"pwm", 3, show_pwm}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
