/**
 * @file norv_linux_led.h
 * LEDs of the kernel's LED class, /sys/class/leds.
 *
 * An LED is addressed by its name, that of its directory. There is no handle and nothing to close: every call
 * opens one attribute, writes it with one write(2), its terminating NUL included, and closes it. Any thread
 * may call at any time.
 *
 *     norv_linux_led_set_brightness("green:status", 255);
 *     norv_linux_led_set_trigger("red:alarm", "timer");
 *     norv_linux_led_set_delay("red:alarm", 100, 900);
 */
#ifndef NORV_LINUX_LED_H
#define NORV_LINUX_LED_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Chooses what drives an LED: writes the name of a trigger to /sys/class/leds/NAME/trigger.
 *
 * "none" leaves it to `norv_linux_led_set_brightness`; "timer" blinks, see `norv_linux_led_set_delay`;
 * "oneshot" waits for `norv_linux_led_trigger_shot`. Reading the attribute lists what the kernel offers.
 *
 * @param name     the LED's directory; not null
 * @param trigger  the trigger's name; not null
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when a pointer is null, or the kernel knows no
 *         such trigger; the errno status of opening or writing the attribute, for instance
 *         NORV_STATUS_NOT_FOUND: no such LED
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_led_set_trigger(const char* name, const char* trigger);

/**
 * Lights or dims an LED: writes a decimal number to /sys/class/leds/NAME/brightness.
 *
 * 0 also takes the LED from its trigger. The kernel cuts what exceeds the LED's max_brightness.
 *
 * @param name        the LED's directory; not null
 * @param brightness  0 to 255; of any other value the low 8 bits count: 256 is written as 0, -1 as 255
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when `name` is null; the errno status of
 *         opening or writing the attribute
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_led_set_brightness(const char* name, int32_t brightness);

/**
 * Sets the rhythm of an LED whose trigger is "timer" or "oneshot": writes /sys/class/leds/NAME/delay_on, and
 * then delay_off.
 *
 * @param name  the LED's directory; not null
 * @param on    milliseconds that it is lit
 * @param off   milliseconds that it is dark
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when `name` is null, or the kernel refuses a
 *         negative time; the errno status of opening or writing an attribute, for instance
 *         NORV_STATUS_NOT_FOUND: another trigger is set. The first failure ends the call: delay_off is then
 *         not touched, while a failure with delay_off leaves the new delay_on
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_led_set_delay(const char* name, int32_t on, int32_t off);

/**
 * Flashes an LED whose trigger is "oneshot" once: writes "1" to /sys/class/leds/NAME/shot.
 *
 * @param name  the LED's directory; not null
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when `name` is null; the errno status of
 *         opening or writing the attribute, for instance NORV_STATUS_NOT_FOUND: another trigger is set
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_led_trigger_shot(const char* name);

NORV_END_DECLS

#endif
