/**
 * @file norv_linux_flash.h
 * One interface over the two kinds of flash that a board may boot from: the SPI flash, which is its MTD
 * partitions joined (norv_linux_spi_flash.h), and an eMMC block device (norv_linux_emmc_flash.h).
 *
 * The handle holds the kind and the handle of that kind, and every call goes to the function of the same name
 * there: what it does, allocates and returns, and how long it blocks, is told in that header. A handle is
 * used by one thread at a time.
 *
 * An update of firmware works the same on both:
 *
 * 1. `norv_linux_flash_get_info` tells the geometry. An erase starts at a multiple of the erase block size, a
 *    write at one of the write unit size, which the skip of a write is a multiple of, too.
 * 2. `norv_linux_flash_continue_erase` erases the area. For the SPI flash `end` is where the area ends, and
 *    becomes the first address after the erased blocks.
 * 3. `norv_linux_flash_continue_write_verify` writes from the same start, and reads back and compares every
 *    chunk. When a step fails, the length becomes what was written and verified.
 * 4. `norv_linux_flash_continue_read` reads it back. When a step fails, the length becomes what was read.
 *
 * How an update that was interrupted is continued, on both, is described in norv_flash_types.h. A cancel
 * callback that returns true ends any of the three with NORV_STATUS_TIMEOUT. Progress is reported for every
 * erase block of the SPI flash, and for every chunk of 16 KiB to 128 KiB of an eMMC.
 *
 *     const norv_flash_config_t config = {.kind = NORV_FLASH_KIND_EMMC, .emmc_path = "/dev/mmcblk0boot0"};
 *     norv_flash_t flash;
 *     uint32_t end = 0x100000, length = image_size;
 *     norv_linux_flash_open(&config, &flash);
 *     norv_linux_flash_continue_erase(&flash, 0, image_size, &end, NULL, NULL, NULL);
 *     norv_linux_flash_continue_write_verify(&flash, 0, 0, image, &length, &end, NULL, NULL, NULL);
 *     norv_linux_flash_close(&flash);
 */
#ifndef NORV_LINUX_FLASH_H
#define NORV_LINUX_FLASH_H

#include <stdint.h>

#include "norv_flash_types.h"
#include "norv_linux_emmc_flash.h"
#include "norv_linux_spi_flash.h"
#include "norv_status.h"

NORV_BEGIN_DECLS

/** The kinds of flash. */
enum { NORV_FLASH_KIND_SPI = 1, NORV_FLASH_KIND_EMMC = 2 };

/** Which flash to open; the caller's, only read. */
typedef struct {
    uint32_t kind;         /**< NORV_FLASH_KIND_SPI or NORV_FLASH_KIND_EMMC */
    const char* emmc_path; /**< the block device of an eMMC; not looked at for the SPI flash */
} norv_flash_config_t;

/** A flash; the storage is the caller's, `norv_linux_flash_open` fills it. */
typedef struct {
    uint32_t kind; /**< as configured, whatever it was; stays after a close */
    union {
        norv_spi_flash_t* spi;   /**< of kind NORV_FLASH_KIND_SPI; null when closed */
        norv_emmc_flash_t* emmc; /**< of kind NORV_FLASH_KIND_EMMC; null when closed */
    } backend;                   /**< null for any other kind */
} norv_flash_t;

/**
 * Opens a flash: `norv_linux_spi_flash_open` or `norv_linux_emmc_flash_open`.
 *
 * @param config  only read; not null
 * @param flash   filled; not null; after a failure it holds the kind and no open flash: closing it does
 *                nothing
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null, when the kind is neither of the two, and when an
 *         eMMC has no path, with nothing opened; the status of the kind's open
 *
 * Any thread.
 */
NORV_API uint32_t norv_linux_flash_open(const norv_flash_config_t* config, norv_flash_t* flash);

/**
 * Closes the flash with its kind's close; does nothing to a handle of another kind.
 *
 * @param flash  may be null; opened, or filled by a failed open; the kind stays, and a second close does
 *               nothing
 */
NORV_API void norv_linux_flash_close(norv_flash_t* flash);

/**
 * Tells the geometry; `reserved` stays as it is.
 *
 * @param flash  not null
 * @param info   filled; not null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's get_info
 */
