/**
 * @file norv_linux_emmc_flash.h
 * An eMMC, SD card or any other block device as a flash: erase, read, and write with verification, all of
 * which can be cancelled, report their progress and can be resumed (norv_flash_types.h describes how).
 *
 * The device is opened by its path, for instance "/dev/mmcblk0boot0", and accessed by positioned reads and
 * writes; there are no bad blocks, and erasing means writing zeros. Erase block and write unit are the
 * device's block size, a power of two. Addresses have 32 bits: what lies beyond 4 GiB cannot be reached, and
 * no operation continues at address 0 after it. A handle is used by one thread at a time.
 *
 * The continue operations work in chunks of 16 KiB to 128 KiB: the length rounded down to blocks (for an
 * erase rounded up), but no less and no more than that. With a length of 128 KiB or more a chunk is 128 KiB.
 * Whole chunks are written:
 *
 * - `norv_linux_emmc_flash_continue_erase` zeroes whole chunks, the last one too, which may run past the
 *   area;
 * - `norv_linux_emmc_flash_continue_write_verify` fills its last write with 0xFF, which may run past the
 *   data.
 *
 * Nothing beyond the area is touched when address and length are multiples of 128 KiB.
 *
 * Where the device ends within a chunk, the part before its end is written or read, and counts. The next
 * chunk fails: a write or an erase with the errno status of pwrite(2) (ENOSPC), a read with
 * NORV_STATUS_RANGE. An erase whose last chunk runs past the end of the device succeeds.
 *
 * A verification reads back from the kernel's page cache, as a rule without reading a byte from the device.
 * It shows that the device has accepted the data, not that the medium returns it. To check the medium itself,
 * make the kernel discard what it holds, then read with `norv_linux_emmc_flash_continue_read` and compare:
 * close the device and open it again while nothing else has it open, or write 1 to /proc/sys/vm/drop_caches
 * (root). A device with a cache of its own may still answer from there until it is power-cycled.
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

/** An open device; private, allocated by `norv_linux_emmc_flash_open`, released by its close. */
typedef struct norv_emmc_flash norv_emmc_flash_t;

/**
 * Opens a block device: open(2) with `O_RDWR | O_CLOEXEC | O_SYNC`, then the requests `BLKBSZGET` (block
 * size) and `BLKGETSIZE64` (size).
 *
 * @param flash  receives the handle; not null; what it held is overwritten; null after any failure
 * @param path   the device; cut silently after 255 characters; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; NORV_STATUS_NO_MEMORY, with nothing opened; the
 *         errno status of open(2) or of a request (that of ENOTTY: no block device)
 *
 * A handle that could not be opened is released with free(3), although it comes from `norv_zalloc`: a base
 * library with another allocator has to allow for that. Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_emmc_flash_open(norv_emmc_flash_t** flash, const char* path);

/**
 * Closes the device. A device that got the descriptor 0, in a program that had closed its standard input,
 * stays open.
 *
 * @param flash  its handle is released and it becomes null; may be null or hold null, which does nothing
 *
 * Every write has reached the device before (`O_SYNC`). Never fails.
 */
NORV_API void norv_linux_emmc_flash_close(norv_emmc_flash_t** flash);

/**
 * Tells the geometry that the device had when it was opened: erase block and write unit are its block size.
 *
 * @param flash  not null, holds an open device
 * @param info   filled, except for `reserved`, which stays as it is; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null
 *
 * Makes no system call.
 */
NORV_API uint32_t norv_linux_emmc_flash_get_info(norv_emmc_flash_t** flash, norv_flash_info_t* info);

/**
 * Reads, with one pread(2).
 *
 * @param flash    not null, holds an open device
 * @param address  in bytes, any
 * @param buffer   receives the bytes; not null
 * @param length   in: bytes wanted, not 0; out: bytes read, fewer at the end of the device, where 0 is no
 *                 failure; unchanged after a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null or the length is 0; the errno
 * status of pread(2)
 *
 * Blocks until the device has delivered.
 */
NORV_API uint32_t norv_linux_emmc_flash_read(norv_emmc_flash_t** flash, uint32_t address, void* buffer,
                                             uint32_t* length);

/**
 * Writes, with one pwrite(2), and reads nothing back.
 *
 * @param flash    not null, holds an open device
 * @param address  in bytes, any
 * @param buffer   the bytes; only read; not null
 * @param length   in: bytes to write, not 0; out: bytes written, fewer where the device ends; unchanged after
 *                 a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null or the length is 0; the errno
 * status of pwrite(2) (that of ENOSPC: the address is at or past the end of the device)
 *
 * Blocks until the bytes are on the device (`O_SYNC`).
 */
NORV_API uint32_t norv_linux_emmc_flash_write(norv_emmc_flash_t** flash, uint32_t address, const void* buffer,
                                              uint32_t* length);

/**
 * Erases one block: `norv_linux_emmc_flash_erase_first_valid_block` without an end.
 *
 * @param flash    not null, holds an open device
 * @param address  of the block, in bytes; a multiple of the erase block size
 * @return as `norv_linux_emmc_flash_erase_first_valid_block`
 *
 * Blocks until the zeros are on the device. Allocates as much memory as it erases.
 */
NORV_API uint32_t norv_linux_emmc_flash_erase_one_block(norv_emmc_flash_t** flash, uint32_t address);

