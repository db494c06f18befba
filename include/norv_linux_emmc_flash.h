/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_emmc_flash.h
 * An eMMC, SD card or other block device as a flash. The conventions of norv_status.h hold.
 *
 * The device is opened by its path, for instance "/dev/mmcblk0boot0", and accessed with pread(2) and
 * pwrite(2). There are no bad blocks, and erasing writes zeros. Erase block and write unit are the block size
 * of the device, a power of two; for any other block size the same bit masks are used (quirk 149). Addresses
 * are in bytes, with 32 bits: nothing past 4 GiB can be reached, and no operation wraps around to address 0.
 *
 * The "continue" functions can be cancelled, report progress and can be resumed (see norv_flash_types.h).
 * They work in chunks: the length in whole blocks, rounded down (for an erase, up), but at least 16 KiB and
 * at most 128 KiB. The last chunk is written whole, so bytes past the area may be erased or overwritten,
 * unless address and length are multiples of 128 KiB. Misaligned arguments are refused before any write.
 *
 * Where the device ends within a chunk, the part before the end is transferred, and counts. The next chunk
 * fails: a write or an erase with NORV_STATUS_EXHAUSTED (ENOSPC), a read with NORV_STATUS_RANGE. An erase
 * whose last chunk extends past the end of the device succeeds.
 *
 * A verification reads from the kernel's page cache, normally without reading a byte from the device
 * (quirk 151). It shows that the device has accepted the data, not that the medium returns it. To check the
 * medium, make the kernel drop its cache, then read with `norv_linux_emmc_flash_continue_read` and compare:
 * close the device and open it again while nothing else has it open, or write 1 to /proc/sys/vm/drop_caches
 * (root). A device with a cache of its own may still answer from there until its power is cycled.
 *
 *     norv_emmc_flash_t* flash = NULL;
 *     uint32_t length = image_size;
 *     norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0boot0");
 *     norv_linux_emmc_flash_continue_erase(&flash, 0, image_size, NULL, NULL, NULL);
 *     norv_linux_emmc_flash_continue_write_verify(&flash, 0, 0, image, &length, NULL, NULL, NULL);
 *     norv_linux_emmc_flash_close(&flash);
 */
#ifndef NORV_LINUX_EMMC_FLASH_H
#define NORV_LINUX_EMMC_FLASH_H

#include <stdint.h>

#include "norv_flash_types.h"
#include "norv_status.h"

NORV_BEGIN_DECLS

/** An open device. */
typedef struct norv_emmc_flash norv_emmc_flash_t;

/**
 * Opens a block device: open(2) with `O_RDWR | O_CLOEXEC | O_SYNC`, then `BLKBSZGET` for the block size and
 * `BLKGETSIZE64` for the size.
 *
 * A handle that could not be opened is released with free(3), although it comes from `norv_zalloc`
 * (quirk 144): a base library with another allocator has to allow for that. A failed `BLKBSZGET` whose errno
 * has the status 0 (quirk 1) leaves a block size of 0, with which nothing can be erased, and continued writes
 * must start at address 0.
 *
 * @param flash  receives the open device
 * @param path   the device
 * @retval NORV_STATUS_NO_MEMORY  out of memory; nothing is opened
 * @retval NORV_STATUS_NOT_FOUND  there is no such device
 * @retval ENOTTY                 not a block device
 * @retval errno                  of open(2), `BLKBSZGET` or `BLKGETSIZE64`
 */
NORV_API uint32_t norv_linux_emmc_flash_open(norv_emmc_flash_t** flash, const char* path);

/**
 * Closes the device. All writes have reached it (`O_SYNC`).
 *
 * @param flash  may be null
 */
NORV_API void norv_linux_emmc_flash_close(norv_emmc_flash_t** flash);

/**
 * Gets the geometry that the device had when it was opened, without a system call.
 *
 * @param flash  an open device
 * @param info   receives it; `reserved` is not touched
 * @retval NORV_STATUS_INVALID_ARG  the device is closed
 */
NORV_API uint32_t norv_linux_emmc_flash_get_info(norv_emmc_flash_t** flash, norv_flash_info_t* info);

/**
 * Reads: one pread(2).
 *
 * @param flash    an open device
 * @param address  in bytes
 * @param buffer   receives the bytes
 * @param length   in: bytes to read, at least 1; out: bytes read, fewer at the end of the device, 0 past it.
 *                 A failure whose errno has the status 0 leaves it unchanged (quirk 1)
 * @retval NORV_STATUS_INVALID_ARG  the device is closed, or the length is 0
 * @retval errno                    of pread(2)
 *
 * Blocks until the bytes are read.
 */
NORV_API uint32_t norv_linux_emmc_flash_read(norv_emmc_flash_t** flash, uint32_t address, void* buffer,
                                             uint32_t* length);

/**
 * Writes: one pwrite(2). Nothing is read back.
 *
 * @param flash    an open device
 * @param address  in bytes
 * @param buffer   the bytes
 * @param length   in: bytes to write, at least 1; out: bytes written, fewer at the end of the device, 0 if it
 *                 accepts nothing (quirk 150). A failure whose errno has the status 0 leaves it unchanged
 *                 (quirk 1)
 * @retval NORV_STATUS_INVALID_ARG  the device is closed, or the length is 0
 * @retval NORV_STATUS_EXHAUSTED    the address is at or past the end of the device
 * @retval errno                    of pwrite(2)
 *
 * Blocks until the bytes are on the device (`O_SYNC`).
 */
NORV_API uint32_t norv_linux_emmc_flash_write(norv_emmc_flash_t** flash, uint32_t address, const void* buffer,
                                              uint32_t* length);

