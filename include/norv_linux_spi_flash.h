/**
 * @file norv_linux_spi_flash.h
 * The SPI flash of a board: its MTD partitions /dev/mtd0 to /dev/mtd9, joined into one linear flash.
 *
 * The partitions follow each other in the order of their names, each starting where the one before it ends;
 * addresses and lengths are unsigned 32-bit bytes of the whole. A partition is a region of the flash, with a
 * geometry of its own, and may be NOR or NAND; erase sizes are taken to be powers of two. Only NAND blocks
 * are asked whether they are bad.
 *
 * The three "continue" operations work through many blocks: they leave out bad ones, report their progress,
 * can be stopped between two steps, and leave a cursor from which the caller continues. They keep nothing
 * between two calls. Nothing is locked: a flash is used by one thread at a time, and callbacks run on that
 * thread. How an update that was interrupted is continued is described in norv_flash_types.h.
 *
 * Where the base of a partition is not a multiple of its erase size, only
 * `norv_linux_spi_flash_erase_one_block` erases there: the other two erases return NORV_STATUS_RANGE at each
 * of its addresses, also when they reach it from the partition before.
 *
 * The size of a flash of exactly 4 GiB is reported as 0. Its end is 0, too, which as the end of an operation
 * lies before every address, so that nothing is erased or written. The last erase block is reached only by
 * the calls that take no end.
 *
 * Errors that the error correction of NAND cannot correct do not make a read fail, see `norv_linux_mtd_read`;
 * a write with verification finds them, since it compares the bytes.
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
    norv_mtd_t device; /**< its open device node, and its geometry */
} norv_spi_flash_region_t;

/** An open flash: allocated by `norv_linux_spi_flash_open`, released by close; only read it. */
typedef struct {
    uint32_t size;                    /**< of all partitions, in bytes; counts modulo 2^32 */
    int32_t region_count;             /**< how many partitions there are */
    norv_spi_flash_region_t* regions; /**< in the order of their addresses */
} norv_spi_flash_t;

/**
 * Opens every partition that is named /dev/mtd0 to /dev/mtd9; /dev/mtd10, /dev/mtd0ro and /dev/mtdblock0 are
 * not taken.
 *
 * Where there is none the call succeeds, and every operation on the flash then fails with
 * NORV_STATUS_EMPTY (`norv_linux_spi_flash_get_info`: NORV_STATUS_NOT_FOUND).
 *
 * @param flash  receives the open flash; null after a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `flash` is null; NORV_STATUS_NO_MEMORY; the errno status of reading
 *         /dev; the status of `norv_linux_mtd_open` for the first partition that does not open, with
 *         everything closed again
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_spi_flash_open(norv_spi_flash_t** flash);

/**
 * Closes the partitions and releases the flash.
 *
 * @param flash  may be null, and so may what it points to; that is null afterwards
 *
 * Never fails.
 */
NORV_API void norv_linux_spi_flash_close(norv_spi_flash_t** flash);

/**
 * Tells the geometry: the size of the whole flash, and the erase block and write unit of the first region
 * only, whatever those of the others are.
 *
 * @param flash  not null, open
 * @param info   filled, but for its `reserved`; untouched on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null or the flash is closed; NORV_STATUS_NOT_FOUND
 *         when there is no partition; NORV_STATUS_RANGE when the record counts less than none
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_spi_flash_get_info(norv_spi_flash_t** flash, norv_flash_info_t* info);

/**
 * Reads within one region: one lseek(2), one read(2). Bad blocks are read like any other.
 *
 * @param flash    not null, open
 * @param address  first byte
 * @param buffer   receives the bytes; owned by the caller; not null
 * @param length   in: bytes wanted, above 0; out: bytes read. What runs past the end of the region is cut
 *                 before the read, and the cut length is what a failed read leaves here; not null
 * @return 0, also after a short read; NORV_STATUS_INVALID_ARG when a pointer is null, the flash is closed or
 *         the length is 0; NORV_STATUS_EMPTY when there is no partition; NORV_STATUS_RANGE when the address
 *         lies in no region or the record counts less than none; the status of `norv_linux_mtd_read`
 *
 * Blocks as long as the read of the flash takes.
 */