/**
 * Erases from an address to an end, or one block, by writing zeros with one pwrite(2). Unlike on a flash with
 * bad blocks, everything up to the end is erased.
 *
 * @param flash    not null, holds an open device
 * @param address  in bytes; a multiple of the erase block size
 * @param end      in: where to stop, in bytes, a multiple of the erase block size and above `address`; out:
 *                 where the zeros end, less than wanted where the device ends; unchanged after a failure;
 *                 null: one block is erased
 * @return 0; NORV_STATUS_INVALID_ARG when `flash` or the handle is null, when the end is the address, and
 * also when there is no memory for the zeros; NORV_STATUS_RANGE when the address or the end is no multiple of
 *         the erase block size or the end is below the address, with nothing written; the errno status of
 *         pwrite(2)
 *
 * Blocks until the zeros are on the device. Allocates as much memory as it erases.
 */
NORV_API uint32_t norv_linux_emmc_flash_erase_first_valid_block(norv_emmc_flash_t** flash, uint32_t address,
                                                                uint32_t* end);

/**
 * Erases an area by writing zeros, chunk by chunk, one pwrite(2) each.
 *
 * A chunk is the length rounded up to blocks, but 16 KiB to 128 KiB. The last chunk is written whole as well:
 * where the length is not a multiple of the chunk, up to a chunk less one byte beyond the area is zeroed. A
 * chunk of which the device takes only a part, as at its end, or nothing, counts as erased. A chunk has to
 * end below 4 GiB.
 *
 * @param flash     not null, holds an open device
 * @param address   in bytes; a multiple of the erase block size
 * @param length    in bytes; 0: nothing is done
 * @param cancel    asked before every chunk; may be null
 * @param progress  told after every chunk, always with status 0; may be null
 * @param user      passed to both; may be null
 * @return 0; NORV_STATUS_INVALID_ARG when `flash` or the handle is null, and also when there is no memory for
 *         the zeros; NORV_STATUS_RANGE when the address is no multiple of the erase block size, with nothing
 *         written, and when a chunk does not end below 4 GiB; NORV_STATUS_TIMEOUT when cancelled; the errno
 *         status of pwrite(2). Chunks that were reported are erased, the failed one may be in part
 *
 * Blocks until the zeros are on the device. Allocates one chunk.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_erase(norv_emmc_flash_t** flash, uint32_t address,
                                                       uint32_t length, norv_flash_cancel_fn cancel,
                                                       norv_flash_progress_fn progress, void* user);

/**
 * Reads an area, chunk by chunk, one pread(2) each, up to the next chunk border.
 *
 * @param flash     not null, holds an open device
 * @param address   in bytes, any
 * @param buffer    receives the bytes; not null unless the length is 0
 * @param length    in: bytes wanted, 0: nothing is done; out, after a failure: bytes read; unchanged when
 *                  cancelled or when a pointer is null; not null
 * @param cancel    asked before every chunk; may be null
 * @param progress  told after every chunk, always with status 0; may be null
 * @param user      passed to both; may be null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null; NORV_STATUS_TIMEOUT when
 * cancelled; NORV_STATUS_RANGE where the device ends, or 4 GiB; the errno status of pread(2)
 *
 * Blocks until the device has delivered. Allocates nothing.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_read(norv_emmc_flash_t** flash, uint32_t address,
                                                      void* buffer, uint32_t* length,
                                                      norv_flash_cancel_fn cancel,
                                                      norv_flash_progress_fn progress, void* user);

/**
 * Writes an area, chunk by chunk, up to the next chunk border: one pwrite(2), one pread(2), and a comparison
 * each (with the page cache). The area need not be erased before.
 *
 * Where the data ends before the chunk border, bytes of 0xFF are written behind it: as many as make the
 * length of this last write a whole chunk, beyond the border too. Only the data is read back and compared.
 * (With a chunk that is no power of two, which lengths between 16 KiB and 128 KiB may give, the length of the
 * last write comes from the same bit mask, and is between the data's and nearly a chunk more.)
 *
 * @param flash     not null, holds an open device
 * @param address   in bytes; a multiple of the write unit size
 * @param skip      how far behind the address the data goes, in bytes; a multiple of the write unit size
 * @param data      only read; not null unless the length is 0
 * @param length    in: bytes to write; out, after a failure in a chunk: bytes written and verified; unchanged
 *                  when cancelled, and when the call failed before the first chunk; not null
 * @param cancel    asked before every chunk; may be null
 * @param progress  told after every verified chunk, always with status 0; may be null
 * @param user      passed to both; may be null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null; NORV_STATUS_RANGE when the address
 *         or the skip is no multiple of the write unit size, with nothing written, and where 4 GiB end;
 *         NORV_STATUS_NO_MEMORY, with nothing written, for a length of 0 too; NORV_STATUS_TIMEOUT when
 *         cancelled; NORV_STATUS_VERIFY_FAILED when other bytes come back than were written, none at all, or
 *         more than the device had taken; the errno status of pwrite(2) or pread(2)
 *
 * Blocks until the data is on the device. Allocates two chunks.
 */
NORV_API uint32_t norv_linux_emmc_flash_continue_write_verify(norv_emmc_flash_t** flash, uint32_t address,
                                                              uint32_t skip, const void* data,
                                                              uint32_t* length, norv_flash_cancel_fn cancel,
                                                              norv_flash_progress_fn progress, void* user);

NORV_END_DECLS

#endif