/**
 * Erases one block: `norv_linux_emmc_flash_erase_first_valid_block` without an end.
 *
 * @param flash    an open device
 * @param address  of the block; a multiple of the erase block size
 * @retval others  of `norv_linux_emmc_flash_erase_first_valid_block`
 *
 * Blocks until the zeros are on the device.
 */
NORV_API uint32_t norv_linux_emmc_flash_erase_one_block(norv_emmc_flash_t** flash, uint32_t address);

/**
 * Erases from an address to an end, or one block: one pwrite(2) of zeros. Unlike on a flash with bad blocks,
 * everything up to the end is erased. Allocates as much memory as it erases.
 *
 * @param flash    an open device
 * @param address  a multiple of the erase block size
 * @param end      in: where to stop, a multiple of the erase block size; out: where the zeros end, earlier if
 *                 the device ends before; null: one block is erased
 * @retval NORV_STATUS_INVALID_ARG  the device is closed, the end equals the address, or memory cannot be
 *                                  allocated (quirk 147)
 * @retval NORV_STATUS_RANGE        the address or the end is misaligned, or the end is below the address
 * @retval NORV_STATUS_EXHAUSTED    the address is at or past the end of the device
 * @retval errno                    of pwrite(2)
 *
 * Blocks until the zeros are on the device.
 */
NORV_API uint32_t norv_linux_emmc_flash_erase_first_valid_block(norv_emmc_flash_t** flash, uint32_t address,
                                                                uint32_t* end);

/**
 * Erases an area: writes zeros, one pwrite(2) for each chunk.
 *
 * The last chunk is written whole too, and may extend past the area by up to a chunk less one byte
 * (quirk 145). A chunk of which the device accepts only a part (quirk 146) or nothing (quirk 150) counts as
 * erased. After a failure, the chunks that were reported are erased, and the failed one may be in part.
 * Allocates one chunk.
 *
 * @param flash     an open device
 * @param address   a multiple of the erase block size
 * @param length    in bytes; 0: nothing is done
 * @param cancel    called before each chunk; may be null
 * @param progress  called after each chunk, with status 0; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG  the device is closed, or memory cannot be allocated (quirk 147)
 * @retval NORV_STATUS_RANGE        the address is misaligned, or a chunk does not end below 4 GiB
 * @retval NORV_STATUS_TIMEOUT      `cancel` returned true
 * @retval NORV_STATUS_EXHAUSTED    a chunk starts at or past the end of the device
 * @retval errno                    of pwrite(2)
 *
 * Blocks until the zeros are on the device.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_erase(norv_emmc_flash_t** flash, uint32_t address,
                                                       uint32_t length, norv_flash_cancel_fn cancel,
                                                       norv_flash_progress_fn progress, void* user);

/**
 * Reads an area: one pread(2) for each chunk, up to the next multiple of the chunk size.
 *
 * @param flash     an open device
 * @param address   in bytes
 * @param buffer    receives the bytes; may be null if the length is 0
 * @param length    in: bytes to read; out, only after a failed chunk (not a cancellation): bytes read
 * @param cancel    called before each chunk; may be null
 * @param progress  called after each chunk, with status 0; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG  the device is closed
 * @retval NORV_STATUS_TIMEOUT      `cancel` returned true
 * @retval NORV_STATUS_RANGE        the device, or the first 4 GiB, ended before the length
 * @retval errno                    of pread(2)
 *
 * Blocks until the bytes are read.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_read(norv_emmc_flash_t** flash, uint32_t address,
                                                      void* buffer, uint32_t* length,
                                                      norv_flash_cancel_fn cancel,
                                                      norv_flash_progress_fn progress, void* user);

/**
 * Writes an area: for each chunk, up to the next multiple of the chunk size, one pwrite(2), one pread(2) and
 * a comparison. The area need not be erased.
 *
 * Data that ends within a chunk is padded with 0xFF to a write of a whole chunk, past the chunk border too;
 * the padding is not verified (quirk 148). If the chunk size is not a power of two, which lengths between
 * 16 KiB and 128 KiB may cause, the length of this last write comes from the same bit mask, and exceeds that
 * of the data by up to nearly one chunk (quirk 149).
 *
 * A short read-back that matches is not a failure: the operation continues at its end (quirk 152). Allocates
 * two chunks.
 *
 * @param flash     an open device
 * @param address   a multiple of the write unit size
 * @param skip      how far after the address the data starts; a multiple of the write unit size
 * @param data      the bytes; may be null if the length is 0
 * @param length    in: bytes to write; out, only after a failed chunk (not a cancellation: quirk 153): bytes
 *                  written and verified
 * @param cancel    called before each chunk; may be null
 * @param progress  called after each verified chunk, with status 0; may be null
 * @param user      passed to both; may be null
 * @retval NORV_STATUS_INVALID_ARG    the device is closed
 * @retval NORV_STATUS_RANGE          the address or the skip is misaligned, or 4 GiB are reached
 * @retval NORV_STATUS_NO_MEMORY      out of memory, also for a length of 0 (quirk 154); nothing is written
 * @retval NORV_STATUS_TIMEOUT        `cancel` returned true
 * @retval NORV_STATUS_VERIFY_FAILED  other bytes were read back, none, or more than were written
 * @retval NORV_STATUS_EXHAUSTED      a chunk starts at or past the end of the device
 * @retval errno                      of pwrite(2) or pread(2)
 *
 * Blocks until the bytes are on the device.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_write_verify(norv_emmc_flash_t** flash, uint32_t address,
                                                              uint32_t skip, const void* data,
                                                              uint32_t* length, norv_flash_cancel_fn cancel,
                                                              norv_flash_progress_fn progress, void* user);

NORV_END_DECLS

#endif
