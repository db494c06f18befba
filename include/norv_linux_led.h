/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_led.h
 * LEDs of the kernel's LED class, /sys/class/leds. The conventions of norv_status.h hold.
 *
 * An LED is addressed by the name of its directory. There is no handle: each call opens an attribute, makes
 * one write(2), which includes the terminating NUL, and closes it. A short write counts as a success
 * (quirk 40).
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
 * Selects what drives an LED: writes the name of a trigger to /sys/class/leds/NAME/trigger.
 *
 * "none" leaves the LED to `norv_linux_led_set_brightness`, "timer" blinks it (see
 * `norv_linux_led_set_delay`), and "oneshot" waits for `norv_linux_led_trigger_shot`. Reading the attribute
 * lists the triggers that the kernel offers.
 *
 * @param name     the LED's directory
 * @param trigger  the trigger's name
 * @retval NORV_STATUS_NOT_FOUND    there is no such LED
 * @retval NORV_STATUS_INVALID_ARG  the kernel has no such trigger
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_led_set_trigger(const char* name, const char* trigger);

/**
 * Sets an LED's brightness: writes a decimal number to /sys/class/leds/NAME/brightness.
 *
 * 0 also removes the LED's trigger. The kernel limits the value to the LED's max_brightness.
 *
 * @param name        the LED's directory
 * @param brightness  0 to 255; only the low 8 bits count: 256 is written as 0, -1 as 255 (quirk 39)
 * @retval errno  of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_led_set_brightness(const char* name, int32_t brightness);

/**
 * Sets the times of an LED whose trigger is "timer" or "oneshot": writes /sys/class/leds/NAME/delay_on, then
 * delay_off.
 *
 * If delay_on fails, delay_off is not written; if delay_off fails, the new delay_on stays.
 *
 * @param name  the LED's directory
 * @param on    milliseconds that it is lit
 * @param off   milliseconds that it is dark
 * @retval NORV_STATUS_NOT_FOUND    there is no such LED, or its trigger is another one
 * @retval NORV_STATUS_INVALID_ARG  a time is negative
 * @retval errno                    of opening or writing an attribute
 */
NORV_API uint32_t norv_linux_led_set_delay(const char* name, int32_t on, int32_t off);

/**
 * Flashes an LED whose trigger is "oneshot" once: writes "1" to /sys/class/leds/NAME/shot.
 *
 * @param name  the LED's directory
 * @retval NORV_STATUS_NOT_FOUND  there is no such LED, or its trigger is another one
 * @retval errno                  of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_led_trigger_shot(const char* name);

NORV_END_DECLS

#endif
