/* SPDX-License-Identifier: MIT */
/**
 * @file norv_zynq.h
 * Fabric clocks, temperatures and supply voltages of Zynq-7000 and ZynqMP devices. The conventions of
 * norv_status.h hold.
 *
 * Fabric clocks feed the programmable logic: on a Zynq they are devices of the class /sys/class/fclkcfg, on a
 * ZynqMP the platform devices /sys/devices/platform/fclkN. Temperatures and voltages are channels of the
 * system monitor, the IIO device iio:device0. There is no handle and nothing to close.
 *
 * At most 15 bytes of an attribute are read, and the last one is dropped, whether or not it is a newline
 * (quirk 5). An empty attribute is 0, as is one whose failed read has the status 0 (quirk 1). Rates and Zynq
 * readings are parsed as a `long`: where that has 32 bits, as on a Zynq-7000, larger numbers become 2147483647
 * (quirk 77). 0x before a number makes it hexadecimal, a leading zero octal (quirk 78). ZynqMP readings, offsets and scales are parsed with the program's locale:
 * keep LC_NUMERIC at "C", its initial value, or fractions may be lost.
 *
 * Measurements are computed in single precision (quirk 81) and rounded to the nearest integer, halves away
 * from zero. A result that 32 bits cannot hold becomes the nearest number that they can, and NaN becomes 0.
 *
 *     int32_t temperature;
 *     uint32_t rate = 100000000;
 *     norv_zynq_set_fclk_freq(0, &rate);        // rate: what the clock really generates
 *     norv_zynq_get_temperature(&temperature);  // 3445 is 34.45 degrees Celsius
 */
#ifndef NORV_ZYNQ_H
#define NORV_ZYNQ_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/* ---- Zynq: fabric clocks ----------------------------------------------------------------------------- */

/**
 * Sets the rate of a fabric clock: writes /sys/class/fclkcfg/fclkN/rate, and reads back what the clock
 * generator made of it.
 *
 * @param index  number of the clock
 * @param rate   Hz; 2^31 and above are written as a negative number (quirk 76). Receives the rate that the
 *               clock has now, or keeps the requested one if that cannot be read back or is empty (quirk 75)
 * @retval NORV_STATUS_NOT_FOUND    there is no such clock
 * @retval NORV_STATUS_INVALID_ARG  the driver refuses the rate
 * @retval errno                    of opening or writing the attribute
 *
 * Blocks while the driver sets the clock.
 */
NORV_API uint32_t norv_zynq_set_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Reads the rate of a fabric clock from /sys/class/fclkcfg/fclkN/rate.
 *
 * @param index  number of the clock
 * @param rate   receives Hz
 * @retval NORV_STATUS_NOT_FOUND  there is no such clock
 * @retval errno                  of opening or reading the attribute
 */
NORV_API uint32_t norv_zynq_get_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Holds a fabric clock in reset or releases it: writes "1" or "0" to /sys/class/fclkcfg/fclkN/reset. A short
 * write counts as a success.
 *
 * @param index  number of the clock
 * @param reset  true: what the clock drives is held in reset
 * @retval NORV_STATUS_NOT_FOUND  there is no such clock
 * @retval errno                  of opening or writing the attribute
 */
NORV_API uint32_t norv_zynq_set_fclk_reset(uint32_t index, bool reset);

/* ---- Zynq: sensors ----------------------------------------------------------------------------------- */

/**
 * Measures the temperature of the device: in_temp0_raw of iio:device0, a 12-bit reading, as
 * (raw x 503.975 / 4096 - 273.15) degrees Celsius. Only 32 bits of the reading count (quirk 82).
 *
 * @param temperature  receives hundredths of a degree Celsius
 * @retval NORV_STATUS_NOT_FOUND  there is no system monitor
 * @retval errno                  of opening or reading the attribute
 *
 * Blocks while a conversion takes place.
 */
NORV_API uint32_t norv_zynq_get_temperature(int32_t* temperature);

/**
 * Measures a voltage: in_NAME_raw of iio:device0, a 12-bit reading.
 *
 * @param channel    name of the channel in the system monitor, for instance "voltage0_vccint"
 * @param low_range  full scale: true: 1 V, as for the external inputs; false: 3 V, as for the supplies
 * @param voltage    receives millivolts
 * @retval NORV_STATUS_NOT_FOUND  there is no such channel
 * @retval errno                  of opening or reading the attribute
 *
 * Blocks while a conversion takes place.
 */
NORV_API uint32_t norv_zynq_get_voltage(const char* channel, bool low_range, int32_t* voltage);

/* ---- ZynqMP ------------------------------------------------------------------------------------------ */

/**
 * Reads the rate of a fabric clock from /sys/devices/platform/fclkN/set_rate. There is no function that sets
 * it.
 *
 * @param index  number of the clock
 * @param rate   receives Hz
 * @retval NORV_STATUS_NOT_FOUND  there is no such clock
 * @retval errno                  of opening or reading the attribute
 */
NORV_API uint32_t norv_zynqmp_get_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Measures the temperature of the processing system: (raw + offset) x scale / 10 of the channel
 * in_temp0_ps_temp of iio:device0.
 *
 * An offset or a scale that cannot be read counts as 0: without a scale the temperature is 0, with status 0
 * (quirk 79).
 *
 * @param temperature  receives hundredths of a degree Celsius
 * @retval NORV_STATUS_NOT_FOUND  there is no system monitor
 * @retval errno                  of opening or reading in_temp0_ps_temp_raw
 *
 * Blocks while a conversion takes place.
 */
NORV_API uint32_t norv_zynqmp_get_ps_temperature(int32_t* temperature);

/**
 * Measures the temperature of the programmable logic, like `norv_zynqmp_get_ps_temperature`: the channel
 * in_temp2_pl_temp.
 *
 * @param temperature  receives hundredths of a degree Celsius
 * @retval NORV_STATUS_NOT_FOUND  there is no system monitor
 * @retval errno                  of opening or reading in_temp2_pl_temp_raw
 *
 * Blocks while a conversion takes place.
 */
NORV_API uint32_t norv_zynqmp_get_pl_temperature(int32_t* temperature);

/**
 * Measures a voltage: raw x scale of the channel in_NAME of iio:device0.
 *
 * A raw value that cannot be read counts as 0 and gives 0 mV with status 0, but a scale that cannot be read
 * is a failure (quirk 80).
 *
 * @param channel  name of the channel in the system monitor, for instance "voltage1_vccint"
 * @param voltage  receives millivolts
 * @retval NORV_STATUS_NOT_FOUND  there is no such channel
 * @retval errno                  of opening or reading in_NAME_scale
 *
 * Blocks while a conversion takes place.
 */
NORV_API uint32_t norv_zynqmp_get_voltage(const char* channel, int32_t* voltage);

NORV_END_DECLS

#endif
