/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_dma.h
 * Memory that devices reach by DMA: buffers of the driver at /dev/uio-dma, the manager. The conventions of
 * norv_status.h hold.
 *
 * Each buffer is a dma-buf: it can be mapped into the process, synchronised between processor and device, and
 * passed to other drivers and programs by its descriptor. Locking it returns the pieces of memory with which
 * a device is programmed. Mapping and locking are independent of each other.
 *
 * The caller keeps the manager's descriptor in a variable to which the buffers refer: it must stay in place
 * for as long as they exist. Buffers of several threads may share a manager.
 *
 * Create the manager, then a buffer; map it, lock it, or both; synchronise around each transfer; unlock and
 * unmap; destroy the buffer, then the manager.
 *
 *     int32_t manager;
 *     norv_linux_dma_t* buffer = NULL;
 *     void* memory;
 *     norv_linux_dma_create_mgr(&manager);
 *     norv_linux_dma_create_mem(&manager, 4096, &buffer);
 *     norv_linux_dma_map_mem(&buffer, &memory);
 *     norv_linux_dma_sync(&buffer, false);
 *     memset(memory, 0xA5, 4096);
 *     norv_linux_dma_sync(&buffer, true);
 *     norv_linux_dma_unmap_mem(&buffer);
 *     norv_linux_dma_destroy(&buffer);
 *     norv_linux_dma_destory_mgr(&manager);
 */
#ifndef NORV_LINUX_DMA_H
#define NORV_LINUX_DMA_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** A buffer. */
typedef struct norv_linux_dma norv_linux_dma_t;

/** The size in bytes of a scatter-gather entry; the driver defines its contents. */
enum { NORV_LINUX_DMA_SG_ENTRY_SIZE = 16 };

/**
 * Opens the manager: open(2) of /dev/uio-dma with `O_RDONLY | O_CLOEXEC`.
 *
 * @param manager  receives the descriptor; -1 after a failure
 * @retval NORV_STATUS_NOT_FOUND  there is no such driver
 * @retval errno                  of open(2)
 */
NORV_API uint32_t norv_linux_dma_create_mgr(int32_t* manager);

/**
 * Closes the manager. The misspelled name stays: programs are linked against it (quirk 87).
 *
 * Buffers that remain can be unmapped and destroyed, but no longer locked.
 *
 * @param manager  -1 afterwards; may be null
 */
NORV_API void norv_linux_dma_destory_mgr(int32_t* manager);

/**
 * Creates a buffer of the driver's default kind: ioctl `_IOWR('U', 0, 32)` on the manager, type 0.
 *
 * A refusal whose errno has the status 0 (quirk 1) gives a buffer with the descriptor -1.
 *
 * @param manager  an open manager; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the buffer
 * @retval NORV_STATUS_NO_MEMORY  no memory for the handle: the driver is not called; or the driver has no
 *                                memory of that kind left
 * @retval errno                  of the ioctl
 *
 * Blocks while the driver allocates.
 */
NORV_API uint32_t norv_linux_dma_create_mem(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);

/**
 * Creates a buffer of kmalloc memory (for small sizes): `norv_linux_dma_create_mem` with type 1.
 *
 * @param manager  an open manager; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the buffer
 * @retval others  of `norv_linux_dma_create_mem`
 *
 * Blocks while the driver allocates.
 */
NORV_API uint32_t norv_linux_dma_create_by_kmalloc(int32_t* manager, uint64_t size,
                                                   norv_linux_dma_t** buffer);

/**
 * Creates a buffer of contiguous memory (CMA): `norv_linux_dma_create_mem` with type 2.
 *
 * @param manager  an open manager; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the buffer
 * @retval others  of `norv_linux_dma_create_mem`
 *
 * Blocks while the driver allocates.
 */
NORV_API uint32_t norv_linux_dma_create_by_cma(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);

/**
 * Creates a buffer of the process's own memory: `norv_linux_dma_create_mem` with type 3.
 *
 * @param manager  an open manager; the variable must outlive the buffer
 * @param memory   `size` bytes, which must outlive the buffer; passed to the driver, also if null. Drivers
 *                 may require whole pages
 * @param size     in bytes
 * @param buffer   receives the buffer
 * @retval EFAULT  the memory is not the process's own
 * @retval others  of `norv_linux_dma_create_mem`
 *
 * Blocks while the driver pins the memory.
 */
NORV_API uint32_t norv_linux_dma_create_by_user_ptr(int32_t* manager, void* memory, uint64_t size,
                                                    norv_linux_dma_t** buffer);

/**
 * Creates a buffer of memory that was reserved at boot: `norv_linux_dma_create_mem` with type 4.
 *
 * @param manager  an open manager; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the buffer
 * @retval others  of `norv_linux_dma_create_mem`
 *
 * Blocks while the driver allocates.
 */
NORV_API uint32_t norv_linux_dma_create_by_reserved(int32_t* manager, uint64_t size,
                                                    norv_linux_dma_t** buffer);

/**
 * Creates a buffer from a dma-buf of any origin, for instance of a camera or of another program, without a
 * system call.
 *
 * @param manager     the variable must outlive the buffer; open if the buffer is to be locked
 * @param descriptor  the dma-buf; stays the caller's: close it after the buffer is destroyed; not checked
 * @param size        in bytes, of a mapping; not checked
 * @param buffer      receives the buffer
 * @retval NORV_STATUS_NO_MEMORY  out of memory
 */
