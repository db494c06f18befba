/**
 * @file norv_linux_dma.h
 * Memory that devices reach by DMA: buffers of the driver behind /dev/uio-dma, the manager.
 *
 * Every buffer is a dma-buf: it can be mapped into the process, synchronised between processor and device,
 * and handed to other drivers and programs by its descriptor. Locking it gives the pieces of memory that a
 * device is to be programmed with. Mapping and locking are independent of each other. The caller keeps the
 * manager's descriptor in a variable that stays where it is for as long as its buffers live; creating a
 * buffer allocates a handle, stores it in the caller's variable, and every other call takes the address of
 * that variable. The manager may serve buffers of several threads; a buffer is used by one thread at a time.
 *
 * The order of use: create the manager; create a buffer; map it, lock it, or both; synchronise around each
 * transfer; unlock and unmap; destroy the buffer; destroy the manager.
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

/** A buffer; private, allocated by the create functions and released by `norv_linux_dma_destroy`. */
typedef struct norv_linux_dma norv_linux_dma_t;

/** The size in bytes of one scatter-gather entry; what is in it is the driver's business. */
enum { NORV_LINUX_DMA_SG_ENTRY_SIZE = 16 };

/**
 * Opens the manager: open(2) of /dev/uio-dma with `O_RDONLY | O_CLOEXEC`.
 *
 * @param manager  receives the descriptor, -1 after a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `manager` is null; the errno status of open(2):
 *         NORV_STATUS_NOT_FOUND where there is no such driver
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_mgr(int32_t* manager);

/**
 * Closes the manager; only a descriptor above 0 counts as open. The name is spelt like this on purpose:
 * programs are linked against it.
 *
 * @param manager  may be null; -1 afterwards, so that a second call closes nothing
 *
 * Does not block. Never fails. The buffers that are left can be unmapped and destroyed, no longer locked.
 */
NORV_API void norv_linux_dma_destory_mgr(int32_t* manager);

/**
 * Creates a buffer of the driver's default kind: ioctl `_IOWR('U', 0, 32)` on the manager, type 0.
 *
 * @param manager  an open manager; not null; the variable must outlive the buffer, which refers to it
 * @param size     in bytes
 * @param buffer   receives the handle; not null; what it held is overwritten; null after any failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; NORV_STATUS_NO_MEMORY when there is none for the
 *         handle, with nothing asked of the driver; the errno status of the request,
 *         NORV_STATUS_NO_MEMORY where the driver has no such memory left
 *
 * Blocks as long as the driver allocates. Any thread. Should the base library map the errno of a refusal to
 * 0, the call counts as successful, and the buffer has the descriptor -1.
 */
NORV_API uint32_t norv_linux_dma_create_mem(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);

/**
 * `norv_linux_dma_create_mem` with memory of the kernel's allocator for small pieces (kmalloc), type 1.
 *
 * @param manager  an open manager; not null; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the handle; not null; null after any failure
 * @return as `norv_linux_dma_create_mem`
 *
 * Blocks as long as the driver allocates. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_by_kmalloc(int32_t* manager, uint64_t size,
                                                   norv_linux_dma_t** buffer);

/**
 * `norv_linux_dma_create_mem` with contiguous memory of the kernel's pool for such (CMA), type 2.
 *
 * @param manager  an open manager; not null; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the handle; not null; null after any failure
 * @return as `norv_linux_dma_create_mem`
 *
 * Blocks as long as the driver allocates. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_by_cma(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);

/**
 * Creates a buffer of memory that the process has: as `norv_linux_dma_create_mem`, type 3.
 *
 * @param manager  an open manager; not null; the variable must outlive the buffer
 * @param memory   `size` bytes of the caller's, which must outlive the buffer; passed on as it is, also null.
 *                 Drivers may insist on whole pages
 * @param size     in bytes
 * @param buffer   receives the handle; not null; null after any failure
 * @return as `norv_linux_dma_create_mem`; of a range that is not the process's own the errno status of the
 *         request, for instance that of EFAULT
 *
 * Blocks as long as the driver takes to pin the memory. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_by_user_ptr(int32_t* manager, void* memory, uint64_t size,
                                                    norv_linux_dma_t** buffer);

/**
 * `norv_linux_dma_create_mem` with memory that was set aside when the board started, type 4.
 *
 * @param manager  an open manager; not null; the variable must outlive the buffer
 * @param size     in bytes
 * @param buffer   receives the handle; not null; null after any failure
 * @return as `norv_linux_dma_create_mem`
 *
 * Blocks as long as the driver allocates. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_by_reserved(int32_t* manager, uint64_t size,
                                                    norv_linux_dma_t** buffer);

/**
 * Adopts a dma-buf of whatever origin, for instance of a camera or of another program. Nothing is asked of
 * the kernel.
 *
 * @param manager     not null; the variable must outlive the buffer; open where the buffer is locked
 * @param descriptor  the dma-buf; it stays the caller's, who keeps it open while the buffer lives and closes
 *                    it afterwards; not checked
 * @param size        in bytes, what a mapping is to cover; not checked
 * @param buffer      receives the handle; not null; null after any failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; NORV_STATUS_NO_MEMORY
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_dma_create_by_fd(int32_t* manager, int32_t descriptor, uint64_t size,
                                              norv_linux_dma_t** buffer);

/**
 * Destroys a buffer: closes its descriptor, unless that was adopted or is 0 or below, and releases the
 * handle.
 *
 * Does not unmap and does not unlock: the caller does that first. A buffer that is destroyed mapped stays
 * mapped, and its memory lives on, until the process ends; the entries of one that is destroyed locked stay
 * allocated, and its lock is the driver's to end.
 *
 * @param buffer  becomes null; may be null or hold null, which does nothing
 *
 * Does not block. Never fails; what close(2) says is ignored.
 */
