/* SPDX-License-Identifier: MIT */
/**
 * @file norv_system_info.h
 * Facts about the running board: whether a USB host uses it as a device, memory, time since the start, and
 * the size of an eMMC or SD card. The conventions of norv_status.h hold.
 *
 * Of an attribute in sysfs at most 15 bytes are read (quirk 103), and the last one is dropped, whether or not
 * it is a newline (quirk 5).
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

/** What `norv_get_usb_periph_state` reports. */
enum {
    NORV_USB_PERIPH_NOT_CONFIGURED = 0,
    NORV_USB_PERIPH_CONFIGURED = 1, /**< at any other speed, super-speed-plus included */
    NORV_USB_PERIPH_HIGH_SPEED = 2,
    NORV_USB_PERIPH_SUPER_SPEED = 3
};

/** Figures of /proc/meminfo in kB (1024 bytes). */
typedef struct {
    int32_t total;     /**< all memory that the kernel manages */
    int32_t free;      /**< unused */
    int32_t available; /**< what programs can still allocate without swapping */
    int32_t buffers;   /**< buffers of block devices */
    int32_t cached;    /**< the page cache */
} norv_mem_info_t;

/**
 * Returns whether a USB host has configured the board, and at what speed: reads /sys/class/udc/NAME/state
 * and, if that is "configured", current_speed. Both are compared without regard to case.
 *
 * @param name   directory of the USB device controller; it is not checked: `/` and `..` in it lead to other
 *               files (quirk 94), so do not pass a name from an untrusted source
 * @param state  receives NORV_USB_PERIPH_...; an empty state is not configured, an empty speed another speed
 * @retval NORV_STATUS_NOT_FOUND  there is no such controller
 * @retval errno                  of open(2) or read(2)
 */
NORV_API uint32_t norv_get_usb_periph_state(const char* name, uint32_t* state);

/**
 * Reads the memory figures of /proc/meminfo.
 *
 * @param info  receives the figures; if one of the five is missing, those that were found stay, and the other
 *              fields are unchanged (quirk 105)
 * @retval NORV_STATUS_PARSE_ERROR  a figure is missing (kernels before 3.14 have no "MemAvailable"), or the
 *                                  file could not be read to its end
 * @retval errno                    of fopen(3)
 */
NORV_API uint32_t norv_get_mem_info(norv_mem_info_t* info);

/**
 * Returns the time since the system was started: sysinfo(2).
 *
 * @param seconds  receives the low 32 bits of the seconds
 * @retval errno  of sysinfo(2)
 */
NORV_API uint32_t norv_get_uptime(uint32_t* seconds);

/**
 * Returns the size of an eMMC or SD card: reads /sys/class/block/mmcblkN/size, in sectors of 512 bytes.
 *
 * The number of sectors is kept in a signed 32-bit number: the size of a card of 1 TiB or more is wrong
 * (quirk 104).
 *
 * @param index      N
 * @param megabytes  receives the size in units of 1000000 bytes, rounded down; 0 if the text has no number
 * @retval NORV_STATUS_NOT_FOUND  there is no such card
 * @retval errno                  of open(2) or read(2)
 */
NORV_API uint32_t norv_get_mmc_size(uint32_t index, uint32_t* megabytes);

NORV_END_DECLS

#endif
