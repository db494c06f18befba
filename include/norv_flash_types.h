/* SPDX-License-Identifier: MIT */
/**
 * @file norv_flash_types.h
 * What the flash families share: the geometry, the callbacks, and the way to continue an interrupted update.
 * The conventions of norv_status.h hold.
 *
 * An update that was interrupted by a power failure, a killed process, a failed call or a cancellation is
 * continued in the same way on both kinds of flash. Keep two numbers in a journal, a file on another medium:
 *
 * - `done`: bytes of the image that are written and verified; 0 at first
 * - `cursor`: the address of the next byte of the image; at first the start of the area, which is a multiple
 *   of the erase block size
 *
 * Each run, the first one too, erases and writes the rest of the image, starting at the cursor, unless `done`
 * equals `size`:
 *
 *     uint32_t end = area_end, length = size - done;
 *     norv_linux_flash_continue_erase(&flash, cursor, length, &end, NULL, NULL, NULL);
 *     norv_linux_flash_continue_write_verify(&flash, cursor, 0, image + done, &length, &end,
 *                                            NULL, note, &update);
 *
 * `note`, the progress callback of the write, advances both numbers and stores them in the journal before it
 * returns:
 *
 *     cursor = address + (size - remaining - done);
 *     done = size - remaining;
 *
 * So the block in which the update was interrupted is erased again, with all blocks after it: a NAND page may
 * allow only one program per erase, and an interrupted erase may leave anything in its block. Nothing before
 * the cursor is touched. On the SPI flash the cursor of an unfinished update is always the start of a block;
 * both operations skip bad blocks; and the erase stores in `end` where the erased blocks end, which keeps the
 * write within them. On an eMMC the erase may be omitted, and the area should start and end at multiples of
 * 128 KiB (see norv_linux_emmc_flash.h).
 *
 * The journal must identify its update, by the flash, the area, and the size and a checksum of the image, so
 * that it is not used for another one. After the last run, read the whole image back and compare it. The
 * examples flash_update.c and spi_flash_update.c do all of this.
 *
 * After a cancellation, and only then, a write may also be continued without another erase: from the start of
 * the area, with `done` as the skip.
 */
#ifndef NORV_FLASH_TYPES_H
#define NORV_FLASH_TYPES_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** The geometry of a flash. */
typedef struct {
    uint64_t reserved;         /**< not touched */
    uint64_t size;             /**< in bytes */
    uint32_t erase_block_size; /**< in bytes; erase from and to multiples of it */
    uint32_t write_unit_size;  /**< in bytes; write and skip at multiples of it */
} norv_flash_info_t;

/**
 * Asks the caller whether to stop; called before each step of an operation, on the thread of the operation.
 *
 * @param user  the caller's
 * @return true: the operation ends with NORV_STATUS_TIMEOUT
 */
typedef bool (*norv_flash_cancel_fn)(void* user);

/**
 * Reports the progress of an operation; called after each step, on the thread of the operation.
 *
 * @param user        the caller's
 * @param status      0; after an erase of the SPI flash has tried to mark a block bad, the status of that
 * @param address     where the step started
 * @param remaining   bytes left to do
 * @param percentage  how much is done, 0 to 100, rounded down
 */
typedef void (*norv_flash_progress_fn)(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                                       uint32_t percentage);

NORV_END_DECLS

#endif
