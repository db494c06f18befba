/**
 * @file norv_uio.h
 * UIO devices: registers mapped into the program, and one interrupt. Platform devices and PCI devices.
 *
 * Opening, by number, name or PCI identity, allocates a handle and stores it in the caller's variable, which
 * holds null before; it opens /dev/uioN and maps region 0, the only one that is used. Every other call takes
 * the address of that variable. A device whose "name" attribute is exactly "uio_pci_mmap" is a PCI device:
 * its interrupt is masked in its configuration space, and it tells its PCI identity. All others are platform
 * devices: their driver masks the interrupt. A handle is used by one thread at a time, except that one thread
 * may wait for the interrupt while another accesses registers.
 *
 * A region begins at a page. Where the registers do not, the kernel gives their distance from its start in
 * /sys/class/uio/uioN/maps/map0/offset: add it to the offset of each register, as nothing here does.
 *
 * Register accesses are plain volatile loads and stores: they stay in order among themselves, but stores to
 * ordinary memory, such as a DMA buffer, may become visible to the device after a later register write, and
 * loads from it may be made before an earlier register read. ARM processors do this, x86 ones do not. Put a
 * barrier before the register write that starts a transfer, and one after the register read that reports its
 * end: `__asm__ volatile("dsb sy" ::: "memory")` on ARM, `__atomic_thread_fence(__ATOMIC_SEQ_CST)` elsewhere.
 * On ARM that fence is `dmb ish`: it orders what processors see, not necessarily what a device sees.
 *
 *     norv_uio_t* device = NULL;
 *     norv_uio_open_by_name("fpga-regs", &device);
 *     norv_uio_write_32(&device, CONTROL, START);
 *     norv_uio_enable_irq(&device);
 *     if (norv_uio_wait_irq(&device, 1000) == NORV_STATUS_OK)
 *         result = norv_uio_read_32(&device, RESULT);
 *     norv_uio_close(&device);
 */
#ifndef NORV_UIO_H
#define NORV_UIO_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** An open device; private, allocated by the open functions and released by `norv_uio_close`. */
typedef struct norv_uio norv_uio_t;

/** The kinds of device that `norv_uio_info_t` tells. */
enum {
    NORV_UIO_KIND_PLAIN = 0, /**< any but a PCI device */
    NORV_UIO_KIND_PCI = 1    /**< served by the driver "uio_pci_mmap" */
};

/** What a device is; a platform device fills `kind` alone. */
typedef struct {
    uint32_t kind;     /**< NORV_UIO_KIND_PLAIN or NORV_UIO_KIND_PCI */
    uint32_t vendor;   /**< PCI vendor */
    uint32_t device;   /**< PCI device */
    uint32_t domain;   /**< where the device sits: PCI domain, */
    uint32_t bus;      /**< bus, */
    uint32_t slot;     /**< slot */
    uint32_t function; /**< and function */
} norv_uio_info_t;

/**
 * What differs between the kinds of device. Each operation takes the address of the handle variable, which
 * holds an open device. The two tables of the library are constant; a handle uses the one of its kind.
 */
typedef struct {
    /** Runs right after /dev/uioN was opened; null: nothing to do. */
    uint32_t (*open)(norv_uio_t** uio);
    /** Runs first when the device is closed; null: nothing to do. */
    void (*close)(norv_uio_t** uio);
    /** Maps region 0: its size is in maps/map0/size. */
    uint32_t (*map)(norv_uio_t** uio);
    /** Undoes the mapping, if there is one. */
    void (*unmap)(norv_uio_t** uio);
    /** See `norv_uio_enable_irq`. */
    uint32_t (*enable_irq)(norv_uio_t** uio);
    /** See `norv_uio_disable_irq`. */
    uint32_t (*disable_irq)(norv_uio_t** uio);
    /** See `norv_uio_get_info`. */
    uint32_t (*get_info)(norv_uio_t** uio, norv_uio_info_t* info);
} norv_uio_ops_t;

/* ---- Finding and opening ----------------------------------------------------------------------------- */

