/**
 * @file norv_system_info.h
 * What the running board says of itself: the connection of its USB device port, memory, time since the start,
 * and the size of an eMMC or SD card.
 *
 * Nothing here keeps state: every function may be called from any thread at any time.
 *
 *     norv_mem_info_t memory;
 *     uint32_t seconds;
 *     norv_get_mem_info(&memory);
 *     norv_get_uptime(&seconds);
 *     printf("%d of %d kB available after %u s\n", memory.available, memory.total, seconds);
 */
#ifndef NORV_SYSTEM_INFO_H
#define NORV_SYSTEM_INFO_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** What `norv_get_usb_periph_state` tells. */
enum {
    NORV_USB_PERIPH_NOT_CONFIGURED = 0,
    NORV_USB_PERIPH_CONFIGURED = 1, /**< at a speed other than the two below */
    NORV_USB_PERIPH_HIGH_SPEED = 2,
    NORV_USB_PERIPH_SUPER_SPEED = 3
};

/** Figures of /proc/meminfo in kB (1024 bytes). */
typedef struct {
    int32_t total;     /**< all that the kernel manages */
    int32_t free;      /**< used by nobody */
    int32_t available; /**< what programs can still have without swapping */
    int32_t buffers;   /**< buffers of block devices */
    int32_t cached;    /**< the page cache */
} norv_mem_info_t;

/**
 * Tells whether a USB host has configured the board, and at what speed: reads "state" and, when that says
 * "configured", "current_speed" of a USB device controller.
 *
 * Both texts are compared without regard to case. Of each, 15 bytes are read at most and the last one is cut,
 * whatever it is: any speed that is neither "high-speed" nor "super-speed" is the state 1, "super-speed-plus"
 * too.
 *
 * @param name   the controller's directory below /sys/class/udc; not null. It becomes part of a path, which
 *               is truncated after 255 characters: a name with "/" or ".." leads to another file, so do not
 *               pass one from an untrusted source
 * @param state  receives NORV_USB_PERIPH_...; not null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the status of `norv_read_device`, for instance
 *         NORV_STATUS_NOT_FOUND: no such controller
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_get_usb_periph_state(const char* name, uint32_t* state);

/**
 * Reads the memory figures of /proc/meminfo.
 *
 * @param info  receives the figures; not null; what was found stays there when one of the five is missing,
 * and a field that was not found is as it was
 * @return 0; NORV_STATUS_INVALID_ARG when `info` is null; the errno status of fopen(3);
 *         NORV_STATUS_PARSE_ERROR when a figure is missing (kernels before 3.14 have no "MemAvailable"), or
 * the file could not be read to its end
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_get_mem_info(norv_mem_info_t* info);

/**
 * Tells the time since the system was started, from sysinfo(2).
 *
 * @param seconds  receives the low 32 bits of the seconds; not null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when `seconds` is null; the errno status of sysinfo(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_get_uptime(uint32_t* seconds);

/**
 * Tells the size of an eMMC or SD card: reads /sys/class/block/mmcblkN/size, in sectors of 512 bytes.
 *
 * At most 15 bytes of the text are read and the last one is dropped, whatever it is; the number of sectors is
 * kept as a signed 32-bit number, so the size of a card of 1 TiB or more is wrong.
 *
 * @param index      N; printed signed
 * @param megabytes  receives the size in units of 1000000 bytes, rounded down; not null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when `megabytes` is null; the status of `norv_read_device`, for instance
 *         NORV_STATUS_NOT_FOUND: no such card
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_get_mmc_size(uint32_t index, uint32_t* megabytes);

NORV_END_DECLS

#endif