NORV_API uint32_t norv_linux_spi_flash_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                            uint32_t* length);

/**
 * Writes within one region: one lseek(2), one write(2). Nothing is erased, verified or left out.
 *
 * @param flash    not null, open
 * @param address  first byte; the kernel wants a multiple of the region's write size
 * @param data     never changed; owned by the caller; not null
 * @param length   in: bytes to write, above 0; out: bytes written. What runs past the end of the region is
 *                 cut before the write, and the cut length is what a failed write leaves here; not null
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when a pointer is null, the flash is closed or
 *         the length is 0; NORV_STATUS_EMPTY when there is no partition; NORV_STATUS_RANGE when the address
 *         lies in no region or the record counts less than none; the status of `norv_linux_mtd_write`
 *
 * Blocks until the bytes are stored.
 */
NORV_API uint32_t norv_linux_spi_flash_write(norv_spi_flash_t** flash, uint32_t address, const void* data,
                                             uint32_t* length);

/**
 * Erases the block that starts at an address. A NAND block that does not erase, or that cannot be asked
 * whether it is bad, is marked bad.
 *
 * @param flash    not null, open
 * @param address  start of the block: in its region, a multiple of the region's erase size
 * @return 0; NORV_STATUS_INVALID_ARG when `flash` is null or closed; NORV_STATUS_EMPTY when there is no
 *         partition; NORV_STATUS_RANGE when the address lies in no region or starts no block, or the record
 *         counts less than none; NORV_STATUS_EXHAUSTED when the block is bad, or has just been marked bad;
 * the status of `norv_linux_mtd_block_markbad` when that failed; on NOR the status of `norv_linux_mtd_erase`
 *
 * Blocks until the block is erased.
 */
NORV_API uint32_t norv_linux_spi_flash_erase_one_block(norv_spi_flash_t** flash, uint32_t address);

/**
 * Erases the first block from an address on that is not bad.
 *
 * A NAND block that does not erase, or that cannot be asked whether it is bad, is marked bad, and the next
 * one is tried. When the marking fails, each NAND block that follows is marked bad without being asked or
 * erased, until a marking succeeds.
 *
 * @param flash    not null, open
 * @param address  start of a block: a multiple of its region's erase size
 * @param end      in: where to stop, a multiple of the erase size of the region of the byte before it;
 *                 out: the address after the erased block; unchanged on failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null or the flash is closed; NORV_STATUS_EMPTY when
 *         there is no partition; NORV_STATUS_RANGE when the address is misaligned, the end is misaligned or
 *         outside the flash, or the record counts less than none; NORV_STATUS_EXHAUSTED when no block before
 *         the end could be erased; on NOR the status of `norv_linux_mtd_erase`, or of the marking that failed
 *         just before the region
 *
 * Blocks until the block is erased.
 */
NORV_API uint32_t norv_linux_spi_flash_erase_first_valid_block(norv_spi_flash_t** flash, uint32_t address,
                                                               uint32_t* end);

/**
 * Erases blocks from an address on until `length` bytes of good blocks are erased, or the end is reached.
 *
 * A bad NAND block is left out: it does not count, and is not reported. One that does not erase, or cannot be
 * asked, is marked bad and does not count either; when the marking fails, each NAND block that follows is
 * marked bad without being asked or erased, until a marking succeeds. On NOR a failure ends the call. Nothing
 * at or past the end is erased.
 *
 * Progress is reported for each block that was erased or marked: with the status of the marking, and, for the
 * last block before the end, always with status 0, nothing remaining and 100 percent.
 *
 * @param flash     not null, open: not checked
 * @param address   start of a block: a multiple of its region's erase size
 * @param length    bytes of good blocks to erase; 0 only sets `end` to the address
 * @param end       in: where to stop, a multiple of the erase size of the region of the byte before it;
 *                  out: the first address after the last erased block, from which the next call goes on;
 *                  unchanged on failure, and when the address does not lie before it; not null: not checked
 * @param cancel    asked before each block; may be null
 * @param progress  may be null
 * @param user      passed to both
 * @return 0, also when the end came before `length` bytes were erased; NORV_STATUS_TIMEOUT when `cancel` said
 *         so; NORV_STATUS_EMPTY when there is no partition; NORV_STATUS_RANGE when the address is misaligned
 *         or in no region, the end is misaligned or outside the flash, or the record counts less than none;
 *         the status of the last marking when that failed; on NOR the status of `norv_linux_mtd_erase`, or of
 *         the marking that failed just before the region
 *
 * Blocks until the blocks are erased.
 */
