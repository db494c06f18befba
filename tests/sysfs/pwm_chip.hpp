// SPDX-License-Identifier: MIT
// The sysfs side of a PWM chip: exporting a channel creates its directory, unexporting removes it.
#pragma once

#include <cerrno>
#include <string_view>

#include "support/kernel_double.hpp"

namespace norv::test::pwm_chip {

inline constexpr const char* chip_export = "/sys/class/pwm/pwmchip3/export";
inline constexpr const char* chip_unexport = "/sys/class/pwm/pwmchip3/unexport";
inline constexpr const char* npwm = "/sys/class/pwm/pwmchip3/npwm";
inline constexpr const char* channel_directory = "/sys/class/pwm/pwmchip3/pwm2";
inline constexpr const char* enable = "/sys/class/pwm/pwmchip3/pwm2/enable";
inline constexpr const char* period = "/sys/class/pwm/pwmchip3/pwm2/period";
inline constexpr const char* duty_cycle = "/sys/class/pwm/pwmchip3/pwm2/duty_cycle";
inline constexpr const char* polarity = "/sys/class/pwm/pwmchip3/pwm2/polarity";
inline constexpr const char* capture = "/sys/class/pwm/pwmchip3/pwm2/capture";

inline void export_channel(kernel_double& kernel) {
    for (const char* attribute : {enable, period, duty_cycle, polarity}) {
        kernel.add_file(attribute);
    }
    kernel.add_file(capture, "20000 5000\n");
}

// Chip 3 with four channels, of which the kernel can export channel 2.
inline void add_chip(kernel_double& kernel) {
    kernel.add_file(npwm, "4\n");
    kernel.add_file(chip_export);
    kernel.add_file(chip_unexport);
    kernel.on_write(chip_export, [&](std::string_view text) {
        if (text.front() != '2') {
            return ENODEV;
        }
        export_channel(kernel);
        return 0;
    });
    kernel.on_write(chip_unexport, [&](std::string_view) {
        kernel.remove(channel_directory);
        return 0;
    });
}

}  // namespace norv::test::pwm_chip
