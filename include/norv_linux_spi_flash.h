/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_spi_flash.h
 * The SPI flash of a board: its MTD partitions /dev/mtd0 to /dev/mtd9 as one address space. The conventions
 * of norv_status.h hold.
 *
 * Each partition is a region of the flash. The regions follow each other in the order of their names, each
 * starting where the previous one ends. Addresses and lengths are in bytes, with 32 bits. A region has its
 * own geometry, and may be NOR or NAND; its erase size must be a power of two. Only NAND is queried for bad
 * blocks.
 *
 * The "continue" functions work on many blocks. They skip bad ones, report progress, can be stopped between
 * two steps, and leave a cursor from which the caller continues (see norv_flash_types.h). They keep no state
 * between calls.
 *
 * In a region whose base is not a multiple of its erase size, only `norv_linux_spi_flash_erase_one_block`
 * erases: the other two return NORV_STATUS_RANGE, also when they reach it from the region before.
 *
 * A flash of exactly 4 GiB has the size 0, and its end is 0 too. As the end of an operation, that is before
 * every address, so nothing is erased or written: only the functions without an end reach the last block.
 *
 * Reading NAND does not fail when the error correction fails (quirk 129, see `norv_linux_mtd_read`); a write
 * with verification does, because it compares the bytes.
 *
 *     norv_spi_flash_t* flash;
 *     uint32_t end = area_end, length = image_size;
 *     norv_linux_spi_flash_open(&flash);
 *     norv_linux_spi_flash_continue_erase(&flash, start, area_end - start, &end, NULL, NULL, NULL);
 *     norv_linux_spi_flash_continue_write_verify(&flash, start, 0, image, &length, &end, NULL, NULL, NULL);
 *     norv_linux_spi_flash_close(&flash);
 */
#ifndef NORV_LINUX_SPI_FLASH_H
#define NORV_LINUX_SPI_FLASH_H

#include <stdint.h>

#include "norv_flash_types.h"
#include "norv_linux_mtd.h"

NORV_BEGIN_DECLS

/** One partition and its place in the flash. */
typedef struct {
    uint64_t base;     /**< address of its first byte */
    norv_mtd_t device; /**< its open device node and its geometry */
} norv_spi_flash_region_t;

/**
 * An open flash; do not change it. If the number of regions is negative, operations return NORV_STATUS_RANGE
 * (quirk 132).
 */
typedef struct {
    uint32_t size;                    /**< of all regions, in bytes, modulo 2^32 */
    int32_t region_count;             /**< the number of regions */
    norv_spi_flash_region_t* regions; /**< in the order of their addresses */
} norv_spi_flash_t;

/**
 * Opens each of /dev/mtd0 to /dev/mtd9 that exists; /dev/mtd10, /dev/mtd0ro and /dev/mtdblock0 are ignored.
 *
 * Without partitions opening succeeds, and the operations fail (quirk 133).
 *
 * @param flash  receives the open flash
 * @retval NORV_STATUS_NO_MEMORY  out of memory
 * @retval errno                  of scandir(3) of /dev
 * @retval others                 of `norv_linux_mtd_open`, for the first partition that cannot be opened;
 *                                none stays open
 */
NORV_API uint32_t norv_linux_spi_flash_open(norv_spi_flash_t** flash);

/**
 * Closes the partitions and releases the flash.
 *
 * @param flash  may be null
 */
NORV_API void norv_linux_spi_flash_close(norv_spi_flash_t** flash);

/**
 * Gets the geometry: the size of the whole flash, and the erase block and write unit size of the first
 * region, whatever the others have (quirk 134).
 *
 * @param flash  an open flash
 * @param info   receives it; `reserved` is not touched
 * @retval NORV_STATUS_INVALID_ARG  the flash is closed
 * @retval NORV_STATUS_NOT_FOUND    there are no partitions
 */
NORV_API uint32_t norv_linux_spi_flash_get_info(norv_spi_flash_t** flash, norv_flash_info_t* info);

/**
 * Reads within one region: one lseek(2) and one read(2). Bad blocks are read like others.
 *
 * @param flash    an open flash
 * @param address  of the first byte
 * @param buffer   receives the bytes
 * @param length   in: bytes to read, at least 1; truncated at the end of the region, even if the read fails;
 *                 out: bytes read
 * @retval NORV_STATUS_INVALID_ARG  the flash is closed, or the length is 0
 * @retval NORV_STATUS_EMPTY        there are no partitions
 * @retval NORV_STATUS_RANGE        the address is in no region
 * @retval others                   of `norv_linux_mtd_read`; a short read is a success
 *
 * Blocks until the flash is read.
 */
