/**
 * @file norv_linux_pwm.h
 * PWM channels through the kernel's sysfs interface, /sys/class/pwm.
 *
 * Opening a channel exports it if it is not exported yet, closing always unexports it, also one that somebody
 * else had exported. A signal that runs may go on after that: stop it before closing. The handle holds two
 * numbers and no descriptor: every call opens one attribute, uses it once and closes it. All times are
 * nanoseconds. A handle is used by one thread at a time.
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

/** One channel; the storage is the caller's, `norv_linux_pwm_open` fills it. */
typedef struct {
    uint32_t chip;    /**< N of /sys/class/pwm/pwmchipN */
    uint32_t channel; /**< counted from 0 within the chip */
} norv_linux_pwm_t;

/**
 * Opens a channel: writes its number to pwmchipN/export, unless its directory is there already.
 *
 * Numbers are printed signed here and in every other call, and the directory's path is cut after 45
 * characters, which the kernel's numbers never reach.
 *
 * @param chip     N of /sys/class/pwm/pwmchipN
 * @param channel  counted from 0
 * @param pwm      filled, also when the call fails; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null; the errno status of opening or writing "export", for
 *         instance NORV_STATUS_NOT_FOUND: no such chip, ENODEV: no such channel, EBUSY: a kernel driver has
 *         it
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_pwm_open(uint32_t chip, uint32_t channel, norv_linux_pwm_t* pwm);

/**
 * Unexports the channel if it is exported, whoever exported it. The kernel does not stop its signal, and a
 * driver need not: call `norv_linux_pwm_enable` with false first, unless the signal is to go on.
 *
 * @param pwm  opened; may be null. A record of zeros that was never opened stands for channel 0 of chip 0,
 *             which is unexported. It is left as it is: a second close unexports the channel if it has been
 *             exported again
 *
 * Does not block. Never fails; what the kernel says of "unexport" is ignored.
 */
NORV_API void norv_linux_pwm_close(norv_linux_pwm_t* pwm);

/**
 * Reads how many channels a chip has: two characters of pwmchipN/npwm.
 *
 * A chip with 100 channels or more is reported by the first two digits of their number: 128 as 12. When the
 * seek or the read fails, which the kernel's attribute never does, the descriptor stays open.
 *
 * @param chip   N of /sys/class/pwm/pwmchipN
 * @param count  receives the number; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `count` is null; the errno status of opening, seeking or reading
 *         the attribute, for instance NORV_STATUS_NOT_FOUND: no such chip
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_pwm_get_nchannel(uint32_t chip, uint32_t* count);

/**
 * Starts or stops the signal: writes "1" or "0" to the channel's "enable".
 *
 * @param pwm     not null
 * @param enable  true: start; a period must have been set
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null, or the kernel has no period; the errno status of
 *         opening or writing the attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_pwm_enable(norv_linux_pwm_t* pwm, bool enable);

/**
 * Sets the length of a cycle: writes the channel's "period".
 *
 * @param pwm     not null
 * @param period  nanoseconds, no less than the duty; 2^31 and more is written as a negative number, which the
 *                kernel refuses
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null, or the kernel refuses the period; the errno status
 *         of opening or writing the attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_pwm_set_period(norv_linux_pwm_t* pwm, uint32_t period);

/**
 * Sets the active part of a cycle: writes the channel's "duty_cycle".
 *
 * @param pwm   not null
 * @param duty  nanoseconds, no more than the period; 2^31 and more is written as a negative number, which the
 *              kernel refuses
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null, or the kernel refuses the duty; the errno status of
 *         opening or writing the attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_pwm_set_duty(norv_linux_pwm_t* pwm, uint32_t duty);

/**
 * Chooses the level of the active part: writes "inversed" or "normal" to the channel's "polarity".
 *
 * @param pwm       not null
 * @param inversed  true: the active part is low; the signal must be stopped, and a period must have been set
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null, or the kernel has no period; the errno status of
 *         opening or writing the attribute, for instance EBUSY or EIO while the signal runs, as the driver
 *         chooses
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_pwm_set_polarity(norv_linux_pwm_t* pwm, bool inversed);

/**
 * Measures the signal at a channel whose driver can capture: reads the channel's "capture".
 *
 * How much was read is not checked. A text without numbers counts as success and gives 0 for both, an empty
 * one gives the errno status of the read, and 0 for both when there was no errno.
 *
 * @param pwm     not null
 * @param period  receives the length of a cycle in nanoseconds; may be null; untouched on failure
 * @param duty    receives the high part of it in nanoseconds; may be null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when `pwm` is null; the errno status of opening or reading the
 *         attribute, for instance ENOSYS: the driver cannot capture, or NORV_STATUS_TIMEOUT: no signal
 *
 * Blocks until the driver has measured one cycle, for one second at most.
 */
NORV_API uint32_t norv_linux_pwm_get_capture(norv_linux_pwm_t* pwm, uint32_t* period, uint32_t* duty);

NORV_END_DECLS

#endif
