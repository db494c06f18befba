// SPDX-License-Identifier: MIT
// PWM calls beside the bare system calls they must make, on a channel of the virtual board.
#include <fcntl.h>
#include <unistd.h>
#include <norv/pwm.hpp>

#include <chrono>
#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void bare_set_duty() {
    const int file = open("/sys/class/pwm/pwmchip0/pwm0/duty_cycle", O_WRONLY | O_CLOEXEC);
    bench::expect(write(file, "5000", 5) == 5, "duty_cycle");
    close(file);
}

void bare_get_capture() {
    char text[128];
    const int file = open("/sys/class/pwm/pwmchip0/pwm1/capture", O_RDONLY | O_CLOEXEC);
    bench::expect(read(file, text, sizeof text) > 0, "capture");
    close(file);
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_pwm");
}

}  // namespace

int main(int argc, char** argv) {
    norv::pwm output = norv::pwm::open(0, 0).value();
    norv::pwm input = norv::pwm::open(0, 1).value();
    output.set_period(std::chrono::microseconds(20)).value();
    output.enable(true).value();
    bench::add_pair({.name = "norv_linux_pwm_set_duty", .target = 1.05}, bare_set_duty,
                    [channel = output.get()] { succeed(norv_linux_pwm_set_duty(channel, 5000)); });
    bench::add_pair({.name = "norv_linux_pwm_get_capture", .target = 1.05}, bare_get_capture,
                    [channel = input.get()] {
                        uint32_t period = 0;
                        uint32_t duty = 0;
                        succeed(norv_linux_pwm_get_capture(channel, &period, &duty));
                    });
    return bench::run_rows(argc, argv);
}
