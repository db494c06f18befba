// SPDX-License-Identifier: MIT
// Clock and sensor calls beside the bare system calls they must make, on the kernel that they run on: needs
// the clocks and the system monitor of the virtual board.
#include <fcntl.h>
#include <norv_zynq.h>
#include <unistd.h>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void bare_read(const char* path) {
    char text[15];
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    bench::expect(read(descriptor, text, sizeof text) > 0, path);
    close(descriptor);
}

void bare_write(const char* path, const char* text, size_t size) {
    const int descriptor = open(path, O_WRONLY | O_CLOEXEC);
    bench::expect(write(descriptor, text, size) > 0, path);
    close(descriptor);
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_zynq");
}

void add_clock_rows() {
    bench::add_pair(
        {.name = "norv_zynq_get_fclk_freq", .target = 1.05},
        [] { bare_read("/sys/class/fclkcfg/fclk0/rate"); },
        [] {
            uint32_t rate = 0;
            succeed(norv_zynq_get_fclk_freq(0, &rate));
        });
    bench::add_pair(
        {.name = "norv_zynq_set_fclk_freq", .target = 1.05},
        [] {
            bare_write("/sys/class/fclkcfg/fclk0/rate", "100000000", 10);
            bare_read("/sys/class/fclkcfg/fclk0/rate");
        },
        [] {
            uint32_t rate = 100000000;
            succeed(norv_zynq_set_fclk_freq(0, &rate));
        });
}

void add_sensor_rows() {
    bench::add_pair(
        {.name = "norv_zynq_get_temperature", .target = 1.05},
        [] { bare_read("/sys/bus/iio/devices/iio:device0/in_temp0_raw"); },
        [] {
            int32_t temperature = 0;
            succeed(norv_zynq_get_temperature(&temperature));
        });
    bench::add_pair(
        {.name = "norv_zynqmp_get_ps_temperature", .target = 1.05},
        [] {
            bare_read("/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_offset");
            bare_read("/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_scale");
            bare_read("/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw");
        },
        [] {
            int32_t temperature = 0;
            succeed(norv_zynqmp_get_ps_temperature(&temperature));
        });
}

}  // namespace

int main(int argc, char** argv) {
    add_clock_rows();
    add_sensor_rows();
    return bench::run_rows(argc, argv);
}
