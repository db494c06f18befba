/* SPDX-License-Identifier: MIT */
/**
 * @file norv_umcb.h
 * UMCB devices: registers mapped into the program, and an interrupt controller with several sources. The
 * conventions of norv_status.h hold.
 *
 * An open function opens /dev/umcbN, maps region 0, the only one that is used, and stores the handle in the
 * caller's variable. That has to hold null before: a handle in it is overwritten, and so lost, or closed if
 * memory for the new one cannot be allocated (quirk 157). The other functions on a device take the address of
 * the variable. If it holds null, those that return a status return NORV_STATUS_INVALID_ARG, and the others,
 * apart from `norv_umcb_close`, do not check.
 *
 * A device whose "name" attribute is exactly "umcb_pci_mmap" is a PCI device and has a PCI identity. The last
 * byte of an attribute is dropped, whether or not it is a newline (quirk 5). Register accesses are plain
 * volatile loads and stores without a system call, not barriers for ordinary memory such as DMA buffers: see
 * norv_uio.h.
 *
 * An interrupt source is registered once, and then has a descriptor of its own, which is the caller's. One
 * thread can wait for each source while others access registers. The kernel's driver of the device defines
 * modes, interrupt types and source numbers.
 *
 * Where an errno has the status 0 (quirk 1): a device whose name cannot be read is not a PCI device; if the
 * class directory cannot be listed, there is no highest N, and opening by name or identity opens device 0; a
 * refused mode is ignored; a refused mapping leaves an open device whose region is at MAP_FAILED; a refused
 * registration yields the descriptor 0, which counts as not open; a failed wait clears the event; and without
 * a uevent file the kind alone is reported.
 *
 *     norv_umcb_t* device = NULL;
 *     int32_t source = -1;
 *     norv_umcb_open_by_idx(0, -1, &device);
 *     norv_umcb_irq_set_type(&device, TYPE);
 *     norv_umcb_irq_register(&device, 3, &source);
 *     norv_umcb_irq_global_enable(&device);
 *     norv_umcb_irq_enable(source);
 *     while (norv_umcb_irq_wait(source, 1000) == NORV_STATUS_OK)
 *         serve(norv_umcb_read_32(&device, RESULT));
 *     norv_umcb_irq_disable(source);
 *     close(source);
 *     norv_umcb_close(&device);
 */
#ifndef NORV_UMCB_H
#define NORV_UMCB_H

#include <stdint.h>

#include "norv_mcb_bus.h"
#include "norv_status.h"
#include "norv_uio.h"

NORV_BEGIN_DECLS

/** An open device. */
typedef struct norv_umcb norv_umcb_t;

/**
 * What is particular to PCI devices. Each operation takes the address of the handle variable, which holds an
 * open device. The library's table is constant; other devices have none.
 */
typedef struct {
    /** Called right after /dev/umcbN was opened; null: nothing to do. */
    uint32_t (*open)(norv_umcb_t** umcb);
    /** Called first when the device is closed; null: nothing to do. */
    void (*close)(norv_umcb_t** umcb);
    /** See `norv_umcb_get_info`. */
    uint32_t (*get_info)(norv_umcb_t** umcb, norv_uio_info_t* info);
} norv_umcb_ops_t;

/* ---- Finding and opening ----------------------------------------------------------------------------- */

/**
 * Finds the highest N of the entries uioN in /sys/class/umcb: "uio" followed by decimal digits and nothing
 * else. An entry umcbN does not count (quirk 162): where there are no others, nothing is found.
 *
 * @param index  receives N, at most 2147483647; -1 if there is no such entry
 * @retval NORV_STATUS_NOT_FOUND  there is no such entry; or no directory, and `index` is unchanged
 * @retval errno                  of scandir(3)
 */
NORV_API uint32_t norv_umcb_get_max_idx(int32_t* index);

