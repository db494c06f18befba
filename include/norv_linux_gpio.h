/**
 * @file norv_linux_gpio.h
 * One GPIO line through the kernel's sysfs interface, /sys/class/gpio. Kernel developers call that interface
 * obsolete, and a kernel may be built without it (CONFIG_GPIO_SYSFS, on newer kernels also
 * CONFIG_GPIO_SYSFS_LEGACY): opening then returns NORV_STATUS_NOT_FOUND.
 *
 * Opening a line exports it if it is not exported yet; its "value" file stays open for the life of the
 * handle, for fast access and for waiting. Closing always unexports the line, also one that somebody else
 * had exported; an output then returns to what the driver makes of a free line, so keep a handle open for
 * as long as the level has to stay. A handle is used by one thread at a time.
 *
 * Edges are reported, not counted: those between two reads of the value are one report, and the level that is
 * read is the one at the time of the read. Pulses that come faster than the program reads are lost.
 *
 *     norv_linux_gpio_t button;
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

/** One line; the storage is the caller's, `norv_linux_gpio_open` fills it. */
typedef struct {
    uint32_t number;          /**< the kernel's number of the line */
    int32_t value_descriptor; /**< its open "value" file; -1 when closed */
} norv_linux_gpio_t;

/** The edges that `norv_linux_gpio_set_irq` knows. */
enum {
    NORV_LINUX_GPIO_EDGE_NONE = 0,
    NORV_LINUX_GPIO_EDGE_RISING = 1,
    NORV_LINUX_GPIO_EDGE_FALLING = 2,
    NORV_LINUX_GPIO_EDGE_BOTH = 3
};

/**
 * Opens a line: exports it if /sys/class/gpio/gpioN is missing, and opens gpioN/value.
 *
 * @param number  the kernel's number of the line
 * @param gpio    filled; not null; after a failure its descriptor is -1
 * @return 0; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno status of writing "export" (for instance
 *         NORV_STATUS_INVALID_ARG: no such line; NORV_STATUS_NOT_FOUND: no /sys/class/gpio) or of opening
 *         "value"; the line stays exported when only the latter failed
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_gpio_open(uint32_t number, norv_linux_gpio_t* gpio);

/**
 * Unexports the line if it is exported, whoever exported it, and closes its "value" file.
 *
 * @param gpio  opened; may be null. A record of zeros that was never opened stands for line 0, which is
 *              unexported. The descriptor is -1 afterwards and the number stays: a second close closes
 *              nothing, but unexports the line if it has been exported again. A descriptor of 0 counts as not
 *              open and is not closed
 *
 * Does not block. Never fails; what the kernel says of "unexport" is ignored.
 */
NORV_API void norv_linux_gpio_close(norv_linux_gpio_t* gpio);

/**
 * Returns the descriptor of the "value" file, to be polled for `POLLPRI` or added to a loop for `EPOLLPRI`.
 *
 * @param gpio  not null
 * @return the descriptor, which stays the handle's; -1 when the handle is closed
 */
NORV_API int32_t norv_linux_gpio_get_fd(const norv_linux_gpio_t* gpio);

/**
 * Makes the line an output or an input: writes "out" or "in" to gpioN/direction.
 *
 * @param gpio    not null
 * @param output  true: output, driven low at first; false: input
 * @return 0; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno status of opening or writing the
 *         attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_gpio_set_dir(norv_linux_gpio_t* gpio, bool output);

/**
 * Chooses the edges that `norv_linux_gpio_wait_irq` and `POLLPRI` report: writes gpioN/edge.
 *
 * @param gpio  not null
 * @param edge  NORV_LINUX_GPIO_EDGE_NONE, _RISING, _FALLING or _BOTH
 * @return 0; NORV_STATUS_INVALID_ARG for any other edge, with nothing written, and when `gpio` is null; the
 *         errno status of opening or writing the attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_gpio_set_irq(norv_linux_gpio_t* gpio, uint32_t edge);

/**
 * Inverts the line's values and edges, or stops doing so: writes "1" or "0" to gpioN/active_low.
 *
 * @param gpio        not null
 * @param active_low  true: a low level counts as 1
 * @return 0; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno status of opening or writing the
 *         attribute
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_gpio_set_active_low(norv_linux_gpio_t* gpio, bool active_low);

/**
 * Drives an output: one write(2) of "1" or "0" to the open "value" file.
 *
 * @param gpio   not null, open
 * @param value  the level
 * @return 0; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno status of the write, for instance that of
 *         EPERM when the line is an input
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_gpio_set_value(norv_linux_gpio_t* gpio, bool value);

/**
 * Reads the level from the start of the open "value" file, which re-arms the edge notification.
 *
 * @param gpio   not null, open
 * @param value  receives 1 or 0; may be null, the file is read all the same; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno status of the seek or the read, for
 *         instance ENODEV: somebody else has unexported the line
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_gpio_get_value(norv_linux_gpio_t* gpio, uint8_t* value);

/**
 * Waits for an edge of the kind chosen with `norv_linux_gpio_set_irq`.
 *
 * The level is not read: call `norv_linux_gpio_get_value` afterwards, which re-arms the notification. A wait
 * that a signal interrupts starts again with the whole time-out. The kernel reports a value file that was
 * never read as ready at once, so read the value before the first wait.
 *
 * When somebody else unexports the line, every wait returns 0 at once, as poll(2) and an event loop report
 * the descriptor ready (POLLERR): look at the status of `norv_linux_gpio_get_value`, and on ENODEV close the
 * handle and open it again. A wait under way may last until its time-out before it returns 0.
 *
 * @param gpio     not null, open; on a closed handle the wait lasts for its whole time-out
 * @param timeout  milliseconds; 0xFFFFFFFF, and any other value of 2^31 or more, waits without limit
 * @return 0; NORV_STATUS_TIMEOUT when no edge came; NORV_STATUS_INVALID_ARG when `gpio` is null; the errno
 *         status of poll(2)
 *
 * Blocks for `timeout` at most, longer only when signals interrupt it.
 */
NORV_API uint32_t norv_linux_gpio_wait_irq(norv_linux_gpio_t* gpio, uint32_t timeout);

NORV_END_DECLS

#endif
