/**
 * @file norv_flash_types.h
 * What the flash families have in common: the geometry record, the callbacks of the operations that work step
 * by step, and how an interrupted update is continued.
 *
 * After a power cut, a killed process, a failure or a cancellation an update is continued in the same way on
 * both kinds of flash. It keeps two numbers in a journal, a file on another medium:
 *
 * - `done`: how many bytes of the image are written and verified; 0 at first
 * - `cursor`: the address where the next byte of the image goes; at first the start of the area, a multiple
 *   of the erase block size
 *
 * Every run, including the first, erases and writes what is left, from the cursor on, unless nothing is left
 * (`done` is `size`):
 *
 *     uint32_t end = area_end, length = size - done;
 *     norv_linux_flash_continue_erase(&flash, cursor, length, &end, NULL, NULL, NULL);
 *     norv_linux_flash_continue_write_verify(&flash, cursor, 0, image + done, &length, &end,
 *                                            NULL, note, &update);
 *
 * The progress callback of the write, `note`, advances both numbers, and stores them in the journal before it
 * returns:
 *
 *     cursor = address + (size - remaining - done);
 *     done = size - remaining;
 *
 * So the block that was being erased or written during the interruption is erased again, and all blocks after
 * it: a page of NAND may take only one program per erase, and after an interrupted erase a block may hold
 * anything. Nothing before the cursor is touched. On the SPI flash the cursor of an unfinished update is
 * always the start of a block; bad blocks need no attention, since both operations leave them out; and the
 * end that the erase leaves in `end` keeps the write within the blocks that it has erased. On an eMMC the
 * erase may be left out, and the area should start and end at multiples of 128 KiB (norv_linux_emmc_flash.h).
 *
 * A journal must identify its update, by the flash, the area, and the size and a checksum of the image, so
 * that it is not used for another one. After the last run, read the whole image back and compare it. The
 * examples emmc_update.c and flash_update.c do all of this.
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
    uint64_t reserved;         /**< no call touches it */
    uint64_t size;             /**< in bytes */
    uint32_t erase_block_size; /**< in bytes: erasing starts and ends at multiples of it */
    uint32_t write_unit_size;  /**< in bytes: writing and skipping start at multiples of it */
} norv_flash_info_t;

/**
 * Asks the caller whether to stop; called before every step of an operation, on the calling thread.
 *
 * @param user  what the caller gave to the operation
 * @return true stops the operation, which then returns NORV_STATUS_TIMEOUT
 */
typedef bool (*norv_flash_cancel_fn)(void* user);

/**
 * Reports the progress of an operation; called after every step, on the calling thread.
 *
 * @param user        what the caller gave to the operation
 * @param status      0; in an erase of the SPI flash, after a block that was to be marked bad, the status of
 *                    the marking
 * @param address     where the step started, in bytes
 * @param remaining   how much is still to be done, in bytes
 * @param percentage  how much is done, 0..100, rounded down
 */
typedef void (*norv_flash_progress_fn)(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                                       uint32_t percentage);

NORV_END_DECLS

#endif