NORV_API uint32_t norv_linux_spi_flash_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                            uint32_t* length);

/**
 * Writes within one region: one lseek(2) and one write(2). Nothing is erased, verified or skipped.
 *
 * @param flash    an open flash
 * @param address  of the first byte; the kernel requires a multiple of the region's write size
 * @param data     the bytes
 * @param length   in: bytes to write, at least 1; truncated at the end of the region, even if the write
 *                 fails; out: bytes written
 * @retval NORV_STATUS_INVALID_ARG  the flash is closed, or the length is 0
 * @retval NORV_STATUS_EMPTY        there are no partitions
 * @retval NORV_STATUS_RANGE        the address is in no region
 * @retval others                   of `norv_linux_mtd_write`; a short write is a success
 *
 * Blocks until the bytes are stored.
 */
NORV_API uint32_t norv_linux_spi_flash_write(norv_spi_flash_t** flash, uint32_t address, const void* data,
                                             uint32_t* length);

/**
 * Erases one block. A NAND block that does not erase is marked bad, and so is, without an erase, one whose
 * state cannot be queried (quirk 136).
 *
 * @param flash    an open flash
 * @param address  of the block: in its region, a multiple of the erase size
 * @retval NORV_STATUS_INVALID_ARG  the flash is closed
 * @retval NORV_STATUS_EMPTY        there are no partitions
 * @retval NORV_STATUS_RANGE        the address is in no region, or not the start of a block
 * @retval NORV_STATUS_EXHAUSTED    the block is bad, or was just marked bad
 * @retval others                   of `norv_linux_mtd_block_markbad`, or on NOR of `norv_linux_mtd_erase`
 *
 * Blocks until the block is erased.
 */
NORV_API uint32_t norv_linux_spi_flash_erase_one_block(norv_spi_flash_t** flash, uint32_t address);

/**
 * Erases the first block that is not bad.
 *
 * A NAND block that does not erase, or whose state cannot be queried (quirk 136), is marked bad, and the next
 * one is tried. After a failed marking, each following NAND block is marked bad without being queried or
 * erased, until a marking succeeds (quirk 135).
 *
 * @param flash    an open flash
 * @param address  of the first block: a multiple of its region's erase size
 * @param end      in: where to stop, a multiple of the erase size of the region of the byte before it; out:
 *                 the address after the erased block
 * @retval NORV_STATUS_INVALID_ARG  the flash is closed
 * @retval NORV_STATUS_EMPTY        there are no partitions
 * @retval NORV_STATUS_RANGE        the address or the end is misaligned, or the end is outside the flash
 * @retval NORV_STATUS_EXHAUSTED    no block before the end could be erased
 * @retval others                   on NOR, of `norv_linux_mtd_erase`, or of the marking that failed just
 *                                  before the region
 *
 * Blocks until the block is erased.
 */
NORV_API uint32_t norv_linux_spi_flash_erase_first_valid_block(norv_spi_flash_t** flash, uint32_t address,
                                                               uint32_t* end);

/**
 * Erases blocks until `length` bytes of good blocks are erased, or the end is reached (quirk 138). Nothing at
 * or past the end is erased.
 *
 * A bad NAND block is skipped: it neither counts nor is reported. One that does not erase, or whose state
 * cannot be queried (quirk 136), is marked bad and does not count either. After a failed marking, each
 * following NAND block is marked bad without being queried or erased, until a marking succeeds (quirk 135).
 * On NOR a failure ends the call.
 *
 * Reports each block that was erased or marked, with status 0 or that of the marking; the last block before
 * the end with status 0, nothing remaining and 100 percent, whatever the result (quirk 137).
 *
 * @param flash     an open flash; not checked (quirk 131)
 * @param address   of the first block: a multiple of its region's erase size
 * @param length    bytes of good blocks; 0: only `end` is set, to the address
 * @param end       in: where to stop, a multiple of the erase size of the region of the byte before it; out:
 *                  the address after the last erased block, where the next call continues; unchanged if the
 *                  address is not before it; not checked
 * @param cancel    called before each block; may be null
 * @param progress  may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_TIMEOUT  `cancel` returned true
 * @retval NORV_STATUS_EMPTY    there are no partitions
 * @retval NORV_STATUS_RANGE    the address or the end is misaligned or outside the flash
 * @retval others               of the last marking, if that failed; on NOR, of `norv_linux_mtd_erase`, or of
 *                              the marking that failed just before the region
 *
 * Blocks until the blocks are erased.
 */
