/* SPDX-License-Identifier: MIT */
/**
 * @file norv_uio.h
 * UIO devices, on PCI and elsewhere: registers mapped into the program, and one interrupt. The conventions of
 * norv_status.h hold.
 *
 * An open function opens /dev/uioN, maps region 0, the only one that is used, and stores the handle in the
 * caller's variable. That has to hold null before: a handle in it is overwritten, and so lost, or closed if
 * memory for the new one cannot be allocated (quirk 157). The other functions take the address of the
 * variable. If it holds null, those that return a status return NORV_STATUS_INVALID_ARG, and the others,
 * apart from `norv_uio_close`, do not check. One thread may wait for the interrupt while another accesses
 * registers.
 *
 * A device whose "name" attribute is exactly "uio_pci_mmap" is a PCI device: its interrupt is masked in its
 * configuration space, and it has a PCI identity. All others are platform devices: their driver masks the
 * interrupt. The last byte of an attribute is dropped, whether or not it is a newline (quirk 5).
 *
 * A region begins at a page. If the registers do not, add their distance from its start, which the kernel
 * reports in /sys/class/uio/uioN/maps/map0/offset, to the offset of each register: nothing here does.
 *
 * Register accesses are plain volatile loads and stores, without a system call. They stay in order among
 * themselves, but stores to ordinary memory, such as a DMA buffer, may become visible to the device after a
 * later register write, and loads from it may be made before an earlier register read. ARM processors do
 * this, x86 ones do not. Put a barrier before the register write that starts a transfer, and one after the
 * register read that reports its end: `__asm__ volatile("dsb sy" ::: "memory")` on ARM,
 * `__atomic_thread_fence(__ATOMIC_SEQ_CST)` elsewhere. On ARM that fence is `dmb ish`: it orders what
 * processors see, not necessarily what a device sees.
 *
 * Where an errno has the status 0 (quirk 1): a device whose name cannot be read is a platform device; if the
 * class directory cannot be listed, there is no highest N, and opening by name or identity opens device 0; a
 * refused mapping leaves an open device whose region is at MAP_FAILED; a failed wait reads the interrupt
 * count; a command register that cannot be read counts as 0 and is written; and without a uevent file the
 * kind alone is reported.
 *
 *     norv_uio_t* device = NULL;
 *     uint32_t result = 0;
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

/** An open device. */
typedef struct norv_uio norv_uio_t;

/** The kinds of device that `norv_uio_info_t` reports. */
enum {
    NORV_UIO_KIND_PLAIN = 0, /**< any but a PCI device */
    NORV_UIO_KIND_PCI = 1    /**< served by the driver "uio_pci_mmap" */
};

/** What a device is; for a platform device only `kind` is filled. */
typedef struct {
    uint32_t kind;     /**< NORV_UIO_KIND_PLAIN or NORV_UIO_KIND_PCI */
    uint32_t vendor;   /**< PCI vendor */
    uint32_t device;   /**< PCI device */
    uint32_t domain;   /**< PCI address: domain, */
    uint32_t bus;      /**< bus, */
    uint32_t slot;     /**< slot */
    uint32_t function; /**< and function */
} norv_uio_info_t;

/**
 * What differs between the kinds of device. Each operation takes the address of the handle variable, which
 * holds an open device. The two tables of the library are constant; a handle uses the one of its kind.
 */
