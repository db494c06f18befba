// SPDX-License-Identifier: MIT
// Fabric clocks and system-monitor sensors of Zynq and ZynqMP.
#include "norv_zynq.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "core/attribute.hpp"
#include "core/status.hpp"

namespace {

constexpr uint32_t text_size = 16;

// Numbers are printed signed: quirk 2.
constexpr const char* zynq_rate = "/sys/class/fclkcfg/fclk%d/rate";
constexpr const char* zynqmp_rate = "/sys/devices/platform/fclk%d/set_rate";

// quirk 81: sensor values are computed in floats.
constexpr float per_step = 0.000244140625F;  // 1/4096: readings have 12 bits

// quirk 77: a number that a long cannot hold becomes the nearest one that it can.
// quirk 78: a leading zero makes a number octal, a leading 0x hexadecimal.
constexpr norv::number_base base = norv::number_base::literal;

norv::file_path sensor(const char* channel, const char* attribute) {
    return {"/sys/bus/iio/devices/iio:device0/in_%s_%s", channel, attribute};
}

// Leaves the number unchanged if the attribute cannot be read.
uint32_t read_real(const norv::file_path& path, float* number) {
    char text[text_size];
    NORV_TRY(norv::read_text(path, text, norv::last_byte::dropped));
    *number = static_cast<float>(strtod(text, nullptr));
    return NORV_STATUS_OK;
}

uint32_t read_rate(const norv::file_path& path, uint32_t* rate) {
    if (rate == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    long number;
    NORV_TRY(norv::read_number(path, base, &number));
    *rate = static_cast<uint32_t>(number);
    return NORV_STATUS_OK;
}

// A value outside the range becomes the nearest integer in it, and NaN becomes 0.
int32_t rounded(float value) {
    constexpr float limit = 2147483648.0F;
    const float whole = roundf(value);
    if (std::isnan(whole)) {
        return 0;
    }
    if (whole >= limit) {
        return INT32_MAX;
    }
    return whole < -limit ? INT32_MIN : static_cast<int32_t>(whole);
}

uint32_t measure_temperature(const char* channel, int32_t* temperature) {
    if (temperature == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    float raw = 0;
    float offset = 0;
    float scale = 0;
    // quirk 79: an offset or scale that cannot be read is 0.
    read_real(sensor(channel, "offset"), &offset);
    read_real(sensor(channel, "scale"), &scale);
    NORV_TRY(read_real(sensor(channel, "raw"), &raw));
    // The scale is in thousandths of a degree.
    *temperature = rounded((raw + offset) * scale / 10.0F);
    return NORV_STATUS_OK;
}

}  // namespace

uint32_t norv_zynq_set_fclk_freq(uint32_t index, uint32_t* rate) {
    if (rate == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const norv::file_path path(zynq_rate, index);
    char text[text_size];
    // quirk 76: printed signed, so 2^31 Hz or more become negative.
    snprintf(text, sizeof text, "%d", *rate);
    NORV_TRY(norv::write_text(path, text));
    // quirk 75: read into the buffer of the requested rate, which is returned if the read fails, because the
    // clock was set.
    uint32_t length = sizeof text - 1;
    if (norv::read_bytes(path, text, &length) == NORV_STATUS_OK && length > 0) {
        text[length - 1] = '\0';  // quirk 5
    }
    *rate = static_cast<uint32_t>(strtol(text, nullptr, static_cast<int>(base)));
    return NORV_STATUS_OK;
}

uint32_t norv_zynq_get_fclk_freq(uint32_t index, uint32_t* rate) {
    return read_rate({zynq_rate, index}, rate);
}

uint32_t norv_zynq_set_fclk_reset(uint32_t index, bool reset) {
    return norv::write_text({"/sys/class/fclkcfg/fclk%d/reset", index}, reset ? "1" : "0");
}

uint32_t norv_zynq_get_temperature(int32_t* temperature) {
    if (temperature == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    long raw;
    NORV_TRY(norv::read_number(sensor("temp0", "raw"), base, &raw));
    // quirk 82: an int.
    *temperature = rounded(static_cast<float>(static_cast<int>(raw)) * 50397.5F * per_step - 27315.0F);
    return NORV_STATUS_OK;
}

uint32_t norv_zynq_get_voltage(const char* channel, bool low_range, int32_t* voltage) {
    if (channel == nullptr || voltage == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    long raw;
    NORV_TRY(norv::read_number(sensor(channel, "raw"), base, &raw));
    *voltage = rounded(static_cast<float>(raw) * (low_range ? 1000.0F : 3000.0F) * per_step);
    return NORV_STATUS_OK;
}

uint32_t norv_zynqmp_get_fclk_freq(uint32_t index, uint32_t* rate) {
    return read_rate({zynqmp_rate, index}, rate);
}

uint32_t norv_zynqmp_get_ps_temperature(int32_t* temperature) {
    return measure_temperature("temp0_ps_temp", temperature);
}

uint32_t norv_zynqmp_get_pl_temperature(int32_t* temperature) {
    return measure_temperature("temp2_pl_temp", temperature);
}

uint32_t norv_zynqmp_get_voltage(const char* channel, int32_t* voltage) {
    if (channel == nullptr || voltage == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    float raw = 0;
    float scale = 0;
    // quirk 80: a missing raw value is 0, and a missing scale is a failure.
    read_real(sensor(channel, "raw"), &raw);
    NORV_TRY(read_real(sensor(channel, "scale"), &scale));
    *voltage = rounded(raw * scale);
    return NORV_STATUS_OK;
}
