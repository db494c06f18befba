/**
 * @file norv_zynq.h
 * Fabric clocks, temperatures and supply voltages of Zynq-7000 and ZynqMP devices.
 *
 * Fabric clocks are what the processing system feeds the programmable logic with: on Zynq through the class
 * /sys/class/fclkcfg, on ZynqMP through the platform devices /sys/devices/platform/fclkN. Temperatures and
 * voltages are channels of the system monitor, the IIO device iio:device0; they are converted in
 * single-precision arithmetic and rounded to the nearest integer.
 *
 * There is no handle and nothing to close. Any thread may call at any time. Attributes are read up to 15
 * bytes, the last of which is taken for the newline. Rates and Zynq readings are read as a long: where that
 * has 32 bits, as on a Zynq-7000, larger numbers become 2147483647. Scales are read as the program's locale
 * writes fractions: keep LC_NUMERIC at "C", as it is at a program's start.
 *
 *     int32_t temperature;
 *     uint32_t rate = 100000000;
 *     norv_zynq_set_fclk_freq(0, &rate);          // rate: what the clock really makes
 *     norv_zynq_get_temperature(&temperature);    // 3445 is 34.45 degrees Celsius
 */
#ifndef NORV_ZYNQ_H
#define NORV_ZYNQ_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/* ---- Zynq: fabric clocks ----------------------------------------------------------------------------- */

/**
 * Sets the rate of a fabric clock, and reads back what the clock generator made of it: writes
 * /sys/class/fclkcfg/fclkN/rate and reads it.
 *
 * @param index  number of the clock; printed signed
 * @param rate   in: Hz, printed signed, so that 2^31 and more become negative; out: the rate that the clock
 *               has now, or the one asked for when that could not be read back; untouched on failure;
 *               not null
 * @return 0 once the rate was written, whatever became of reading it back; NORV_STATUS_INVALID_ARG when
 *         `rate` is null or the driver refuses it; the errno status of opening or writing the attribute, for
 *         instance NORV_STATUS_NOT_FOUND: no such clock
 *
 * Blocks while the driver sets the clock. Any thread.
 */
NORV_API uint32_t norv_zynq_set_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Reads the rate of a fabric clock from /sys/class/fclkcfg/fclkN/rate.
 *
 * @param index  number of the clock; printed signed
 * @param rate   receives Hz; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `rate` is null; the errno status of opening or reading the
 *         attribute
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_zynq_get_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Holds a fabric clock's reset, or lets it go: writes "1" or "0" to /sys/class/fclkcfg/fclkN/reset.
 *
 * @param index  number of the clock; printed signed
 * @param reset  true: what the clock drives is held in reset
 * @return 0, also after a short write; the errno status of opening or writing the attribute
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_zynq_set_fclk_reset(uint32_t index, bool reset);

/* ---- Zynq: sensors ----------------------------------------------------------------------------------- */

/**
 * Measures the temperature of the device: in_temp0_raw of iio:device0, a 12-bit reading, as
 * (raw x 503.975 / 4096 - 273.15) degrees Celsius.
 *
 * @param temperature  receives hundredths of a degree Celsius; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `temperature` is null; the errno status of opening or reading the
 *         attribute, for instance NORV_STATUS_NOT_FOUND: no system monitor
 *
 * Blocks as long as a conversion takes. Any thread.
 */
NORV_API uint32_t norv_zynq_get_temperature(int32_t* temperature);

/**
 * Measures a voltage: in_NAME_raw of iio:device0, a 12-bit reading.
 *
 * @param channel    name of the channel as the system monitor has it, for instance "voltage0_vccint"; not
 *                   null
 * @param low_range  true: full scale is 1 V, as for the external inputs; false: 3 V, as for the supplies
 * @param voltage    receives millivolts; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of opening or reading the
 *         attribute, for instance NORV_STATUS_NOT_FOUND: no such channel
 *
 * Blocks as long as a conversion takes. Any thread.
 */
NORV_API uint32_t norv_zynq_get_voltage(const char* channel, bool low_range, int32_t* voltage);

/* ---- ZynqMP ------------------------------------------------------------------------------------------ */

/**
 * Reads the rate of a fabric clock from /sys/devices/platform/fclkN/set_rate. There is no function that sets
 * it.
 *
 * @param index  number of the clock; printed signed
 * @param rate   receives Hz; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `rate` is null; the errno status of opening or reading the
 *         attribute
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_zynqmp_get_fclk_freq(uint32_t index, uint32_t* rate);

/**
 * Measures the temperature of the processing system: (raw + offset) x scale / 10 of the channel
 * in_temp0_ps_temp of iio:device0.
 *
 * An offset or a scale that cannot be read counts as 0: without its scale the temperature is 0, and the
 * status is 0 all the same.
 *
 * @param temperature  receives hundredths of a degree Celsius; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `temperature` is null; the errno status of opening or reading
 *         in_temp0_ps_temp_raw
 *
 * Blocks as long as a conversion takes. Any thread.
 */
NORV_API uint32_t norv_zynqmp_get_ps_temperature(int32_t* temperature);

/**
 * `norv_zynqmp_get_ps_temperature` for the programmable logic: the channel in_temp2_pl_temp.
 *
 * @param temperature  receives hundredths of a degree Celsius; untouched on failure; not null
 * @return as `norv_zynqmp_get_ps_temperature`
 *
 * Blocks as long as a conversion takes. Any thread.
 */
NORV_API uint32_t norv_zynqmp_get_pl_temperature(int32_t* temperature);

/**
 * Measures a voltage: raw x scale of the channel in_NAME of iio:device0.
 *
 * The two halves are not alike: a raw value that cannot be read counts as 0 and gives 0 mV, a scale that
 * cannot be read is a failure.
 *
 * @param channel  name of the channel as the system monitor has it, for instance "voltage1_vccint"; not null
 * @param voltage  receives millivolts; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of opening or reading
 *         in_NAME_scale, for instance NORV_STATUS_NOT_FOUND: no such channel
 *
 * Blocks as long as a conversion takes. Any thread.
 */
NORV_API uint32_t norv_zynqmp_get_voltage(const char* channel, int32_t* voltage);

NORV_END_DECLS

#endif
