/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_flash.h
 * One interface to the two kinds of flash that a board may boot from: the SPI flash, which consists of MTD
 * partitions (norv_linux_spi_flash.h), and an eMMC block device (norv_linux_emmc_flash.h). The conventions of
 * norv_status.h hold.
 *
 * Each call goes to the function of the same name of the handle's kind, whose description says what it does,
 * returns and allocates, and for how long it blocks.
 *
 * A firmware update is the same on both; norv_flash_types.h describes how to continue an interrupted one:
 *
 * 1. `norv_linux_flash_get_info` gets the geometry.
 * 2. `norv_linux_flash_continue_erase` erases the area; the SPI flash needs the end of the area.
 * 3. `norv_linux_flash_continue_write_verify` writes from the same start, up to the end that the erase has
 *    stored, and verifies.
 * 4. `norv_linux_flash_continue_read` reads the area back.
 *
 * A cancel callback that returns true ends any of the last three with NORV_STATUS_TIMEOUT. A step is an erase
 * block of the SPI flash, or a chunk of 16 KiB to 128 KiB of an eMMC.
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

/** Which flash to open. */
typedef struct {
    uint32_t kind;         /**< NORV_FLASH_KIND_SPI or NORV_FLASH_KIND_EMMC */
    const char* emmc_path; /**< the block device of an eMMC; ignored for the SPI flash */
} norv_flash_config_t;

/** A flash. */
typedef struct {
    uint32_t kind; /**< as configured, whatever it is, also after a failed open (quirk 155) and a close */
    union {
        norv_spi_flash_t* spi;   /**< of kind NORV_FLASH_KIND_SPI; null when closed */
        norv_emmc_flash_t* emmc; /**< of kind NORV_FLASH_KIND_EMMC; null when closed */
    } backend;                   /**< null for any other kind */
} norv_flash_t;

/**
 * Opens a flash: `norv_linux_spi_flash_open` or `norv_linux_emmc_flash_open`.
 *
 * @param config  the kind and, for an eMMC, its path
 * @param flash   receives the open flash; after a failure, the kind and no open flash
 * @retval NORV_STATUS_INVALID_ARG  the kind is neither of the two, or an eMMC has no path; nothing is opened
 * @retval others                   of `norv_linux_spi_flash_open` or `norv_linux_emmc_flash_open`
 */
NORV_API uint32_t norv_linux_flash_open(const norv_flash_config_t* config, norv_flash_t* flash);

/**
 * Closes the flash with its kind's close function; does nothing if the kind is neither of the two.
 *
 * @param flash  may be null
 */
NORV_API void norv_linux_flash_close(norv_flash_t* flash);

/**
 * Gets the geometry.
 *
 * @param flash  an open flash
 * @param info   receives it; `reserved` is not touched
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_get_info` or `norv_linux_emmc_flash_get_info`
 */
NORV_API uint32_t norv_linux_flash_get_info(norv_flash_t* flash, norv_flash_info_t* info);

/**
 * Erases one block.
 *
 * @param flash    an open flash
 * @param address  of the block; a multiple of the erase block size
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_erase_one_block` or
 *                                  `norv_linux_emmc_flash_erase_one_block`
 */
NORV_API uint32_t norv_linux_flash_erase_one_block(norv_flash_t* flash, uint32_t address);

/**
 * Erases the first block that is not bad; on an eMMC, which has no bad blocks, everything up to the end.
 *
 * @param flash    an open flash
 * @param address  a multiple of the erase block size
 * @param end      in: where to stop; out: the address after what was erased; may be null for an eMMC: one
 *                 block is erased
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_erase_first_valid_block` or
 *                                  `norv_linux_emmc_flash_erase_first_valid_block`
 */
NORV_API uint32_t norv_linux_flash_erase_first_valid_block(norv_flash_t* flash, uint32_t address,
                                                           uint32_t* end);

/**
 * Reads with one system call.
 *
 * @param flash    an open flash
 * @param address  in bytes
 * @param buffer   receives the bytes
 * @param length   in: bytes to read, at least 1; out: bytes read
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_read` or `norv_linux_emmc_flash_read`
 */
NORV_API uint32_t norv_linux_flash_read(norv_flash_t* flash, uint32_t address, void* buffer,
                                        uint32_t* length);

/**
 * Writes with one system call, and does not read back.
 *
 * @param flash    an open flash
 * @param address  in bytes
 * @param data     the bytes
 * @param length   in: bytes to write, at least 1; out: bytes written
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_write` or `norv_linux_emmc_flash_write`
 */
NORV_API uint32_t norv_linux_flash_write(norv_flash_t* flash, uint32_t address, const void* data,
                                         uint32_t* length);

/**
 * Erases an area step by step.
 *
 * @param flash     an open flash
 * @param address   a multiple of the erase block size
 * @param length    in bytes
 * @param end       in: where the area ends; out: the address after the erased blocks; not checked. For an
 *                  eMMC neither read nor written, and may be null (quirk 156)
 * @param cancel    called before each step; may be null
 * @param progress  called after each step; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_continue_erase` or
 *                                  `norv_linux_emmc_flash_continue_erase`
 */
NORV_API uint32_t norv_linux_flash_continue_erase(norv_flash_t* flash, uint32_t address, uint32_t length,
                                                  uint32_t* end, norv_flash_cancel_fn cancel,
                                                  norv_flash_progress_fn progress, void* user);

/**
 * Reads an area step by step.
 *
 * @param flash     an open flash
 * @param address   in bytes
 * @param buffer    receives the bytes
 * @param length    in: bytes to read; out, only after a failed step (not a cancellation): bytes read; not
 *                  checked for the SPI flash
 * @param cancel    called before each step; may be null
 * @param progress  called after each step; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_continue_read` or
 *                                  `norv_linux_emmc_flash_continue_read`
 */
NORV_API uint32_t norv_linux_flash_continue_read(norv_flash_t* flash, uint32_t address, void* buffer,
                                                 uint32_t* length, norv_flash_cancel_fn cancel,
                                                 norv_flash_progress_fn progress, void* user);

/**
 * Writes an area step by step, and reads back and compares each step.
 *
 * @param flash     an open flash
 * @param address   a multiple of the write unit size
 * @param skip      bytes to skip before the first byte is written; a multiple of the write unit size
 * @param data      the bytes; not checked for the SPI flash
 * @param length    in: bytes to write; out, only after a failed step: bytes written and verified. A
 *                  cancellation, or too few good blocks before the end, leaves it unchanged. Not checked for
 *                  the SPI flash
 * @param end       in: where the area ends; out: where the next write continues; not checked. For an eMMC
 *                  neither read nor written, and may be null (quirk 156)
 * @param cancel    called before each step; may be null
 * @param progress  called after each step; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG  the flash is not open
 * @retval NORV_STATUS_BAD_STATE    the handle is of neither kind
 * @retval others                   of `norv_linux_spi_flash_continue_write_verify` or
 *                                  `norv_linux_emmc_flash_continue_write_verify`
 */
NORV_API uint32_t norv_linux_flash_continue_write_verify(norv_flash_t* flash, uint32_t address, uint32_t skip,
                                                         const void* data, uint32_t* length, uint32_t* end,
                                                         norv_flash_cancel_fn cancel,
                                                         norv_flash_progress_fn progress, void* user);

NORV_END_DECLS

#endif
