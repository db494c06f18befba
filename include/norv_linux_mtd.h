/**
 * @file norv_linux_mtd.h
 * One partition of raw flash through the kernel's MTD character device, /dev/mtdN.
 *
 * The record keeps the device node open, and its geometry as it was at the opening. Offsets and lengths are
 * bytes from the start of the partition. Flash is erased in blocks of `info.erasesize`, which sets every bit,
 * and written in units of `info.writesize`; NAND blocks may be bad, and are asked for and marked here. A
 * record is used by one thread at a time.
 *
 *     norv_mtd_t partition;
 *     uint32_t count;
 *     norv_linux_mtd_open("/dev/mtd0", &partition);
 *     norv_linux_mtd_erase(&partition, 0, partition.info.erasesize);
 *     norv_linux_mtd_write(&partition, 0, sizeof page, page, &count);
 *     norv_linux_mtd_close(&partition);
 */
#ifndef NORV_LINUX_MTD_H
#define NORV_LINUX_MTD_H

#include <mtd/mtd-user.h>
#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** One partition; the storage is the caller's, `norv_linux_mtd_open` fills it. */
typedef struct {
    int32_t descriptor;        /**< the open device node; -1 when closed */
    struct mtd_info_user info; /**< as the kernel tells it; its `size` bounds every offset */
} norv_mtd_t;

/**
 * Opens a partition: open(2) with `O_RDWR | O_SYNC | O_CLOEXEC`, then `MEMGETINFO`.
 *
 * @param path    the device node, used as a printf format without values: a `%` in the path is written `%%`;
 *                cut silently after 255 characters; not null
 * @param device  filled; not null; after a failure it is closed and its descriptor is -1 (a node that got the
 *                descriptor 0, in a program without standard input, is not closed)
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null, with nothing opened; the errno status of
 *         open(2), for instance EACCES for a partition that cannot be written, or of the request
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_mtd_open(const char* path, norv_mtd_t* device);

/**
 * Closes the device node; only a descriptor above 0 counts as open, any other is left as it is.
 *
 * @param device  may be null; the descriptor that was closed becomes -1, so that a second close closes
 *                nothing
 *
 * Never fails.
 */
NORV_API void norv_linux_mtd_close(norv_mtd_t* device);

/**
 * Tells whether the partition is NAND flash, `MTD_NANDFLASH` or `MTD_MLCNANDFLASH`, which has bad blocks.
 *
 * @param device  may be null
 * @return true for NAND; false for everything else, and for null; not a status
 *
 * Does not block; asks the record, not the kernel.
 */
NORV_API bool norv_linux_mtd_type_is_nand(const norv_mtd_t* device);

/**
 * Erases blocks: `MEMERASE`.
 *
 * @param device  not null, open
 * @param start   first byte; the kernel wants a multiple of the erase size
 * @param length  in bytes; the kernel wants a multiple of the erase size
 * @return 0; NORV_STATUS_INVALID_ARG when `device` is null, when `start` is not below the size of the
 *         partition, or when `start + length` is above it, with nothing erased; the errno status of the
 *         request: INVALID_ARG for what is not aligned, DEVICE_ERROR (EIO) for a block that does not erase
 *
 * Blocks until the blocks are erased.
 */
NORV_API uint32_t norv_linux_mtd_erase(const norv_mtd_t* device, uint32_t start, uint32_t length);

/**
 * Asks whether a block is bad: `MEMGETBADBLOCK`. Of flash without bad blocks, some kernels say that all are
 * good, and others fail.
 *
 * @param device  not null, open
 * @param offset  any byte of the block
 * @param bad     receives 1 for a bad block, else 0; may be null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG when `device` is null or `offset` is not below the size of the
 *         partition; the errno status of the request, for instance NOT_AVAILABLE (EOPNOTSUPP)
 *
 * Does not block for longer than a read of the flash takes.
 */
NORV_API uint32_t norv_linux_mtd_block_isbad(const norv_mtd_t* device, uint32_t offset, uint8_t* bad);

