/**
 * @file norv_umcb.h
 * UMCB devices: registers mapped into the program, and an interrupt controller with several sources.
 *
 * Opening, by number, name or PCI identity, allocates a handle and stores it in the caller's variable, which
 * holds null before; it opens /dev/umcbN and maps region 0, the only one that is used. Every other call on
 * the device takes the address of that variable. A device whose "name" attribute is exactly "umcb_pci_mmap"
 * is a PCI device and tells its PCI identity. A handle is used by one thread at a time.
 *
 * Register accesses are plain volatile loads and stores, not barriers for ordinary memory such as DMA
 * buffers: norv_uio.h says what to put between.
 *
 * Each interrupt source is registered once and has a descriptor of its own from then on, which is the
 * caller's. One thread can wait for each source while others access registers.
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
 *
 * What modes, interrupt types and source numbers there are, the kernel's driver of the device says.
 */
#ifndef NORV_UMCB_H
#define NORV_UMCB_H

#include <stdint.h>

#include "norv_mcb_bus.h"
#include "norv_status.h"
#include "norv_uio.h"

NORV_BEGIN_DECLS

/** An open device; private, allocated by the open functions and released by `norv_umcb_close`. */
typedef struct norv_umcb norv_umcb_t;

/**
 * What is special about PCI devices. Each operation takes the address of the handle variable, which holds an
 * open device. The library's table is constant; devices that are not on PCI have none.
 */
typedef struct {
    /** Runs right after /dev/umcbN was opened; null: nothing to do. */
    uint32_t (*open)(norv_umcb_t** umcb);
    /** Runs first when the device is closed; null: nothing to do. */
    void (*close)(norv_umcb_t** umcb);
    /** See `norv_umcb_get_info`. */
    uint32_t (*get_info)(norv_umcb_t** umcb, norv_uio_info_t* info);
} norv_umcb_ops_t;

/* ---- Finding and opening ----------------------------------------------------------------------------- */

/**
 * Tells the highest N of the entries uioN in /sys/class/umcb. An entry umcbN does not count: where there are
 * no others, nothing is found. Callers rely on it.
 *
 * Only "uio" followed by decimal digits and nothing else counts.
 *
 * @param index  receives N, or -1 when there is no such entry; untouched when the directory cannot be read;
 *               not null
 * @return 0; NORV_STATUS_NOT_FOUND when there is no such entry (`index` is -1 then); NORV_STATUS_INVALID_ARG
 *         when `index` is null; the errno status of scandir(3), which is NORV_STATUS_NOT_FOUND too when there
 *         is no such directory (`index` is untouched then)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_umcb_get_max_idx(int32_t* index);

/**
 * Opens /dev/umcbN, tells its driver the mode, and maps region 0.
 *
 * @param index  N; printed signed
 * @param mode   the driver's mode word, given with the request 0x40046D00; below 0: the driver is not told
 *               any
 * @param umcb   receives the handle; not null. It must hold null: a handle that it holds is overwritten, and
 *               so lost, or closed when the open fails for want of memory. Null after any failure, with
 *               everything released
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when `umcb` is null; the errno status of reading
 *         /sys/class/umcb/umcbN/name (NORV_STATUS_NOT_FOUND: no such device), of opening /dev/umcbN with
 *         `O_RDWR | O_CLOEXEC`, of the mode's ioctl(2), of reading /sys/class/umcb/umcbN/maps/map0/size, or
 *         of mmap(2)
 *
 * Does not block, unless the driver does. Any thread.
 */
NORV_API uint32_t norv_umcb_open_by_idx(uint32_t index, int32_t mode, norv_umcb_t** umcb);

/**
 * Opens a device if one has the given "name" attribute: but not that one.
 *
 * The symbolic links in /sys/class/umcb are looked at in alphabetical order, and the first match counts. Its
 * number is the text after the third character of the entry's name, read as a C literal: "b2" of the entry
 * umcb2 is 0, and umcb0 is opened. Callers rely on it. Where there are several devices, open by index.
 *
 * @param name  the whole name; not null
 * @param mode  as for `norv_umcb_open_by_idx`
 * @param umcb  as for `norv_umcb_open_by_idx`; left as it is when no device was found
 * @return 0; NORV_STATUS_NOT_FOUND; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of
 *         scandir(3), but where that is 0 device 0 is opened; the status of `norv_umcb_open_by_idx`
 *
 * Does not block, unless the driver does. Any thread.
 */