/**
 * Opens /dev/umcbN with `O_RDWR | O_CLOEXEC`, sets the driver's mode, and maps region 0.
 *
 * @param index  N
 * @param mode   the driver's mode word, passed with the ioctl 0x40046D00; negative: no mode is set
 * @param umcb   receives the handle
 * @retval NORV_STATUS_NOT_FOUND  there is no such device, or it has no region
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of opening or reading the attributes "name" and maps/map0/size, of opening
 *                                /dev/umcbN, of the mode's ioctl(2), or of mmap(2)
 *
 * Blocks as the mode's ioctl(2) does.
 */
NORV_API uint32_t norv_umcb_open_by_idx(uint32_t index, int32_t mode, norv_umcb_t** umcb);

/**
 * Opens umcb0 if any device has the given "name" attribute (quirk 163). Where there are several devices, open
 * by index.
 *
 * The symbolic links in /sys/class/umcb are searched as by `norv_uio_open_by_name`, and the number is parsed
 * in the same way, as a `long` (quirk 77): for the entry umcb2 it is "b2", which is 0.
 *
 * @param name  the whole name, as for `norv_uio_open_by_name`
 * @param mode  as for `norv_umcb_open_by_idx`
 * @param umcb  receives the handle; unchanged if no device was found
 * @retval NORV_STATUS_NOT_FOUND  no device has this name
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of scandir(3), or as for `norv_umcb_open_by_idx`
 *
 * Blocks as the mode's ioctl(2) does.
 */
NORV_API uint32_t norv_umcb_open_by_name(const char* name, int32_t mode, norv_umcb_t** umcb);

/**
 * Opens umcb0 if any device belongs to a PCI device of this identity (quirk 163).
 *
 * The search is that of `norv_umcb_open_by_name`, but for the attributes device/vendor and device/device,
 * which are parsed as a `long` (quirk 77) and of which the low 16 bits count.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @param mode    as for `norv_umcb_open_by_idx`
 * @param umcb    receives the handle; unchanged if no device was found
 * @retval NORV_STATUS_NOT_FOUND  no device has this identity
 * @retval NORV_STATUS_NO_MEMORY  for the handle
 * @retval errno                  of scandir(3), or as for `norv_umcb_open_by_idx`
 *
 * Blocks as the mode's ioctl(2) does.
 */
NORV_API uint32_t norv_umcb_open_by_pci_id(uint16_t vendor, uint16_t device, int32_t mode,
                                           norv_umcb_t** umcb);

/**
 * Closes the device, unmaps its region and releases the handle. Descriptors of interrupt sources stay open.
 *
 * @param umcb  may be null, or hold null
 */
NORV_API void norv_umcb_close(norv_umcb_t** umcb);

/**
 * Makes the kernel's driver of UMCB devices on PCI serve devices of this identity: writes it to
 * /sys/bus/pci/drivers/umcb_pci_generic/new_id.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @retval NORV_STATUS_NOT_AVAILABLE  the driver does not exist
 * @retval EEXIST                     the driver has the identity already (Linux 5.10 accepts one that was
 *                                    added before)
 * @retval errno                      of opening or writing "new_id"
 *
 * Blocks while the driver takes over the devices.
 */
NORV_API uint32_t norv_umcb_load_pci(uint16_t vendor, uint16_t device);

/* ---- Registers --------------------------------------------------------------------------------------- */

/**
 * Returns the address at which region 0 is mapped.
 *
 * @param umcb  an open device; not checked
 * @return the address, valid until `norv_umcb_close`
 */
NORV_API void* norv_umcb_get_map(norv_umcb_t** umcb);

/**
 * Writes one register: a single aligned 32-bit store.
 *
 * @param umcb    an open device; not checked
 * @param offset  bytes from the start of region 0, a multiple of 4; not checked
 * @param value   the value, in the processor's byte order
 */
NORV_API void norv_umcb_write_32(norv_umcb_t** umcb, uint32_t offset, uint32_t value);

/**
 * Reads one register: a single aligned 32-bit load.
 *
 * @param umcb    an open device; not checked
 * @param offset  bytes from the start of region 0, a multiple of 4; not checked
 * @return the value, in the processor's byte order
 */
NORV_API uint32_t norv_umcb_read_32(norv_umcb_t** umcb, uint32_t offset);