NORV_API uint32_t norv_linux_flash_get_info(norv_flash_t* flash, norv_flash_info_t* info);

/**
 * Erases one block.
 *
 * @param flash    not null
 * @param address  of the block, in bytes; a multiple of the erase block size
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's erase_one_block
 */
NORV_API uint32_t norv_linux_flash_erase_one_block(norv_flash_t* flash, uint32_t address);

/**
 * Erases the first block that is not bad; an eMMC, which has no bad blocks, is erased up to the end.
 *
 * @param flash    not null
 * @param address  in bytes; a multiple of the erase block size
 * @param end      in: where to stop, in bytes; out: the address after what was erased; may be null for an
 *                 eMMC
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's erase_first_valid_block
 */
NORV_API uint32_t norv_linux_flash_erase_first_valid_block(norv_flash_t* flash, uint32_t address,
                                                           uint32_t* end);

/**
 * Reads in one piece.
 *
 * @param flash    not null
 * @param address  in bytes
 * @param buffer   receives the bytes; not null
 * @param length   in: bytes wanted, not 0; out: bytes read; not null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's read
 */
NORV_API uint32_t norv_linux_flash_read(norv_flash_t* flash, uint32_t address, void* buffer,
                                        uint32_t* length);

/**
 * Writes in one piece, without reading back.
 *
 * @param flash    not null
 * @param address  in bytes
 * @param data     only read; not null
 * @param length   in: bytes to write, not 0; out: bytes written; not null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's write
 */
NORV_API uint32_t norv_linux_flash_write(norv_flash_t* flash, uint32_t address, const void* data,
                                         uint32_t* length);

/**
 * Erases an area step by step.
 *
 * @param flash     not null
 * @param address   in bytes; a multiple of the erase block size
 * @param length    in bytes
 * @param end       in: where the area ends, in bytes; out: the first address after the erased blocks; for the
 *                  SPI flash alone: neither read nor written for an eMMC, for which it may be null
 * @param cancel    asked before every step; may be null
 * @param progress  told after every step; may be null
 * @param user      passed to both; may be null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's continue_erase
 */
NORV_API uint32_t norv_linux_flash_continue_erase(norv_flash_t* flash, uint32_t address, uint32_t length,
                                                  uint32_t* end, norv_flash_cancel_fn cancel,
                                                  norv_flash_progress_fn progress, void* user);

/**
 * Reads an area step by step.
 *
 * @param flash     not null
 * @param address   in bytes
 * @param buffer    receives the bytes; not null
 * @param length    in: bytes wanted; out, after a step that failed: bytes read; unchanged when cancelled; not
 *                  null
 * @param cancel    asked before every step; may be null
 * @param progress  told after every step; may be null
 * @param user      passed to both; may be null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's continue_read
 */
NORV_API uint32_t norv_linux_flash_continue_read(norv_flash_t* flash, uint32_t address, void* buffer,
                                                 uint32_t* length, norv_flash_cancel_fn cancel,
                                                 norv_flash_progress_fn progress, void* user);

/**
 * Writes an area step by step, and reads back and compares each.
 *
 * @param flash     not null
 * @param address   in bytes; a multiple of the write unit size
 * @param skip      bytes after the address that are left out before the first byte is written; a multiple of
 *                  the write unit size
 * @param data      only read; not null
 * @param length    in: bytes to write; out, after a step that failed: bytes written and verified; unchanged
 *                  when cancelled, when the good blocks before the end are too few, and when nothing was
 *                  begun; not null
 * @param end       in: where the area ends, in bytes; out: where the next write goes on; for the SPI flash
 *                  alone: neither read nor written for an eMMC, for which it may be null
 * @param cancel    asked before every step; may be null
 * @param progress  told after every step; may be null
 * @param user      passed to both; may be null
 * @return NORV_STATUS_INVALID_ARG when `flash` is null or not open; NORV_STATUS_BAD_STATE when its kind is
 *         neither of the two; else the status of the kind's continue_write_verify
 */
NORV_API uint32_t norv_linux_flash_continue_write_verify(norv_flash_t* flash, uint32_t address, uint32_t skip,
                                                         const void* data, uint32_t* length, uint32_t* end,
                                                         norv_flash_cancel_fn cancel,
                                                         norv_flash_progress_fn progress, void* user);

NORV_END_DECLS

#endif