NORV_API uint32_t norv_umcb_open_by_name(const char* name, int32_t mode, norv_umcb_t** umcb);

/**
 * Opens a device if one sits on a PCI device of this identity: but not that one.
 *
 * The identity is read from device/vendor and device/device of the symbolic links in /sys/class/umcb, in
 * alphabetical order; the number of the device comes from the entry's name as in `norv_umcb_open_by_name`, so
 * that umcb0 is opened.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @param mode    as for `norv_umcb_open_by_idx`
 * @param umcb    as for `norv_umcb_open_by_idx`; left as it is when no device was found
 * @return 0; NORV_STATUS_NOT_FOUND; NORV_STATUS_INVALID_ARG when `umcb` is null; the errno status of
 *         scandir(3), but where that is 0 device 0 is opened; the status of `norv_umcb_open_by_idx`
 *
 * Does not block, unless the driver does. Any thread.
 */
NORV_API uint32_t norv_umcb_open_by_pci_id(uint16_t vendor, uint16_t device, int32_t mode,
                                           norv_umcb_t** umcb);

/**
 * Closes the device, undoes the mapping and releases the handle.
 *
 * @param umcb  may be null, as may be what it holds; holds null afterwards, so that a second close does
 *              nothing
 *
 * Does not block. Never fails. Descriptors of interrupt sources stay open, and the caller's.
 */
NORV_API void norv_umcb_close(norv_umcb_t** umcb);

/**
 * Tells the kernel's driver of UMCB devices on PCI to serve devices of this identity: writes it to
 * /sys/bus/pci/drivers/umcb_pci_generic/new_id.
 *
 * @param vendor  PCI vendor
 * @param device  PCI device
 * @return 0; NORV_STATUS_NOT_AVAILABLE when the driver is not there; the errno status of opening or writing
 *         "new_id", for instance that of EEXIST when the driver has the identity already (Linux 5.10
 *         accepts one that was added before)
 *
 * Blocks while the driver takes over the devices. Any thread.
 */
NORV_API uint32_t norv_umcb_load_pci(uint16_t vendor, uint16_t device);

/* ---- Registers --------------------------------------------------------------------------------------- */

/**
 * Tells where region 0 is mapped.
 *
 * @param umcb  holds an open device; not checked
 * @return the address, valid until `norv_umcb_close`
 */
NORV_API void* norv_umcb_get_map(norv_umcb_t** umcb);

/**
 * Writes one register: a single aligned 32-bit store.
 *
 * @param umcb    holds an open device; not checked
 * @param offset  bytes from the start of region 0; a multiple of 4; not checked against its size
 * @param value   the value, in the processor's byte order
 *
 * Does not block; no system call.
 */
NORV_API void norv_umcb_write_32(norv_umcb_t** umcb, uint32_t offset, uint32_t value);

/**
 * Reads one register: a single aligned 32-bit load.
 *
 * @param umcb    holds an open device; not checked
 * @param offset  bytes from the start of region 0; a multiple of 4; not checked against its size
 * @return the value, in the processor's byte order
 *
 * Does not block; no system call.
 */
NORV_API uint32_t norv_umcb_read_32(norv_umcb_t** umcb, uint32_t offset);

/**
 * Fills a bus record over an open UMCB device. Its based lists add their base to each address.
 *
 * @param umcb  the handle variable of an open device; not null; the bus keeps this address, so the variable
 *              has to stay where it is until the bus is closed
 * @param bus   not null; overwritten, so close an open record first; after a failure it is zeroed
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer; NORV_STATUS_NO_MEMORY
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_umcb_open_mcb_bus(norv_umcb_t** umcb, norv_mcb_bus_t* bus);

/**
 * Tells the kind of the device, and of a PCI device its identity from /sys/class/umcb/umcbN/device/uevent.
 *
 * @param umcb  holds an open device
 * @param info  receives the kind, and from a PCI device what the lines PCI_ID and PCI_SLOT_NAME hold; the
 *              other fields stay what they were; not null
 * @return 0, also when lines are missing; NORV_STATUS_INVALID_ARG for a null pointer or handle; the errno
 *         status of opening the uevent file (`kind` is filled then), whose path is cut after 43 characters,
 *         enough for numbers of 9 digits
 *
 * Does not block.
 */
