// SPDX-License-Identifier: MIT
/**
 * @file norv/zynq.hpp
 * Fabric clocks, temperatures and supply voltages of Zynq-7000 (norv::zynq) and ZynqMP (norv::zynqmp)
 * devices. What the functions do, and their statuses, are those of norv_zynq.h.
 *
 *     uint32_t rate = norv::zynq::set_fclk_freq(0, 100000000).value();  // what the clock generates
 *     int32_t temperature = norv::zynq::get_temperature().value();      // 3445 is 34.45 degrees Celsius
 *     int32_t millivolts = norv::zynqmp::get_voltage("voltage1_vccint").value();
 *
 * A channel's name of 256 characters or more is an invalid argument.
 */
#pragma once

#include <cstdint>
#include <string_view>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_zynq.h"

namespace norv {

namespace detail {

// The number that a C function stores.
template <typename number, typename function>
result<number> get_zynq_number(function read_to) {
    number value = 0;
    const status read(read_to(&value));
    return read.ok() ? result<number>(value) : result<number>(read);
}

}  // namespace detail

namespace zynq {

/** The voltage at which a channel's reading ends. */
enum class full_scale { three_volts, one_volt };

/** Returns the rate that the clock has now. See `norv_zynq_set_fclk_freq`. */
inline result<uint32_t> set_fclk_freq(uint32_t index, uint32_t rate) {
    return detail::get_zynq_number<uint32_t>([=](uint32_t* to) {
        *to = rate;
        return norv_zynq_set_fclk_freq(index, to);
    });
}
/** Returns Hz. See `norv_zynq_get_fclk_freq`. */
inline result<uint32_t> get_fclk_freq(uint32_t index) {
    return detail::get_zynq_number<uint32_t>(
        [=](uint32_t* to) { return norv_zynq_get_fclk_freq(index, to); });
}
/** See `norv_zynq_set_fclk_reset`. */
inline status set_fclk_reset(uint32_t index, bool reset) {
    return status(norv_zynq_set_fclk_reset(index, reset));
}
/** Returns hundredths of a degree Celsius. See `norv_zynq_get_temperature`. */
inline result<int32_t> get_temperature() {
    return detail::get_zynq_number<int32_t>(norv_zynq_get_temperature);
}
/** Returns millivolts. See `norv_zynq_get_voltage`. */
inline result<int32_t> get_voltage(std::string_view channel, full_scale scale) {
    const detail::c_string name(channel);
    return detail::get_zynq_number<int32_t>(
        [&](int32_t* to) { return norv_zynq_get_voltage(name.get(), scale == full_scale::one_volt, to); });
}

}  // namespace zynq

namespace zynqmp {

/** Returns Hz. See `norv_zynqmp_get_fclk_freq`. */
inline result<uint32_t> get_fclk_freq(uint32_t index) {
    return detail::get_zynq_number<uint32_t>(
        [=](uint32_t* to) { return norv_zynqmp_get_fclk_freq(index, to); });
}
/** Returns hundredths of a degree Celsius. See `norv_zynqmp_get_ps_temperature`. */
inline result<int32_t> get_ps_temperature() {
    return detail::get_zynq_number<int32_t>(norv_zynqmp_get_ps_temperature);
}
/** Returns hundredths of a degree Celsius. See `norv_zynqmp_get_pl_temperature`. */
inline result<int32_t> get_pl_temperature() {
    return detail::get_zynq_number<int32_t>(norv_zynqmp_get_pl_temperature);
}
/** Returns millivolts. See `norv_zynqmp_get_voltage`. */
inline result<int32_t> get_voltage(std::string_view channel) {
    const detail::c_string name(channel);
    return detail::get_zynq_number<int32_t>(
        [&](int32_t* to) { return norv_zynqmp_get_voltage(name.get(), to); });
}

}  // namespace zynqmp

}  // namespace norv
