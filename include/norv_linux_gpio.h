/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_gpio.h
 * One GPIO line through the kernel's sysfs interface, /sys/class/gpio. The conventions of norv_status.h hold.
 *
 * The kernel documentation calls that interface obsolete, and a kernel may be built without it
 * (CONFIG_GPIO_SYSFS, on newer kernels also CONFIG_GPIO_SYSFS_LEGACY): opening then returns
 * NORV_STATUS_NOT_FOUND.
 *
 * Opening a line exports it unless it is exported already, and keeps its "value" file open for fast access
 * and for waiting. Closing always unexports the line, even one that another process has exported (quirk 34);
 * an output then returns to whatever its driver makes of a free line, so keep the handle open for as long as
 * the level has to stay.
 *
 * Edges are reported, not counted: all edges between two reads of the value are one report, and the level is
 * the one at the time of the read. Pulses that are shorter than the time between two reads are lost.
 *
 *     norv_linux_gpio_t button;
 *     uint8_t level;
 *     norv_linux_gpio_open(17, &button);
 *     norv_linux_gpio_set_dir(&button, false);
 *     norv_linux_gpio_set_irq(&button, NORV_LINUX_GPIO_EDGE_RISING);
 *     norv_linux_gpio_get_value(&button, &level);  // or the first wait returns at once
 *     if (norv_linux_gpio_wait_irq(&button, 1000) == NORV_STATUS_OK)
 *         norv_linux_gpio_get_value(&button, &level);
 *     norv_linux_gpio_close(&button);
 */
#ifndef NORV_LINUX_GPIO_H
#define NORV_LINUX_GPIO_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** One line. */
typedef struct {
    uint32_t number;          /**< the kernel's number of the line */
    int32_t value_descriptor; /**< the open "value" file; -1 when closed */
} norv_linux_gpio_t;

/** The edges that `norv_linux_gpio_set_irq` selects. */
enum {
    NORV_LINUX_GPIO_EDGE_NONE = 0,
    NORV_LINUX_GPIO_EDGE_RISING = 1,
    NORV_LINUX_GPIO_EDGE_FALLING = 2,
    NORV_LINUX_GPIO_EDGE_BOTH = 3
};

/**
 * Opens a line: exports it if /sys/class/gpio/gpioN does not exist, and opens gpioN/value.
 *
 * @param number  the kernel's number of the line
 * @param gpio    receives the open line
 * @retval NORV_STATUS_NOT_FOUND    there is no /sys/class/gpio
 * @retval NORV_STATUS_INVALID_ARG  there is no such line
 * @retval errno                    of opening or writing "export", or of opening "value"; in the latter
 *                                  case the line stays exported (quirk 38)
 */
NORV_API uint32_t norv_linux_gpio_open(uint32_t number, norv_linux_gpio_t* gpio);

/**
 * Unexports the line if it is exported, and closes its "value" file. What the kernel answers is ignored.
 *
 * The number stays in the record: a second close unexports the line if it has been exported again (quirk 36),
 * and closing a record of zeros that was never opened unexports line 0 (quirk 35).
 *
 * @param gpio  opened; may be null; one that failed to open is unexported too
 */
NORV_API void norv_linux_gpio_close(norv_linux_gpio_t* gpio);

/**
 * Returns the descriptor of the "value" file, to be polled for `POLLPRI` or added to a loop for `EPOLLPRI`.
 *
 * @param gpio  not checked
 * @return the descriptor; -1 when the line is closed
 */
NORV_API int32_t norv_linux_gpio_get_fd(const norv_linux_gpio_t* gpio);

/**
 * Makes the line an output, driven low, or an input: writes "out" or "in" to gpioN/direction.
 *
 * @param gpio    an open line
 * @param output  true: output; false: input
 * @retval errno  of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_gpio_set_dir(norv_linux_gpio_t* gpio, bool output);

/**
 * Selects the edges that `norv_linux_gpio_wait_irq` and `POLLPRI` report: writes gpioN/edge.
 *
 * @param gpio  an open line
 * @param edge  NORV_LINUX_GPIO_EDGE_NONE, _RISING, _FALLING or _BOTH
 * @retval NORV_STATUS_INVALID_ARG  any other edge; nothing is written
 * @retval errno                    of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_gpio_set_irq(norv_linux_gpio_t* gpio, uint32_t edge);

/**
 * Inverts the line's values and edges, or stops doing so: writes "1" or "0" to gpioN/active_low.
 *
 * @param gpio        an open line
 * @param active_low  true: a low level is read as 1
 * @retval errno  of opening or writing the attribute
 */
NORV_API uint32_t norv_linux_gpio_set_active_low(norv_linux_gpio_t* gpio, bool active_low);

/**
 * Drives an output: one write(2) of "1" or "0" to the open "value" file.
 *
 * @param gpio   an open line
 * @param value  the level
 * @retval EPERM  the line is an input
 * @retval errno  of write(2)
 */
NORV_API uint32_t norv_linux_gpio_set_value(norv_linux_gpio_t* gpio, bool value);

/**
 * Reads the level from the start of the open "value" file, which rearms the edge notification.
 *
 * @param gpio   an open line
 * @param value  receives 1 or 0; may be null, the file is read nevertheless
 * @retval ENODEV  the line was unexported
 * @retval errno   of lseek(2) or read(2)
 */
NORV_API uint32_t norv_linux_gpio_get_value(norv_linux_gpio_t* gpio, uint8_t* value);

/**
 * Waits for an edge of the kind selected with `norv_linux_gpio_set_irq`: poll(2).
 *
 * The level is not read: call `norv_linux_gpio_get_value` after the wait, which rearms the notification. Call
 * it before the first wait too, because the kernel reports a value file that was never read as ready.
 *
 * When the line is unexported, each wait returns 0 at once (quirk 37), as poll(2) and an event loop report the
 * descriptor ready (POLLERR): check the status of `norv_linux_gpio_get_value`, and on ENODEV close the handle
 * and open it again. A wait that is in progress may last for its whole timeout before it returns 0.
 *
 * @param gpio     an open line; on a closed handle the wait lasts for the whole timeout (quirk 37)
 * @param timeout  milliseconds; 2^31 or more, for instance 0xFFFFFFFF: no limit
 * @retval NORV_STATUS_TIMEOUT  no edge
 * @retval errno                of poll(2)
 *
 * Blocks for up to `timeout`; a signal restarts it with the whole timeout (quirk 4).
 */
NORV_API uint32_t norv_linux_gpio_wait_irq(norv_linux_gpio_t* gpio, uint32_t timeout);

NORV_END_DECLS

#endif
