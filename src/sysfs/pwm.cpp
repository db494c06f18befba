// SPDX-License-Identifier: MIT
// PWM channels through /sys/class/pwm.
#include "norv_linux_pwm.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/status.hpp"
#include "core/sysfs.hpp"

static_assert(sizeof(norv_linux_pwm_t) == 8 && offsetof(norv_linux_pwm_t, channel) == 4);

namespace {

constexpr uint32_t number_size = 12;  // "-2147483648" with its NUL

bool is_exported(const norv_linux_pwm_t* pwm) {
    constexpr size_t path_size = 46;  // quirk 45: numbers of ten digits do not fit
    return norv::is_directory<path_size>("/sys/class/pwm/pwmchip%d/pwm%d", pwm->chip, pwm->channel);
}

// Numbers are printed signed: quirk 2.
uint32_t write_chip(const norv_linux_pwm_t* pwm, const char* name) {
    return norv::attribute(O_WRONLY, "/sys/class/pwm/pwmchip%d/%s", pwm->chip, name)
        .write(number_size, "%d", pwm->channel);
}

norv::attribute channel_attribute(const norv_linux_pwm_t* pwm, uint32_t flags, const char* name) {
    return {flags, "/sys/class/pwm/pwmchip%d/pwm%d/%s", pwm->chip, pwm->channel, name};
}

template <typename text>
uint32_t write_channel(const norv_linux_pwm_t* pwm, const char* name, uint32_t maximum, const char* format,
                       text value) {
    return pwm == nullptr ? NORV_STATUS_INVALID_ARG
                          : channel_attribute(pwm, O_WRONLY, name).write(maximum, format, value);
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
    NORV_TRY(norv_open_device(O_RDONLY | O_CLOEXEC, &file, "/sys/class/pwm/pwmchip%d/%s", chip, "npwm"));
    char text[3] = {};
    // quirk 47: if this or the read fails, the descriptor stays open.
    NORV_TRY(norv::status_of(lseek(file, 0, SEEK_SET)));
    // quirk 46: two digits at most.
    NORV_TRY(norv::status_of(read(file, text, sizeof text - 1)));
    *count = static_cast<uint32_t>(strtoul(text, nullptr, 10));
    norv::close_descriptor(file);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_pwm_enable(norv_linux_pwm_t* pwm, bool enable) {
    return write_channel(pwm, "enable", 2, "%s", enable ? "1" : "0");
}

// quirk 44: printed signed.
uint32_t norv_linux_pwm_set_period(norv_linux_pwm_t* pwm, uint32_t period) {
    return write_channel(pwm, "period", number_size, "%d", period);
}

uint32_t norv_linux_pwm_set_duty(norv_linux_pwm_t* pwm, uint32_t duty) {
    return write_channel(pwm, "duty_cycle", number_size, "%d", duty);
}

uint32_t norv_linux_pwm_set_polarity(norv_linux_pwm_t* pwm, bool inversed) {
    return write_channel(pwm, "polarity", 9, "%s", inversed ? "inversed" : "normal");
}

uint32_t norv_linux_pwm_get_capture(norv_linux_pwm_t* pwm, uint32_t* period, uint32_t* duty) {
    if (pwm == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const norv::attribute capture = channel_attribute(pwm, O_RDONLY, "capture");
    NORV_TRY(capture.status());
    char text[129] = {};
    int32_t values[2] = {};
    // quirk 48: how much was read is not checked, and a number that the text lacks is 0. The status is taken
    // here because sscanf may change errno.
    const uint32_t status = norv::status_of(read(capture.descriptor(), text, sizeof text - 1));
    if (sscanf(text, "%d %d", &values[0], &values[1]) == EOF && status != NORV_STATUS_OK) {
        return status;
    }
    if (period != nullptr) {
        *period = static_cast<uint32_t>(values[0]);
    }
    if (duty != nullptr) {
        *duty = static_cast<uint32_t>(values[1]);
    }
    return NORV_STATUS_OK;
}
