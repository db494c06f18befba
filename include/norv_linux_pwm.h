/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_pwm.h
 * PWM channels through the kernel's sysfs interface, /sys/class/pwm. The conventions of norv_status.h hold.
 *
 * Opening a channel exports it unless it is exported already. Closing always unexports it, even one that
 * another process has exported (quirk 41), but does not stop its signal (quirk 42): stop it before. The
 * record holds no descriptor: each call opens an attribute, uses it once and closes it.
 *
 *     norv_linux_pwm_t fan;
 *     norv_linux_pwm_open(0, 2, &fan);
 *     norv_linux_pwm_set_period(&fan, 40000);
 *     norv_linux_pwm_set_duty(&fan, 10000);
 *     norv_linux_pwm_enable(&fan, true);
 *     sleep(10);
 *     norv_linux_pwm_enable(&fan, false);
 *     norv_linux_pwm_close(&fan);
 */
#ifndef NORV_LINUX_PWM_H
#define NORV_LINUX_PWM_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** One channel. */
typedef struct {
    uint32_t chip;    /**< N of /sys/class/pwm/pwmchipN */
    uint32_t channel; /**< counted from 0 within the chip */
} norv_linux_pwm_t;

/**
 * Opens a channel: writes its number to pwmchipN/export, unless its directory exists already.
 *
 * The number is written signed, too (quirk 2). The directory's path is truncated after 45 characters
 * (quirk 45), which the kernel's numbers never reach.
 *
 * @param chip     N of /sys/class/pwm/pwmchipN
 * @param channel  counted from 0
 * @param pwm      receives both numbers, even if the call fails
 * @retval NORV_STATUS_NOT_FOUND  there is no such chip
 * @retval ENODEV                 the chip has no such channel
 * @retval EBUSY                  a kernel driver uses the channel
 * @retval errno                  of opening or writing "export"
 */
NORV_API uint32_t norv_linux_pwm_open(uint32_t chip, uint32_t channel, norv_linux_pwm_t* pwm);

/**
 * Unexports the channel if it is exported. What the kernel answers is ignored.
 *
 * The kernel does not stop the signal, and a driver need not (quirk 42): call `norv_linux_pwm_enable` with
 * false first, unless the signal is to continue. The numbers stay in the record: a second close, or a close
 * after a failed open, unexports the channel if it has been exported since, and closing a record of zeros
 * that was never opened unexports channel 0 of chip 0 (quirk 43).
 *
 * @param pwm  opened; may be null
 */
NORV_API void norv_linux_pwm_close(norv_linux_pwm_t* pwm);

/**
 * Reads the number of channels of a chip: at most two characters of pwmchipN/npwm.
 *
 * Of 100 channels or more, the first two digits are reported: 12 for 128 (quirk 46). If the seek or the read
 * fails, which the kernel's attribute never does, the descriptor stays open (quirk 47).
 *
 * @param chip   N of /sys/class/pwm/pwmchipN
 * @param count  receives the number
 * @retval NORV_STATUS_NOT_FOUND  there is no such chip
 * @retval errno                  of opening, seeking or reading the attribute
 */
NORV_API uint32_t norv_linux_pwm_get_nchannel(uint32_t chip, uint32_t* count);

/**
 * Starts or stops the signal: writes "1" or "0" to the channel's "enable".
 *
 * @param pwm     an open channel
 * @param enable  true: start; a period must have been set
 * @retval NORV_STATUS_INVALID_ARG  the channel has no period
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_pwm_enable(norv_linux_pwm_t* pwm, bool enable);

/**
 * Sets the length of a cycle: writes the channel's "period".
 *
 * @param pwm     an open channel
 * @param period  nanoseconds; 2^31 or more is written as a negative number (quirk 44)
 * @retval NORV_STATUS_INVALID_ARG  less than the duty, 2^31 or more, or refused by the driver
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_pwm_set_period(norv_linux_pwm_t* pwm, uint32_t period);

/**
 * Sets the active part of a cycle: writes the channel's "duty_cycle".
 *
 * @param pwm   an open channel
 * @param duty  nanoseconds; 2^31 or more is written as a negative number (quirk 44)
 * @retval NORV_STATUS_INVALID_ARG  more than the period, 2^31 or more, or refused by the driver
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_pwm_set_duty(norv_linux_pwm_t* pwm, uint32_t duty);

/**
 * Selects the level of the active part: writes "inversed" or "normal" to the channel's "polarity".
 *
 * @param pwm       an open channel, stopped and with a period
 * @param inversed  true: the active part is low
 * @retval NORV_STATUS_INVALID_ARG  the channel has no period, or its driver cannot invert
 * @retval EBUSY                    the signal is running; some drivers report NORV_STATUS_DEVICE_ERROR
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_pwm_set_polarity(norv_linux_pwm_t* pwm, bool inversed);

/**
 * Measures the signal on a channel whose driver can capture: reads the channel's "capture".
 *
 * The text is not checked: a number that it does not contain is 0, and a text without numbers counts as a
 * success (quirk 48).
 *
 * @param pwm     an open channel
 * @param period  receives the length of a cycle in nanoseconds; may be null
 * @param duty    receives the length of its high part in nanoseconds; may be null
 * @retval ENOSYS               the driver cannot capture
 * @retval NORV_STATUS_TIMEOUT  there is no signal
 * @retval errno                of opening or reading the attribute
 *
 * Blocks until the driver has measured one cycle, for up to one second.
 */
NORV_API uint32_t norv_linux_pwm_get_capture(norv_linux_pwm_t* pwm, uint32_t* period, uint32_t* duty);

NORV_END_DECLS

#endif
