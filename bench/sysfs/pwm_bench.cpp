// SPDX-License-Identifier: MIT
// PWM calls beside the bare system calls they must make, on a channel of the virtual board.
#include <fcntl.h>
#include <norv_linux_pwm.h>
#include <unistd.h>

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
    norv_linux_pwm_t output;
    norv_linux_pwm_t input;
    succeed(norv_linux_pwm_open(0, 0, &output));
    succeed(norv_linux_pwm_open(0, 1, &input));
    succeed(norv_linux_pwm_set_period(&output, 20000));
    succeed(norv_linux_pwm_enable(&output, true));
    bench::add_pair({.name = "norv_linux_pwm_set_duty", .target = 1.05}, bare_set_duty,
                    [&] { succeed(norv_linux_pwm_set_duty(&output, 5000)); });
    bench::add_pair({.name = "norv_linux_pwm_get_capture", .target = 1.05}, bare_get_capture, [&] {
        uint32_t period = 0;
        uint32_t duty = 0;
        succeed(norv_linux_pwm_get_capture(&input, &period, &duty));
    });
    const int result = bench::run_rows(argc, argv);
    norv_linux_pwm_close(&input);
    norv_linux_pwm_close(&output);
    return result;
}