NORV_API uint32_t norv_linux_dma_create_by_fd(int32_t* manager, int32_t descriptor, uint64_t size,
                                              norv_linux_dma_t** buffer);

/**
 * Destroys a buffer: closes its descriptor, unless it came from `norv_linux_dma_create_by_fd`, and releases
 * the handle.
 *
 * Unmap and unlock it first (quirk 89): the mapping of a buffer that is destroyed mapped, and its memory,
 * remain until the process ends; the entries of one that is destroyed locked remain allocated, and the driver
 * decides when its lock ends.
 *
 * @param buffer  may be null
 */
NORV_API void norv_linux_dma_destroy(norv_linux_dma_t** buffer);

/**
 * Maps the buffer into the process: mmap(2) of the whole size, readable, writable and shared.
 *
 * Mapping a mapped buffer returns its mapping without a system call, and one `norv_linux_dma_unmap_mem`
 * removes it. If mmap(2) fails but its errno has the status 0 (quirk 1), the call returns 0 and a null
 * address.
 *
 * @param buffer  a buffer
 * @param memory  receives the address, valid until `norv_linux_dma_unmap_mem`; null after a failure
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer, or it is smaller than the size given for it
 * @retval errno                    of mmap(2)
 */
NORV_API uint32_t norv_linux_dma_map_mem(norv_linux_dma_t** buffer, void** memory);

/**
 * Removes the mapping, if there is one: munmap(2). After a failure the buffer is still mapped, and the call
 * may be repeated.
 *
 * @param buffer  a buffer
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer
 * @retval errno                    of munmap(2)
 */
NORV_API uint32_t norv_linux_dma_unmap_mem(norv_linux_dma_t** buffer);

/**
 * Locks the buffer's memory in place and gets its pieces: ioctl `_IOWR('U', 1, 8)` on the manager for the
 * number of scatter-gather entries, then `_IOWR('U', 3, 16)` for the entries.
 *
 * A locked buffer is locked again: the driver may refuse, and decides how many times such a buffer is to be
 * unlocked. The new entries replace those of the previous lock, whose array is released; a failure leaves
 * them. After a failure of the allocation or of the second request, the driver keeps what it has locked until
 * `norv_linux_dma_unlock_mem`.
 *
 * @param buffer   a buffer
 * @param entries  receives the array of `*count` entries of NORV_LINUX_DMA_SG_ENTRY_SIZE bytes, as filled by
 *                 the driver; it is the buffer's, and valid until that is locked again or unlocked
 * @param count    receives the number of entries
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer
 * @retval NORV_STATUS_NO_MEMORY    no memory for the entries
 * @retval errno                    of either request
 *
 * Blocks while the driver works.
 */
NORV_API uint32_t norv_linux_dma_lock_mem(norv_linux_dma_t** buffer, void** entries, uint64_t* count);

/**
 * Unlocks the buffer, locked or not: ioctl `_IOW('U', 2, 4)` on the manager. Releases the entries, even if
 * the driver refuses (quirk 90).
 *
 * @param buffer  a buffer
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer
 * @retval errno                    of the ioctl
 *
 * Blocks while the driver works.
 */
NORV_API uint32_t norv_linux_dma_unlock_mem(norv_linux_dma_t** buffer);

/**
 * Starts or ends the processor's access to the whole buffer: ioctl `DMA_BUF_IOCTL_SYNC` on its descriptor.
 *
 * There are two steps (quirk 88): `DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ` makes what the device wrote
 * visible to the processor, `DMA_BUF_SYNC_END | DMA_BUF_SYNC_WRITE` makes what the processor wrote visible to
 * the device. Neither is a barrier between the memory and the registers of the device: norv_uio.h says what
 * to put before the register write that starts it.
 *
 * @param buffer  a buffer
 * @param end     false: start; true: end
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer
 * @retval NORV_STATUS_INTERRUPTED  try again
 * @retval NORV_STATUS_AGAIN        try again
 * @retval errno                    of the ioctl
 *
 * Blocks while the driver works, or until the device has finished with the buffer.
 */
NORV_API uint32_t norv_linux_dma_sync(norv_linux_dma_t** buffer, bool end);

/**
 * Synchronises part of a buffer by its scatter-gather entries: ioctl `_IOW('U', 4, 24)` on the manager.
 *
 * @param buffer     a buffer
 * @param direction  passed to the driver as 1 or 0
 * @param value64    passed to the driver, which defines its meaning
 * @param value32    passed to the driver, which defines its meaning
 * @retval NORV_STATUS_INVALID_ARG  there is no buffer
 * @retval errno                    of the ioctl
 *
 * Blocks while the driver works.
 */
NORV_API uint32_t norv_linux_dma_sg_sync(norv_linux_dma_t** buffer, bool direction, uint64_t value64,
                                         uint32_t value32);

/**
 * Returns the buffer's dma-buf descriptor, to be passed to another driver or program.
 *
 * @param buffer  may be null
 * @return the descriptor; -1 if there is no buffer
 */
NORV_API int32_t norv_linux_dma_get_fd(norv_linux_dma_t** buffer);

NORV_END_DECLS

#endif
