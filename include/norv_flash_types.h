/**
 * @file norv_flash_types.h
 * What the flash families have in common: the geometry record, and the callbacks of the operations that can
 * be resumed.
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
 * Tells the caller how far an operation is; called after every step, on the calling thread.
 *
 * @param user        what the caller gave to the operation
 * @param status      0, or why this step failed
 * @param address     where the step started, in bytes
 * @param remaining   how much is still to be done, in bytes
 * @param percentage  how much is done, 0..100, rounded down
 */
typedef void (*norv_flash_progress_fn)(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                                       uint32_t percentage);

NORV_END_DECLS

#endif
