/* SPDX-License-Identifier: MIT */
/**
 * @file norv_mcb_bus.h
 * The registers of a mapped device as a record of operations, for code over a register map that does not
 * depend on the kind of device. The conventions of norv_status.h hold.
 *
 * `norv_uio_open_mcb_bus` fills a record with operations on the mapped region of an open UIO device,
 * `norv_umcb_open_mcb_bus` (norv_umcb.h) on that of a UMCB device. The record does not own the device: close
 * the record first, then the device.
 *
 * Operations are plain loads and stores, one after another: threads that share a record take turns, and a
 * barrier (norv_uio.h) is needed before an operation that starts a transfer of ordinary memory (DMA).
 *
 *     norv_uio_t* device = NULL;
 *     norv_mcb_bus_t bus;
 *     norv_uio_open_by_name("fpga-regs", &device);
 *     norv_uio_open_mcb_bus(&device, &bus);
 *     bus.write(&bus, 0x10, 5);
 *     bus.read_burst(&bus, 0x100, samples, 64, NORV_MCB_BURST_FIXED);
 *     bus.close(&bus);
 *     norv_uio_close(&device);
 */
#ifndef NORV_MCB_BUS_H
#define NORV_MCB_BUS_H

#include <stdint.h>

#include "norv_status.h"
#include "norv_uio.h"

NORV_BEGIN_DECLS

/** How the address of a burst changes after each element; any other value is taken as _FIXED. */
enum {
    NORV_MCB_BURST_UP = 0,   /**< up by 4 */
    NORV_MCB_BURST_DOWN = 1, /**< down by 4 */
    NORV_MCB_BURST_FIXED = 2 /**< not at all: a FIFO at one address */
};

/** One element of `write_list`. */
typedef struct {
    uint32_t address; /**< byte offset of the register */
    uint32_t value;   /**< the value to write */
} norv_mcb_reg_value_t;

typedef struct norv_mcb_bus norv_mcb_bus_t;

/** The state of an open bus. */
typedef struct norv_mcb_bus_context norv_mcb_bus_context_t;

/**
 * A bus.
 *
 * Each operation takes the record first. Addresses are byte offsets into the mapped region, multiples of 4.
 * Arrays hold `count` elements; a count of 0 does nothing. No operation makes a system call or checks its
 * arguments (quirk 168), and all return 0.
 */
struct norv_mcb_bus {
    /** Set to 0; for the code that uses the record. */
    uint32_t flags;

    /** Reads one register. */
    uint32_t (*read)(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value);
    /** Writes one register. */
    uint32_t (*write)(norv_mcb_bus_t* bus, uint32_t address, uint32_t value);
    /** Reads the register at each address of a list, in order: addresses[i] into values[i]. */
    uint32_t (*read_list)(norv_mcb_bus_t* bus, const uint32_t* addresses, uint32_t* values, uint32_t count);
    /** Writes the value of each pair to its address, in order. */
    uint32_t (*write_list)(norv_mcb_bus_t* bus, const norv_mcb_reg_value_t* list, uint32_t count);
    /** Reads `count` registers from address `start` on, which changes as `mode` says. */
    uint32_t (*read_burst)(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count,
                           int32_t mode);
    /** Writes `count` registers from address `start` on, which changes as `mode` says. */
    uint32_t (*write_burst)(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                            int32_t mode);

    /** The same operation as `read`. */
    uint32_t (*read_based)(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value);
    /** The same operation as `write`. */
    uint32_t (*write_based)(norv_mcb_bus_t* bus, uint32_t address, uint32_t value);
    /**
     * As `read_list`. A UMCB device adds `base` to each address, with 32 bits (quirk 166); a UIO device
     * ignores it (quirk 167).
     */
    uint32_t (*read_list_based)(norv_mcb_bus_t* bus, uint32_t base, const uint32_t* addresses,
                                uint32_t* values, uint32_t count);
    /**
     * As `write_list`. A UMCB device adds `base` to each address, with 32 bits (quirk 166); a UIO device
     * ignores it (quirk 167).
     */
    uint32_t (*write_list_based)(norv_mcb_bus_t* bus, uint32_t base, const norv_mcb_reg_value_t* list,
                                 uint32_t count);
    /** The same operation as `read_burst`. */
    uint32_t (*read_burst_based)(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count,
                                 int32_t mode);
    /** The same operation as `write_burst`. */
    uint32_t (*write_burst_based)(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                                  int32_t mode);

    /**
     * Releases the context; `bus` may be null or closed. The device stays open, and the operations stay in
     * the record (quirk 168).
     */
    void (*close)(norv_mcb_bus_t* bus);

    norv_mcb_bus_context_t* context; /**< null when the bus is closed */
};

/**
 * Fills a bus record over an open UIO device.
 *
 * @param uio  an open device; the bus keeps this address of the handle variable, which must stay valid until
 *             the bus is closed. What it holds is not checked
 * @param bus  overwritten: close an open record first
 * @retval NORV_STATUS_NO_MEMORY  for the context; the record is filled with zeros
 */
NORV_API uint32_t norv_uio_open_mcb_bus(norv_uio_t** uio, norv_mcb_bus_t* bus);

NORV_END_DECLS

#endif
