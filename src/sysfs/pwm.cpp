// SPDX-License-Identifier: MIT
// PWM channels through /sys/class/pwm.
#include "norv_linux_pwm.h"

#include <fcntl.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"

NORV_OFFSETS(norv_linux_pwm_t, 8, chip, 0, channel, 4);

namespace {

// Numbers are printed signed: quirk 2.
bool is_exported(const norv_linux_pwm_t* pwm) {
    char path[46];  // quirk 45: numbers of ten digits do not fit
    snprintf(path, sizeof path, "/sys/class/pwm/pwmchip%d/pwm%d", pwm->chip, pwm->channel);
    return norv::is_directory(path);
}

norv::file_path chip_attribute(uint32_t chip, const char* name) {
    return {"/sys/class/pwm/pwmchip%d/%s", chip, name};
}

norv::file_path channel_attribute(const norv_linux_pwm_t* pwm, const char* name) {
    if (pwm == nullptr) {
        return {};
    }
    return {"/sys/class/pwm/pwmchip%d/pwm%d/%s", pwm->chip, pwm->channel, name};
}

uint32_t write_chip(const norv_linux_pwm_t* pwm, const char* name) {
    return norv::write_number(chip_attribute(pwm->chip, name), static_cast<int32_t>(pwm->channel));
}

}  // namespace

uint32_t norv_linux_pwm_open(uint32_t chip, uint32_t channel, norv_linux_pwm_t* pwm) {
    if (pwm == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *pwm = {chip, channel};
    return is_exported(pwm) ? NORV_STATUS_OK : write_chip(pwm, "export");
}

void norv_linux_pwm_close(norv_linux_pwm_t* pwm) {
    // quirk 41: a closed channel is free, whoever exported it. quirk 42: its signal is not stopped.
    // quirk 43: a record of zeros denotes channel 0 of chip 0, and a closed one still its channel.
    if (pwm != nullptr && is_exported(pwm)) {
        write_chip(pwm, "unexport");
    }
}

uint32_t norv_linux_pwm_get_nchannel(uint32_t chip, uint32_t* count) {
    if (count == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    int32_t file = -1;
    NORV_TRY(norv::open_file(O_RDONLY | O_CLOEXEC, chip_attribute(chip, "npwm"), &file));
    char text[3] = {};  // quirk 46: two digits at most
    // quirk 47: after a failure the descriptor stays open.
    NORV_TRY(norv::rewind_and_read(file, text, sizeof text - 1));
    *count = static_cast<uint32_t>(strtoul(text, nullptr, 10));
    norv::close_descriptor(file);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_pwm_enable(norv_linux_pwm_t* pwm, bool enable) {
    return norv::write_text(channel_attribute(pwm, "enable"), enable ? "1" : "0");
}

// quirk 44: printed signed.
uint32_t norv_linux_pwm_set_period(norv_linux_pwm_t* pwm, uint32_t period) {
    return norv::write_number(channel_attribute(pwm, "period"), static_cast<int32_t>(period));
}

uint32_t norv_linux_pwm_set_duty(norv_linux_pwm_t* pwm, uint32_t duty) {
    return norv::write_number(channel_attribute(pwm, "duty_cycle"), static_cast<int32_t>(duty));
}

uint32_t norv_linux_pwm_set_polarity(norv_linux_pwm_t* pwm, bool inversed) {
    return norv::write_text(channel_attribute(pwm, "polarity"), inversed ? "inversed" : "normal");
}

uint32_t norv_linux_pwm_get_capture(norv_linux_pwm_t* pwm, uint32_t* period, uint32_t* duty) {
    char text[129];
    NORV_TRY(norv::read_text(channel_attribute(pwm, "capture"), text, norv::last_byte::kept));
    int32_t values[2] = {};
    // quirk 48: how much was read is not checked, and a number that the text lacks is 0.
    sscanf(text, "%d %d", &values[0], &values[1]);
    if (period != nullptr) {
        *period = static_cast<uint32_t>(values[0]);
    }
    if (duty != nullptr) {
        *duty = static_cast<uint32_t>(values[1]);
    }
    return NORV_STATUS_OK;
}