typedef struct {
    /** Called right after /dev/uioN was opened; null: nothing to do. */
    uint32_t (*open)(norv_uio_t** uio);
    /** Called first when the device is closed; null: nothing to do. */
    void (*close)(norv_uio_t** uio);
    /** Maps region 0, whose size is in maps/map0/size. */
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
 * Finds the highest N of the entries uioN in /sys/class/uio: "uio" followed by decimal digits (quirk 158) and
 * nothing else.
 *
 * @param index  receives N, at most 2147483647; -1 if there is no such entry
 * @retval NORV_STATUS_NOT_FOUND  there is no such entry; or no directory, because the kernel's module uio is
 *                                not loaded, and `index` is unchanged
 * @retval errno                  of scandir(3)
 */
NORV_API uint32_t norv_uio_get_max_idx(int32_t* index);

/**
 * Opens /dev/uioN with `O_RDWR | O_CLOEXEC`, and maps its region 0.
 *
 * @param index  N
 * @param uio    receives the handle
 * @retval NORV_STATUS_NOT_FOUND  there is no such device, or it has no region
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of opening or reading the attributes "name" and maps/map0/size, of opening
 *                                /dev/uioN or, for a PCI device, device/config, or of mmap(2)
 */
NORV_API uint32_t norv_uio_open_by_idx(uint32_t index, norv_uio_t** uio);

/**
 * Opens the device whose "name" attribute is the given one.
 *
 * The symbolic links in /sys/class/uio are searched in alphabetical order up to the first match; one whose
 * name cannot be read is skipped. The device's number is the text after the third character of the entry's
 * name, read as a C literal: "010" is 8 (quirk 158). It is parsed as a `long`: where that has 32 bits, larger
 * numbers become 2147483647 (quirk 77).
 *
 * @param name  the whole name; at most 127 bytes of the attribute are read, and the last one is dropped
 * @param uio   receives the handle; unchanged if no device was found
 * @retval NORV_STATUS_NOT_FOUND  no device has this name
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of scandir(3), or as for `norv_uio_open_by_idx`
 */
NORV_API uint32_t norv_uio_open_by_name(const char* name, norv_uio_t** uio);

/**
 * Closes the device, unmaps its region and releases the handle. A PCI device's interrupt stays enabled or
 * disabled.
 *
 * @param uio  may be null, or hold null
 */
NORV_API void norv_uio_close(norv_uio_t** uio);

/* ---- Registers --------------------------------------------------------------------------------------- */

/**
 * Returns the descriptor of /dev/uioN, to be polled or added to a loop for `POLLIN`. Reading 4 bytes from it
 * takes a pending interrupt.
 *
 * @param uio  an open device; not checked
 * @return the descriptor
 */
NORV_API int32_t norv_uio_get_fd(norv_uio_t** uio);

/**
 * Returns the address at which region 0 is mapped.
 *
 * @param uio  an open device; not checked
 * @return the address, valid until `norv_uio_close`
 */
NORV_API void* norv_uio_get_map(norv_uio_t** uio);

/**
 * Writes one register: a single aligned 32-bit store, and not a barrier (see the top of this file).
 *
 * @param uio     an open device; not checked
 * @param offset  bytes from the start of region 0, a multiple of 4; not checked
 * @param value   the value, in the processor's byte order
 */
NORV_API void norv_uio_write_32(norv_uio_t** uio, uint32_t offset, uint32_t value);

/**
 * Reads one register: a single aligned 32-bit load.
 *
 * @param uio     an open device; not checked
 * @param offset  bytes from the start of region 0, a multiple of 4; not checked
 * @return the value, in the processor's byte order
 */
NORV_API uint32_t norv_uio_read_32(norv_uio_t** uio, uint32_t offset);

/**
 * Reports the kind of the device, and the identity and address of a PCI device, from the lines PCI_ID and
 * PCI_SLOT_NAME of /sys/class/uio/uioN/device/uevent.
 *
 * @param uio   an open device
 * @param info  receives the kind, even if the uevent file cannot be opened; fields whose line is missing are
 *              unchanged (quirk 161)
 * @retval errno  of opening the uevent file. Its path is truncated after 41 characters: a PCI device whose
 *                number has ten digits is not found (quirk 160)
 */
NORV_API uint32_t norv_uio_get_info(norv_uio_t** uio, norv_uio_info_t* info);

/* ---- The interrupt ----------------------------------------------------------------------------------- */

/**
 * Enables the interrupt. Drivers disable it when it occurs, so enable it again after each wait.
 *
 * For a platform device, the 32-bit value 1 is written to the descriptor. For a PCI device, bit 10 (Interrupt
 * Disable) of the command register is cleared: byte 5 of the configuration space is read, changed and written
 * back.
 *
 * @param uio  an open device
 * @retval NORV_STATUS_DEVICE_ERROR  a platform device has no interrupt (EIO), or its driver took fewer than 4
 *                                   bytes; a PCI device's configuration space ends before byte 5, and nothing
 *                                   is written, or does not take it
 * @retval ENOSYS                    the driver of a platform device cannot control the interrupt
 * @retval errno                     of write(2), pread(2) or pwrite(2)
 */
NORV_API uint32_t norv_uio_enable_irq(norv_uio_t** uio);

/**
 * Disables the interrupt: writes the 32-bit value 0, or sets the Interrupt Disable bit of a PCI device.
 *
 * @param uio  an open device
 * @retval NORV_STATUS_DEVICE_ERROR  as for `norv_uio_enable_irq`
 * @retval ENOSYS                    as for `norv_uio_enable_irq`
 * @retval errno                     of write(2), pread(2) or pwrite(2)
 */
NORV_API uint32_t norv_uio_disable_irq(norv_uio_t** uio);

/**
 * Waits for the interrupt and takes it: poll(2), then a read(2) of the 32-bit interrupt count, which is
 * discarded. A short read is a success (quirk 159).
 *
 * The interrupt is not enabled again. An error condition of the descriptor ends the wait too; the status is
 * then that of the read.
 *
 * @param uio      an open device
 * @param timeout  milliseconds; 0: only checks; 2^31 or more, for instance 0xFFFFFFFF: no limit
 * @retval NORV_STATUS_TIMEOUT       no interrupt
 * @retval NORV_STATUS_DEVICE_ERROR  at once: the device has no interrupt (EIO)
 * @retval errno                     of poll(2) or read(2)
 *
 * Blocks for up to `timeout`; a signal restarts it with the whole timeout (quirk 4).
 */
NORV_API uint32_t norv_uio_wait_irq(norv_uio_t** uio, uint32_t timeout);

/**
 * Returns the operations of platform devices: no hooks, the interrupt through the driver.
 *
 * @return a constant table, never null
 */
NORV_API const norv_uio_ops_t* norv_uio_get_generic_ops(void);

/* ---- PCI devices ------------------------------------------------------------------------------------- */

/**
 * Makes the kernel's UIO driver of PCI devices serve devices of this identity: writes it to "new_id" of
 * /sys/bus/pci/drivers/uio_pci_mmap, or of uio_pci_generic if the former does not exist.
 *
 * Only a device bound to uio_pci_mmap is a PCI device to this family. The kernel keeps the identity until the
 * driver is unloaded.
 *
 * @param vendor  PCI vendor; only the low 16 bits count
 * @param device  PCI device; only the low 16 bits count
 * @retval NORV_STATUS_NOT_AVAILABLE  neither driver exists
 * @retval EEXIST                     the driver has the identity already (Linux 5.10 accepts one that was
 *                                    added before)
 * @retval errno                      of opening or writing "new_id"
 *
 * Blocks while the driver takes over the devices.
 */
NORV_API uint32_t norv_uio_load_pci(int32_t vendor, int32_t device);

/**
 * Opens the first UIO device, in alphabetical order, that belongs to a PCI device of this identity.
 *
 * The search is that of `norv_uio_open_by_name`, but for the attributes device/vendor and device/device,
 * which are parsed as a `long` (quirk 77) and of which the low 16 bits count.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @param uio     receives the handle; unchanged if no device was found
 * @retval NORV_STATUS_NOT_FOUND  no device has this identity
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of scandir(3), or as for `norv_uio_open_by_idx`
 */
NORV_API uint32_t norv_uio_open_by_pci_id(uint16_t vendor, uint16_t device, norv_uio_t** uio);

/**
 * Returns the operations of PCI devices: hooks that open and close the configuration space, and the interrupt
 * masked there.
 *
 * @return a constant table, never null
 */
NORV_API const norv_uio_ops_t* norv_uio_get_pci_ops(void);

NORV_END_DECLS

#endif