/**
 * Fills a bus record over an open UMCB device. The list operations of its based group add their base to each
 * address, with 32 bits; its other operations have no base (quirk 166).
 *
 * @param umcb  an open device; the bus keeps this address of the handle variable, which must stay valid until
 *              the bus is closed. What it holds is not checked
 * @param bus   overwritten: close an open record first
 * @retval NORV_STATUS_NO_MEMORY  for the context; the record is filled with zeros
 */
NORV_API uint32_t norv_umcb_open_mcb_bus(norv_umcb_t** umcb, norv_mcb_bus_t* bus);

/**
 * Reports the kind of the device, and the identity and address of a PCI device, from the lines PCI_ID and
 * PCI_SLOT_NAME of /sys/class/umcb/umcbN/device/uevent.
 *
 * @param umcb  an open device
 * @param info  receives the kind, even if the uevent file cannot be opened; fields whose line is missing are
 *              unchanged (quirk 161)
 * @retval errno  of opening the uevent file. Its path is truncated after 43 characters: a PCI device whose
 *                number has ten digits is not found (quirk 164)
 */
NORV_API uint32_t norv_umcb_get_info(norv_umcb_t** umcb, norv_uio_info_t* info);

/**
 * Returns the operations of PCI devices: no hooks, and the identity.
 *
 * @return a constant table, never null
 */
NORV_API const norv_umcb_ops_t* norv_umcb_get_pci_ops(void);

/* ---- The device's interrupts ------------------------------------------------------------------------- */

/**
 * Registers an interrupt source: the driver opens a descriptor for it (ioctl 0xC0086D03).
 *
 * @param umcb        an open device
 * @param irq         the number of the source
 * @param descriptor  receives the source's descriptor, for the functions below and for loops that wait for
 *                    `EPOLLPRI`. It is the caller's: close it with close(2)
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_register(norv_umcb_t** umcb, uint32_t irq, int32_t* descriptor);

/**
 * Lets the device's enabled sources interrupt (ioctl 0x6D01).
 *
 * @param umcb  an open device
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_global_enable(norv_umcb_t** umcb);

/**
 * Keeps all sources of the device from interrupting (ioctl 0x6D02).
 *
 * @param umcb  an open device
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_global_disable(norv_umcb_t** umcb);

/**
 * Sets the type of the device's interrupts (ioctl 0x40046D04).
 *
 * @param umcb  an open device
 * @param type  one of the driver's types
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_set_type(norv_umcb_t** umcb, uint32_t type);

/* ---- One interrupt source ---------------------------------------------------------------------------- */

/**
 * Enables a source (ioctl 0x7200).
 *
 * @param descriptor  of the source
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_enable(int32_t descriptor);

/**
 * Disables a source (ioctl 0x7201).
 *
 * @param descriptor  of the source
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_disable(int32_t descriptor);

/**
 * Clears a source's event (ioctl 0x7202), for loops that wait for the descriptor themselves:
 * `norv_umcb_irq_wait` does so already.
 *
 * @param descriptor  of the source
 * @retval errno  of ioctl(2)
 */
NORV_API uint32_t norv_umcb_irq_clear_event(int32_t descriptor);

/**
 * Waits for an event of a source and clears it: poll(2) for `POLLPRI`, then `norv_umcb_irq_clear_event`.
 * Nothing is read.
 *
 * An error condition of the descriptor ends the wait too, and the event is cleared (quirk 165). One thread at
 * a time waits for a source.
 *
 * @param descriptor  of the source
 * @param timeout     milliseconds; 0: only checks; 2^31 or more, for instance 0xFFFFFFFF: no limit
 * @retval NORV_STATUS_TIMEOUT  no event; nothing is cleared
 * @retval errno                of poll(2) or ioctl(2)
 *
 * Blocks for up to `timeout`; a signal restarts it with the whole timeout (quirk 4).
 */
NORV_API uint32_t norv_umcb_irq_wait(int32_t descriptor, uint32_t timeout);

NORV_END_DECLS

#endif