/**
 * Marks a block bad, for good: `MEMSETBADBLOCK`.
 *
 * @param device  not null, open
 * @param offset  any byte of the block
 * @return 0; NORV_STATUS_INVALID_ARG when `device` is null or `offset` is not below the size of the
 *         partition; the errno status of the request
 *
 * Blocks until the mark is stored.
 */
NORV_API uint32_t norv_linux_mtd_block_markbad(const norv_mtd_t* device, uint32_t offset);

/**
 * Reads out-of-band bytes of a page: `MEMREADOOB`. The range is not checked here.
 *
 * @param device  not null, open
 * @param start   offset of the page
 * @param length  in bytes; a page has `info.oobsize`
 * @param buffer  receives `length` bytes; owned by the caller
 * @return 0; NORV_STATUS_INVALID_ARG when `device` is null; the errno status of the request
 *
 * Blocks as long as the read of the flash takes.
 */
NORV_API uint32_t norv_linux_mtd_read_oob(const norv_mtd_t* device, uint32_t start, uint32_t length,
                                          void* buffer);

/**
 * Writes out-of-band bytes of a page: `MEMWRITEOOB`. The range is not checked here.
 *
 * @param device  not null, open
 * @param start   offset of the page
 * @param length  in bytes; a page has `info.oobsize`
 * @param data    `length` bytes, never changed; owned by the caller
 * @return 0; NORV_STATUS_INVALID_ARG when `device` is null; the errno status of the request
 *
 * Blocks as long as the write of the flash takes.
 */
NORV_API uint32_t norv_linux_mtd_write_oob(const norv_mtd_t* device, uint32_t start, uint32_t length,
                                           const void* data);

/**
 * Reads: lseek(2) to the offset, then one read(2).
 *
 * Errors that the error correction of NAND cannot correct do not make read(2) fail: the kernel returns
 * damaged bytes and only counts the errors of each partition. Check the data against a checksum, or compare
 * the count before and after the reads: the field `failed` of `struct mtd_ecc_stats`, which the request
 * `ECCGETSTATS` on `device->descriptor` fills.
 *
 * A range that runs past the end of the partition is not refused: the kernel cuts it, and `count` tells. When
 * the seek fails the read is made all the same, wherever the file position stands; the call then returns the
 * status of the seek.
 *
 * @param device  not null, open
 * @param offset  first byte
 * @param length  in bytes
 * @param buffer  receives up to `length` bytes; owned by the caller; not null
 * @param count   receives the bytes that were read; may be null; untouched when the call returns anything but
 *                0 or the status of the seek
 * @return 0, also after a short read; NORV_STATUS_INVALID_ARG when `device` or `buffer` is null or `offset`
 *         is not below the size of the partition; the errno status of the read, else that of the seek
 *
 * Blocks as long as the read of the flash takes.
 */
NORV_API uint32_t norv_linux_mtd_read(const norv_mtd_t* device, uint32_t offset, uint32_t length,
                                      void* buffer, uint32_t* count);

/**
 * Writes: lseek(2) to the offset, then one write(2). The place must have been erased.
 *
 * A range that runs past the end of the partition is not refused: the kernel cuts it, and `count` tells. When
 * the seek fails the write is made all the same, wherever the file position stands; the call then returns the
 * status of the seek.
 *
 * @param device  not null, open
 * @param offset  first byte; the kernel wants a multiple of the write size
 * @param length  in bytes; the kernel wants a multiple of the write size
 * @param data    `length` bytes, never changed; owned by the caller; not null
 * @param count   receives the bytes that were written; may be null; untouched when the call returns anything
 *                but 0 or the status of the seek
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when `device` or `data` is null or `offset` is
 *         not below the size of the partition; the errno status of the write, else that of the seek
 *
 * Blocks until the bytes are stored.
 */
NORV_API uint32_t norv_linux_mtd_write(const norv_mtd_t* device, uint32_t offset, uint32_t length,
                                       const void* data, uint32_t* count);

NORV_END_DECLS

#endif
