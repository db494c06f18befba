// SPDX-License-Identifier: MIT
// GPIO calls beside the bare system calls they must make, on a line of the kernel that it runs on: needs line
// 16 as an output, as on the virtual board.
#include <fcntl.h>
#include <unistd.h>
#include <norv/gpio.hpp>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t line = 16;

void bare_get(int descriptor) {
    char text[2];
    bench::expect(lseek(descriptor, 0, SEEK_SET) == 0, "lseek");
    bench::expect(read(descriptor, text, sizeof text) > 0, "read");
}

void bare_set(int descriptor) {
    bench::expect(write(descriptor, "1", 2) == 2, "write");
}

void bare_set_direction() {
    const int descriptor = open("/sys/class/gpio/gpio16/direction", O_WRONLY | O_CLOEXEC);
    bench::expect(write(descriptor, "out", 4) == 4, "direction");
    close(descriptor);
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_gpio");
}

void add_rows(norv_linux_gpio_t* gpio) {
    const int descriptor = norv_linux_gpio_get_fd(gpio);
    bench::add_pair(
        {.name = "norv_linux_gpio_get_value", .target = 1.05}, [=] { bare_get(descriptor); },
        [=] {
            uint8_t value = 0;
            succeed(norv_linux_gpio_get_value(gpio, &value));
        });
    bench::add_pair(
        {.name = "norv_linux_gpio_set_value", .target = 1.05}, [=] { bare_set(descriptor); },
        [=] { succeed(norv_linux_gpio_set_value(gpio, true)); });
    bench::add_pair({.name = "norv_linux_gpio_set_dir", .target = 1.05}, bare_set_direction,
                    [=] { succeed(norv_linux_gpio_set_dir(gpio, true)); });
}

}  // namespace

int main(int argc, char** argv) {
    norv::gpio gpio = norv::gpio::open(line).value();
    gpio.set_direction(norv::gpio::direction::output).value();
    add_rows(gpio.get());
    return bench::run_rows(argc, argv);
}