/**
 * Tells the highest N of the entries uioN in /sys/class/uio.
 *
 * Only "uio" followed by decimal digits and nothing else counts.
 *
 * @param index  receives N, or -1 when there is no such entry; untouched when the directory cannot be read;
 *               not null
 * @return 0; NORV_STATUS_NOT_FOUND when there is no such entry (`index` is -1 then); NORV_STATUS_INVALID_ARG
 *         when `index` is null; the errno status of scandir(3), which is NORV_STATUS_NOT_FOUND too when there
 *         is no such directory, because the kernel's module uio is not loaded (`index` is untouched then)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uio_get_max_idx(int32_t* index);

/**
 * Opens /dev/uioN and maps its region 0.
 *
 * @param index  N; printed signed
 * @param uio    receives the handle; not null. It must hold null: a handle that it holds is overwritten, and
 *               so lost, or closed when the open fails for want of memory. Null after any failure, with
 *               everything released
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when `uio` is null; the errno status of reading
 *         /sys/class/uio/uioN/name (NORV_STATUS_NOT_FOUND: no such device), of opening /dev/uioN with
 *         `O_RDWR | O_CLOEXEC`, of opening /sys/class/uio/uioN/device/config of a PCI device, of reading
 *         /sys/class/uio/uioN/maps/map0/size, or of mmap(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uio_open_by_idx(uint32_t index, norv_uio_t** uio);

/**
 * Opens the device whose "name" attribute is the given one.
 *
 * The symbolic links in /sys/class/uio are looked at in alphabetical order, and the first match counts. Its
 * number is the text after the third character of the entry's name, read as a C literal: "010" would be 8.
 *
 * @param name  the whole name; not null
 * @param uio   as for `norv_uio_open_by_idx`; left as it is when no device was found
 * @return 0; NORV_STATUS_NOT_FOUND; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of
 *         scandir(3), but where that is 0 device 0 is opened; the status of `norv_uio_open_by_idx`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uio_open_by_name(const char* name, norv_uio_t** uio);

/**
 * Closes the device, undoes the mapping and releases the handle.
 *
 * @param uio  may be null, as may be what it holds; holds null afterwards, so that a second close does
 *             nothing
 *
 * Does not block. Never fails. A PCI device's interrupt stays enabled or disabled as it is.
 */
NORV_API void norv_uio_close(norv_uio_t** uio);

/* ---- Registers --------------------------------------------------------------------------------------- */

/**
 * Tells the descriptor of /dev/uioN, to be polled or added to a loop for `POLLIN`; a pending interrupt is
 * taken by reading 4 bytes from it.
 *
 * @param uio  holds an open device; not checked
 * @return the descriptor, which stays the handle's
 */
NORV_API int32_t norv_uio_get_fd(norv_uio_t** uio);

/**
 * Tells where region 0 is mapped.
 *
 * @param uio  holds an open device; not checked
 * @return the address, valid until `norv_uio_close`
 */
NORV_API void* norv_uio_get_map(norv_uio_t** uio);

/**
 * Writes one register: a single aligned 32-bit store. It is not a barrier: see the top of this file.
 *
 * @param uio     holds an open device; not checked
 * @param offset  bytes from the start of region 0; a multiple of 4; not checked against its size
 * @param value   the value, in the processor's byte order
 *
 * Does not block; no system call.
 */
NORV_API void norv_uio_write_32(norv_uio_t** uio, uint32_t offset, uint32_t value);

/**
 * Reads one register: a single aligned 32-bit load.
 *
 * @param uio     holds an open device; not checked
 * @param offset  bytes from the start of region 0; a multiple of 4; not checked against its size
 * @return the value, in the processor's byte order
 *
 * Does not block; no system call.
 */
NORV_API uint32_t norv_uio_read_32(norv_uio_t** uio, uint32_t offset);

/**
 * Tells the kind of the device, and of a PCI device its identity from /sys/class/uio/uioN/device/uevent.
 *
 * @param uio   holds an open device
 * @param info  receives the kind, and from a PCI device what the lines PCI_ID and PCI_SLOT_NAME hold; the
 *              other fields stay what they were; not null
 * @return 0, also when lines are missing; NORV_STATUS_INVALID_ARG for a null pointer or handle; the errno
 *         status of opening the uevent file (`kind` is filled then), whose path is cut after 41 characters,
 *         enough for numbers of 9 digits
 *
 * Does not block.
 */
NORV_API uint32_t norv_uio_get_info(norv_uio_t** uio, norv_uio_info_t* info);

/* ---- The interrupt ----------------------------------------------------------------------------------- */

