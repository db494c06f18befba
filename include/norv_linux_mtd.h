/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_mtd.h
 * One partition of raw flash through the kernel's MTD character device, /dev/mtdN. The conventions of
 * norv_status.h hold.
 *
 * The record keeps the device node open, and the geometry that it had then. Offsets and lengths are in bytes,
 * from the start of the partition. Flash is erased in blocks of `info.erasesize`, which sets every bit, and
 * written in units of `info.writesize`. Blocks of NAND flash may be bad.
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

/** One partition. */
typedef struct {
    int32_t descriptor;        /**< the open device node; -1 when closed */
    struct mtd_info_user info; /**< of `MEMGETINFO`; its `size` bounds every offset */
} norv_mtd_t;

/**
 * Opens a partition: open(2) with `O_RDWR | O_SYNC | O_CLOEXEC`, then `MEMGETINFO`.
 *
 * @param path    the device node; a printf format without values: write `%%` for a `%` (quirk 125)
 * @param device  receives the open partition; closed after a failure. If `MEMGETINFO` fails but its errno has
 *                the status 0 (quirk 1), the partition is open and has the size 0
 * @retval NORV_STATUS_NOT_FOUND  there is no such partition
 * @retval EACCES                 the partition is read-only, or permission is denied
 * @retval ENOTTY                 the node is not an MTD character device
 * @retval errno                  of open(2) or `MEMGETINFO`
 */
NORV_API uint32_t norv_linux_mtd_open(const char* path, norv_mtd_t* device);

/**
 * Closes the device node and sets the descriptor to -1, if it is above 0: a record of zeros stays unchanged
 * (quirk 126).
 *
 * @param device  may be null
 */
NORV_API void norv_linux_mtd_close(norv_mtd_t* device);

/**
 * Returns whether the partition is NAND flash, which may have bad blocks: `MTD_NANDFLASH` or
 * `MTD_MLCNANDFLASH` according to the record.
 *
 * @param device  may be null
 * @return true for NAND; false for everything else, and for null
 */
NORV_API bool norv_linux_mtd_type_is_nand(const norv_mtd_t* device);

/**
 * Erases blocks: `MEMERASE`.
 *
 * @param device  an open partition
 * @param start   a multiple of the erase size
 * @param length  a multiple of the erase size
 * @retval NORV_STATUS_INVALID_ARG   `start` is not below the size of the partition, or `start + length`, in
 *                                   64 bits, is above it; or the kernel refuses a misaligned range
 * @retval NORV_STATUS_DEVICE_ERROR  a block is bad, or does not erase
 * @retval errno                     of `MEMERASE`
 *
 * Blocks until the blocks are erased.
 */
NORV_API uint32_t norv_linux_mtd_erase(const norv_mtd_t* device, uint32_t start, uint32_t length);

/**
 * Queries whether a block is bad: `MEMGETBADBLOCK`. For flash without bad blocks, some kernels report every
 * block as good, and others fail.
 *
 * @param device  an open partition
 * @param offset  of any byte of the block
 * @param bad     receives 1 for a bad block, otherwise 0; may be null
 * @retval NORV_STATUS_INVALID_ARG    `offset` is not below the size of the partition
 * @retval NORV_STATUS_NOT_AVAILABLE  the flash has no bad blocks
 * @retval errno                      of `MEMGETBADBLOCK`
 *
 * Blocks for up to the time of a read of the flash.
 */
NORV_API uint32_t norv_linux_mtd_block_isbad(const norv_mtd_t* device, uint32_t offset, uint8_t* bad);

/**
 * Marks a block bad, permanently: `MEMSETBADBLOCK`.
 *
 * @param device  an open partition
 * @param offset  of any byte of the block
 * @retval NORV_STATUS_INVALID_ARG    `offset` is not below the size of the partition
 * @retval NORV_STATUS_NOT_AVAILABLE  the flash has no bad blocks
 * @retval errno                      of `MEMSETBADBLOCK`
 *
 * Blocks until the mark is stored.
 */
NORV_API uint32_t norv_linux_mtd_block_markbad(const norv_mtd_t* device, uint32_t offset);

/**
 * Reads out-of-band bytes of a page: `MEMREADOOB`. The range is not checked (quirk 130).
 *
 * @param device  an open partition
 * @param start   of the page
 * @param length  a page has `info.oobsize` bytes
 * @param buffer  receives `length` bytes; not checked
 * @retval errno  of `MEMREADOOB`
 *
 * Blocks until the flash is read.
 */
NORV_API uint32_t norv_linux_mtd_read_oob(const norv_mtd_t* device, uint32_t start, uint32_t length,
                                          void* buffer);

/**
 * Writes out-of-band bytes of a page: `MEMWRITEOOB`. The range is not checked (quirk 130).
 *
 * @param device  an open partition
 * @param start   of the page
 * @param length  a page has `info.oobsize` bytes
 * @param data    `length` bytes; not checked
 * @retval NORV_STATUS_NOT_AVAILABLE  the flash has no out-of-band bytes
 * @retval errno                      of `MEMWRITEOOB`
 *
 * Blocks until the bytes are stored.
 */
NORV_API uint32_t norv_linux_mtd_write_oob(const norv_mtd_t* device, uint32_t start, uint32_t length,
                                           const void* data);

/**
 * Reads: lseek(2), then one read(2). If the seek fails, the read is made nevertheless, at the current file
 * position, and the status of the seek is returned afterwards (quirk 127).
 *
 * Errors that the error correction of NAND cannot correct do not make the read fail: the kernel returns
 * damaged bytes, and only counts the errors of each partition (quirk 129). Check the data against a checksum,
 * or compare the count before and after the reads: the field `failed` of `struct mtd_ecc_stats`, which the
 * request `ECCGETSTATS` on `device->descriptor` fills.
 *
 * @param device  an open partition
 * @param offset  of the first byte
 * @param length  in bytes; the kernel truncates a read past the end of the partition (quirk 128)
 * @param buffer  receives the bytes
 * @param count   receives the number of bytes read, also if only the seek failed; 0 for a failed read whose
 *                errno has the status 0 (quirk 1); may be null
 * @retval NORV_STATUS_INVALID_ARG  `offset` is not below the size of the partition
 * @retval errno                    of read(2), otherwise of lseek(2); a short read is a success
 *
 * Blocks until the flash is read.
 */
NORV_API uint32_t norv_linux_mtd_read(const norv_mtd_t* device, uint32_t offset, uint32_t length,
                                      void* buffer, uint32_t* count);

/**
 * Writes to erased flash: lseek(2), then one write(2), which is made even if the seek fails, as in
 * `norv_linux_mtd_read` (quirk 127).
 *
 * @param device  an open partition
 * @param offset  of the first byte; the kernel requires a multiple of the write size
 * @param length  in bytes; the kernel requires a multiple of the write size, and truncates a write past the
 *                end of the partition (quirk 128)
 * @param data    the bytes
 * @param count   receives the number of bytes written, as in `norv_linux_mtd_read`; may be null
 * @retval NORV_STATUS_INVALID_ARG  `offset` is not below the size of the partition, or the kernel refuses a
 *                                  misaligned range
 * @retval errno                    of write(2), otherwise of lseek(2); a short write is a success
 *
 * Blocks until the bytes are stored.
 */
NORV_API uint32_t norv_linux_mtd_write(const norv_mtd_t* device, uint32_t offset, uint32_t length,
                                       const void* data, uint32_t* count);

NORV_END_DECLS

#endif