NORV_API uint32_t norv_umcb_get_info(norv_umcb_t** umcb, norv_uio_info_t* info);

/**
 * Gives the operations of PCI devices: no hooks, and the identity.
 *
 * @return the table, a constant; never null
 */
NORV_API const norv_umcb_ops_t* norv_umcb_get_pci_ops(void);

/* ---- The device's interrupts ------------------------------------------------------------------------- */

/**
 * Registers an interrupt source: the driver opens a descriptor for it (request 0xC0086D03).
 *
 * @param umcb        holds an open device
 * @param irq         the number of the source
 * @param descriptor  receives the source's descriptor, for the calls below and for loops that wait for
 *                    `EPOLLPRI`; the caller's, who ends it with close(2). Untouched after a failure; not null
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer or handle; the errno status of ioctl(2)
 *
 * Does not block.
 */
NORV_API uint32_t norv_umcb_irq_register(norv_umcb_t** umcb, uint32_t irq, int32_t* descriptor);

/**
 * Lets the device's enabled sources interrupt (request 0x6D01).
 *
 * @param umcb  holds an open device
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer or handle; the errno status of ioctl(2)
 *
 * Does not block.
 */
NORV_API uint32_t norv_umcb_irq_global_enable(norv_umcb_t** umcb);

/**
 * Keeps all sources of the device from interrupting (request 0x6D02).
 *
 * @param umcb  holds an open device
 * @return as `norv_umcb_irq_global_enable`
 *
 * Does not block.
 */
NORV_API uint32_t norv_umcb_irq_global_disable(norv_umcb_t** umcb);

/**
 * Sets the type of the device's interrupts (request 0x40046D04).
 *
 * @param umcb  holds an open device
 * @param type  one of the driver's types
 * @return as `norv_umcb_irq_global_enable`
 *
 * Does not block.
 */
NORV_API uint32_t norv_umcb_irq_set_type(norv_umcb_t** umcb, uint32_t type);

/* ---- One interrupt source ---------------------------------------------------------------------------- */

/**
 * Enables a source (request 0x7200).
 *
 * @param descriptor  of the source
 * @return 0; the errno status of ioctl(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_umcb_irq_enable(int32_t descriptor);

/**
 * Disables a source (request 0x7201).
 *
 * @param descriptor  of the source
 * @return 0; the errno status of ioctl(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_umcb_irq_disable(int32_t descriptor);

/**
 * Clears a source's event (request 0x7202). After `norv_umcb_irq_wait` that is done already; for loops that
 * wait for the descriptor themselves.
 *
 * @param descriptor  of the source
 * @return 0; the errno status of ioctl(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_umcb_irq_clear_event(int32_t descriptor);

/**
 * Waits for an event of a source and clears it: poll(2) for `POLLPRI`, then `norv_umcb_irq_clear_event`.
 * Nothing is read.
 *
 * A wait that a signal interrupts starts again with the whole time-out. An error condition of the descriptor
 * ends the wait too, and the event is cleared.
 *
 * @param descriptor  of the source
 * @param timeout     milliseconds; 0 only looks; 0xFFFFFFFF, and any other value of 2^31 or more, waits
 *                    without limit
 * @return 0; NORV_STATUS_TIMEOUT when no event came: nothing is cleared then; the errno status of poll(2) or
 *         ioctl(2)
 *
 * Blocks for `timeout` at most, longer only when signals interrupt it. One thread at a time for each source.
 */
NORV_API uint32_t norv_umcb_irq_wait(int32_t descriptor, uint32_t timeout);

NORV_END_DECLS

#endif