NORV_API uint32_t norv_linux_spi_flash_continue_erase(norv_spi_flash_t** flash, uint32_t address,
                                                      uint32_t length, uint32_t* end,
                                                      norv_flash_cancel_fn cancel,
                                                      norv_flash_progress_fn progress, void* user);

/**
 * Reads from the good blocks, up to the end of an erase block at a time.
 *
 * A read past the last region succeeds and leaves the length unchanged, although it has read less
 * (quirk 139): keep address and length inside the flash. A read that returns no bytes is repeated until
 * `cancel` stops it.
 *
 * @param flash     an open flash; not checked (quirk 131)
 * @param address   of the first byte; in a bad block, reading starts after the block
 * @param buffer    receives the bytes
 * @param length    in: bytes to read; out, only after a failed step (not a cancellation): bytes read; not
 *                  checked
 * @param cancel    called before each step; may be null
 * @param progress  called after each read; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_TIMEOUT  `cancel` returned true
 * @retval NORV_STATUS_EMPTY    there are no partitions
 * @retval others               of `norv_linux_mtd_block_isbad` or `norv_linux_mtd_read`
 *
 * Blocks until the flash is read.
 */
NORV_API uint32_t norv_linux_spi_flash_continue_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                                     uint32_t* length, norv_flash_cancel_fn cancel,
                                                     norv_flash_progress_fn progress, void* user);

/**
 * Writes to the good blocks, and reads back and compares each. Erase the area first, and pass the end that
 * `norv_linux_spi_flash_continue_erase` has stored, or the end of the area.
 *
 * The last write unit is padded with 0xFF. The end is compared once for each block: a block that starts
 * before the end is written up to its own end (quirk 141).
 *
 * @param flash     an open flash; not checked (quirk 131)
 * @param address   of the first byte: in its region, a multiple of the write size
 * @param skip      bytes of good blocks to skip first, in steps of a write unit; a multiple of the write size
 *                  of the region of the byte before the end. A failed query of a block ends the call only
 *                  after them (quirk 142)
 * @param data      the bytes; not checked
 * @param length    in: bytes to write; out, only after a failed step: bytes written and verified. A
 *                  cancellation, or too little space before the end, leaves it unchanged (quirk 143). Not
 *                  checked
 * @param end       in: where the area ends, a multiple of the write size of the region of the byte before it;
 *                  out: the start of the block after the last one written, where the next call continues, or
 *                  the address if the length is 0; not checked
 * @param cancel    called before each step; may be null
 * @param progress  called after each block that was written and verified; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_TIMEOUT        `cancel` returned true
 * @retval NORV_STATUS_NO_MEMORY      no memory for a work area of twice the largest erase block of the area
 * @retval NORV_STATUS_EMPTY          there are no partitions
 * @retval NORV_STATUS_EXHAUSTED      the good blocks before the end do not suffice
 * @retval NORV_STATUS_RANGE          the end or the skip is misaligned, or the end is outside the flash; or
 *                                    the address is misaligned: then the work area leaks (quirk 140); or a
 *                                    callback moved the end past the flash, or to larger blocks
 * @retval NORV_STATUS_VERIFY_FAILED  fewer bytes or others were read back, or fewer were written
 * @retval others                     of `norv_linux_mtd_block_isbad`, `norv_linux_mtd_write` or
 *                                    `norv_linux_mtd_read`
 *
 * Blocks until the bytes are stored and read back.
 */
NORV_API uint32_t norv_linux_spi_flash_continue_write_verify(norv_spi_flash_t** flash, uint32_t address,
                                                             uint32_t skip, const void* data,
                                                             uint32_t* length, uint32_t* end,
                                                             norv_flash_cancel_fn cancel,
                                                             norv_flash_progress_fn progress, void* user);

NORV_END_DECLS

#endif
