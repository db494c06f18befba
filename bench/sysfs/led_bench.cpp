// SPDX-License-Identifier: MIT
// LED calls beside the bare system calls they must make, on an LED of the virtual board.
#include <fcntl.h>
#include <norv_linux_led.h>
#include <unistd.h>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr const char* led = "norv:green:status";

void bare_set_brightness() {
    const int file = open("/sys/class/leds/norv:green:status/brightness", O_WRONLY | O_CLOEXEC);
    bench::expect(write(file, "77", 3) == 3, "brightness");
    close(file);
}

}  // namespace

int main(int argc, char** argv) {
    bench::add_pair({.name = "norv_linux_led_set_brightness", .target = 1.05}, bare_set_brightness, [] {
        bench::expect(norv_linux_led_set_brightness(led, 77) == NORV_STATUS_OK,
                      "norv_linux_led_set_brightness");
    });
    return bench::run_rows(argc, argv);
}