/**
 * Enables the interrupt. Drivers disable it when it comes, so enable it again after each wait.
 *
 * A platform device's driver is told by writing the 32-bit value 1 to the descriptor. A PCI device gets bit
 * 10 (Interrupt Disable) of its command register cleared: byte 5 of its configuration space is read, changed
 * and written back.
 *
 * @param uio  holds an open device
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer or handle; NORV_STATUS_DEVICE_ERROR when the driver
 *         took fewer than 4 bytes, or when the configuration space ends before its byte 5 (nothing is written
 *         then) or does not take it; the errno status of write(2), pread(2) or pwrite(2), for instance that
 *         of EIO (NORV_STATUS_DEVICE_ERROR too) from a platform device without an interrupt, and that of
 *         ENOSYS from one whose driver cannot control it
 *
 * Does not block. When pread(2) fails with an errno that the base library maps to 0, the call carries on with
 * a byte of 0.
 */
NORV_API uint32_t norv_uio_enable_irq(norv_uio_t** uio);

/**
 * Disables the interrupt: writes the 32-bit value 0, or sets the Interrupt Disable bit of a PCI device.
 *
 * @param uio  holds an open device
 * @return as `norv_uio_enable_irq`
 *
 * Does not block.
 */
NORV_API uint32_t norv_uio_disable_irq(norv_uio_t** uio);

/**
 * Waits for the interrupt and takes it: poll(2), then a read(2) of the interrupt count, which is discarded.
 *
 * The interrupt is not enabled again. A wait that a signal interrupts starts again with the whole time-out.
 * An error condition of the descriptor ends the wait too, and the call returns the errno status of the read.
 *
 * @param uio      holds an open device
 * @param timeout  milliseconds; 0 only looks; 0xFFFFFFFF, and any other value of 2^31 or more, waits without
 *                 limit
 * @return 0; NORV_STATUS_TIMEOUT when no interrupt came; NORV_STATUS_INVALID_ARG for a null pointer or
 *         handle; the errno status of poll(2) or read(2), for instance that of EIO, at once, when the device
 *         has no interrupt
 *
 * Blocks for `timeout` at most, longer only when signals interrupt it.
 */
NORV_API uint32_t norv_uio_wait_irq(norv_uio_t** uio, uint32_t timeout);

/**
 * Gives the operations of platform devices: no hooks, the interrupt through the driver.
 *
 * @return the table, a constant; never null
 */
NORV_API const norv_uio_ops_t* norv_uio_get_generic_ops(void);

/* ---- PCI devices ------------------------------------------------------------------------------------- */

/**
 * Tells the kernel's UIO driver of PCI devices to serve devices of this identity: writes it to "new_id" of
 * /sys/bus/pci/drivers/uio_pci_mmap, or of uio_pci_generic when the former does not exist.
 *
 * Only a device bound to uio_pci_mmap is a PCI device to this family. The kernel keeps the identity until the
 * driver is unloaded.
 *
 * @param vendor  PCI vendor; its low 16 bits count
 * @param device  PCI device; its low 16 bits count
 * @return 0; NORV_STATUS_NOT_AVAILABLE when neither driver is there; the errno status of opening or writing
 *         "new_id", for instance that of EEXIST when the driver has the identity already (Linux 5.10
 *         accepts one that was added before)
 *
 * Blocks while the driver takes over the devices. Any thread.
 */
NORV_API uint32_t norv_uio_load_pci(int32_t vendor, int32_t device);

/**
 * Opens the first UIO device, in alphabetical order, that sits on a PCI device of this identity.
 *
 * The identity is read from device/vendor and device/device of the symbolic links in /sys/class/uio; the
 * number of the device comes from the entry's name as in `norv_uio_open_by_name`.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @param uio     as for `norv_uio_open_by_idx`; left as it is when no device was found
 * @return 0; NORV_STATUS_NOT_FOUND; NORV_STATUS_INVALID_ARG when `uio` is null; the errno status of
 *         scandir(3), but where that is 0 device 0 is opened; the status of `norv_uio_open_by_idx`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uio_open_by_pci_id(uint16_t vendor, uint16_t device, norv_uio_t** uio);

/**
 * Gives the operations of PCI devices: the hooks open and close the configuration space, the interrupt is
 * masked there.
 *
 * @return the table, a constant; never null
 */
NORV_API const norv_uio_ops_t* norv_uio_get_pci_ops(void);

NORV_END_DECLS

#endif