NORV_API void norv_linux_dma_destroy(norv_linux_dma_t** buffer);

/**
 * Maps the buffer into the process: mmap(2) of the whole size from offset 0, readable, writable, shared.
 *
 * A buffer that is mapped already gives the mapping that it has, and nothing is asked of the kernel: a handle
 * has one mapping, and one `norv_linux_dma_unmap_mem` takes it away, however often it was asked for.
 *
 * @param buffer  not null, holds a buffer
 * @param memory  receives the address, null after a failure; the memory stays the buffer's, to be unmapped by
 *                `norv_linux_dma_unmap_mem`; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null; the errno status of mmap(2),
 *         NORV_STATUS_INVALID_ARG where the buffer is smaller than the size that was given for it
 *
 * Does not block. Should the base library map the errno of a failure to 0, the call returns 0 and a null
 * address.
 */
NORV_API uint32_t norv_linux_dma_map_mem(norv_linux_dma_t** buffer, void** memory);

/**
 * Takes the mapping away: munmap(2). Does nothing when the buffer is not mapped.
 *
 * @param buffer  not null, holds a buffer
 * @return 0, also when nothing was mapped; NORV_STATUS_INVALID_ARG when the pointer or the handle is null;
 *         the errno status of munmap(2): the buffer is still mapped, and the call may be tried again
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_dma_unmap_mem(norv_linux_dma_t** buffer);

/**
 * Locks the buffer's memory in place and tells where it is: ioctl `_IOWR('U', 1, 8)` on the manager for the
 * number of scatter-gather entries, then `_IOWR('U', 3, 16)` for the entries.
 *
 * A buffer that is locked already is locked again: the driver is asked once more and may refuse, and it
 * decides how many times such a buffer is to be unlocked. Once the new entries are there those of the lock
 * before are released: the array that the earlier call returned must not be used any more. A second lock that
 * fails leaves it.
 *
 * @param buffer   not null, holds a buffer
 * @param entries  receives the array, `*count` times NORV_LINUX_DMA_SG_ENTRY_SIZE bytes as the driver filled
 *                 them; the buffer's, valid until it is unlocked or locked again; unchanged after a failure;
 *                 not null
 * @param count    receives the number of entries; unchanged after a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer or the handle is null; the errno status of the first
 *         request; NORV_STATUS_NO_MEMORY when there is none for the entries; the errno status of the second
 *         request. What the driver locked in the first request stays locked after the last two:
 *         `norv_linux_dma_unlock_mem` ends that
 *
 * Blocks as long as the driver takes. Allocates the array.
 */
NORV_API uint32_t norv_linux_dma_lock_mem(norv_linux_dma_t** buffer, void** entries, uint64_t* count);

/**
 * Unlocks the buffer: ioctl `_IOW('U', 2, 4)` on the manager. The entries are released, also when the driver
 * refuses.
 *
 * @param buffer  not null, holds a buffer, locked or not: the driver is asked in any case
 * @return 0; NORV_STATUS_INVALID_ARG when the pointer or the handle is null; the errno status of the request
 *
 * Blocks as long as the driver takes.
 */
NORV_API uint32_t norv_linux_dma_unlock_mem(norv_linux_dma_t** buffer);

/**
 * Opens or closes the processor's access to the whole buffer: ioctl `DMA_BUF_IOCTL_SYNC` on its descriptor.
 *
 * A transfer is opened by `end` false, which is `DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ`, and closed by `end`
 * true, which is `DMA_BUF_SYNC_END | DMA_BUF_SYNC_WRITE`: the read at the start and the write at the end are
 * meant, there is no other pairing.
 *
 * @param buffer  not null, holds a buffer
 * @param end     false: what the device wrote becomes visible to the processor; true: what the processor
 *                wrote becomes visible to the device. Not a barrier between the memory and the registers of
 *                the device: norv_uio.h says what to put before the register write that starts it
 * @return 0; NORV_STATUS_INVALID_ARG when the pointer or the handle is null; the errno status of the request,
 *         NORV_STATUS_INTERRUPTED or NORV_STATUS_AGAIN when it is to be tried again
 *
 * Blocks as long as the driver takes, or until the device's work on the buffer is done. Allocates nothing.
 */
NORV_API uint32_t norv_linux_dma_sync(norv_linux_dma_t** buffer, bool end);

/**
 * Synchronises part of a buffer by its scatter-gather entries: ioctl `_IOW('U', 4, 24)` on the manager.
 *
 * @param buffer     not null, holds a buffer
 * @param direction  passed on as 1 or 0
 * @param value64    passed on unchanged; the driver says what it means
 * @param value32    passed on unchanged; the driver says what it means
 * @return 0; NORV_STATUS_INVALID_ARG when the pointer or the handle is null; the errno status of the request
 *
 * Blocks as long as the driver takes. Allocates nothing.
 */
NORV_API uint32_t norv_linux_dma_sg_sync(norv_linux_dma_t** buffer, bool direction, uint64_t value64,
                                         uint32_t value32);

/**
 * Tells the buffer's dma-buf descriptor, to be handed to another driver or program.
 *
 * @param buffer  may be null
 * @return the descriptor, which stays the buffer's; -1 when `buffer` is null or holds none
 */
NORV_API int32_t norv_linux_dma_get_fd(norv_linux_dma_t** buffer);

NORV_END_DECLS

#endif