NORV_API uint32_t norv_linux_spi_flash_continue_erase(norv_spi_flash_t** flash, uint32_t address,
                                                      uint32_t length, uint32_t* end,
                                                      norv_flash_cancel_fn cancel,
                                                      norv_flash_progress_fn progress, void* user);

/**
 * Reads `length` bytes from the good blocks from an address on, at most one erase block at a time.
 *
 * Behind the last region the call ends with success and an unchanged length, although it read less: keep
 * address and length inside the flash. A read that delivers nothing is tried again for as long as `cancel`
 * lets it.
 *
 * @param flash     not null, open: not checked
 * @param address   first byte; in a bad block the reading starts with the block after it
 * @param buffer    receives the bytes; owned by the caller
 * @param length    in: bytes wanted; out: unchanged on success and when cancelled, the bytes that were read
 *                  on failure; not null: not checked
 * @param cancel    asked before each step; may be null
 * @param progress  called after each read; may be null
 * @param user      passed to both
 * @return 0, also when the flash ended first; NORV_STATUS_TIMEOUT when `cancel` said so; NORV_STATUS_EMPTY
 *         when there is no partition; NORV_STATUS_RANGE when the record counts less than none; the status of
 *         `norv_linux_mtd_block_isbad` or `norv_linux_mtd_read` (NORV_STATUS_INVALID_ARG for a null buffer)
 *
 * Blocks as long as the reads of the flash take.
 */
NORV_API uint32_t norv_linux_spi_flash_continue_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                                     uint32_t* length, norv_flash_cancel_fn cancel,
                                                     norv_flash_progress_fn progress, void* user);

/**
 * Writes data into the good blocks from an address on, and reads back and compares each block. Erase the area
 * first; the end may be the one that `norv_linux_spi_flash_continue_erase` has left, or that of the area.
 *
 * The last write unit is filled with 0xFF. The end is looked at once for each block: a block that starts
 * before it is written up to its own end.
 *
 * @param flash     not null, open: not checked
 * @param address   first byte: in its region, a multiple of the region's write size
 * @param skip      bytes of good blocks to leave out first, one write unit after the other, and `cancel` is
 *                  asked at each; a multiple of the write size of the region of the byte before the end
 * @param data      the bytes to write, never changed; owned by the caller; not null: not checked
 * @param length    in: bytes to write; out: unchanged on success, when cancelled, when the space before the
 *                  end was too small, and when nothing was begun; else the bytes that were written and
 *                  verified; not null: not checked
 * @param end       in: where the area ends, a multiple of the write size of the region of the byte before it;
 *                  out: the start of the block after the last one written, or the address when the length is
 *                  0, from which the next call goes on; unchanged on failure; not null: not checked
 * @param cancel    asked before each step; may be null
 * @param progress  called after each block that was written and verified; may be null
 * @param user      passed to both
 * @return 0; NORV_STATUS_TIMEOUT when `cancel` said so; NORV_STATUS_NO_MEMORY; NORV_STATUS_EMPTY when there
 * is no partition; NORV_STATUS_EXHAUSTED when the good blocks before the end are too few; NORV_STATUS_RANGE
 * when address, skip or end is misaligned, the end is outside the flash, or the record counts less than none:
 * a misaligned address leaves the work area, twice the erase size, allocated for good;
 * NORV_STATUS_VERIFY_FAILED when what was read back is shorter or different, or less was written; the status
 * of `norv_linux_mtd_block_isbad`, `norv_linux_mtd_write` or `norv_linux_mtd_read`
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
