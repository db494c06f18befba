/**
 * @file norv_mcb_bus.h
 * The registers of a mapped device as a record of operations, so that code over a register map does not see
 * what lies behind it.
 *
 * `norv_uio_open_mcb_bus` fills the caller's record with operations on the mapped region of an open UIO
 * device, `norv_umcb_open_mcb_bus` (norv_umcb.h) with those of a UMCB device. Addresses are byte offsets into
 * that region, multiples of 4, and are not checked; neither are any other arguments. The record does not own
 * the device: close the record first, then the device. Operations are plain loads and stores, one after
 * another: threads that share a record take turns, and before an operation that starts a transfer of ordinary
 * memory (DMA) there has to be a barrier (norv_uio.h).
 *
 *     norv_mcb_bus_t bus;
 *     norv_uio_open_mcb_bus(&device, &bus);
 *     bus.write(&bus, 0x10, 5);
 *     bus.read_burst(&bus, 0x100, samples, 64, NORV_MCB_BURST_FIXED);
 *     bus.close(&bus);
 */
#ifndef NORV_MCB_BUS_H
#define NORV_MCB_BUS_H

#include <stdint.h>

#include "norv_status.h"
#include "norv_uio.h"

NORV_BEGIN_DECLS

/** How the address of a burst moves after each element; any other value keeps it like _FIXED. */
enum {
    NORV_MCB_BURST_UP = 0,   /**< 4 up */
    NORV_MCB_BURST_DOWN = 1, /**< 4 down */
    NORV_MCB_BURST_FIXED = 2 /**< not at all: a FIFO behind one address */
};

/** One element of `write_list`. */
typedef struct {
    uint32_t address; /**< of the register, in bytes */
    uint32_t value;   /**< what is written into it */
} norv_mcb_reg_value_t;

typedef struct norv_mcb_bus norv_mcb_bus_t;

/** What an open bus keeps. Private. */
typedef struct norv_mcb_bus_context norv_mcb_bus_context_t;

/**
 * A bus; the storage is the caller's, an open function fills it.
 *
 * Each operation takes the record first. Arrays are the caller's and hold `count` elements; a count of 0 does
 * nothing. None blocks, makes a system call or fails: all return 0, and none checks its arguments.
 */
struct norv_mcb_bus {
    /** 0; for the code that uses the record. */
    uint32_t flags;

    /** Reads one register. */
    uint32_t (*read)(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value);
    /** Writes one register. */
    uint32_t (*write)(norv_mcb_bus_t* bus, uint32_t address, uint32_t value);
    /** Reads the register at each listed address, in order: the i-th into values[i]. */
    uint32_t (*read_list)(norv_mcb_bus_t* bus, const uint32_t* addresses, uint32_t* values, uint32_t count);
    /** Writes each pair's value at its address, in order. */
    uint32_t (*write_list)(norv_mcb_bus_t* bus, const norv_mcb_reg_value_t* list, uint32_t count);
    /** Reads `count` registers; the address starts at `start` and moves as `mode` says. */
    uint32_t (*read_burst)(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count,
                           int32_t mode);
    /** Writes `count` registers; the address starts at `start` and moves as `mode` says. */
    uint32_t (*write_burst)(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                            int32_t mode);

    /** The same operation as `read`. */
    uint32_t (*read_based)(norv_mcb_bus_t* bus, uint32_t address, uint32_t* value);
    /** The same operation as `write`. */
    uint32_t (*write_based)(norv_mcb_bus_t* bus, uint32_t address, uint32_t value);
    /** As `read_list`. A UMCB device adds `base` to each address, with 32 bits; a UIO device ignores it. */
    uint32_t (*read_list_based)(norv_mcb_bus_t* bus, uint32_t base, const uint32_t* addresses,
                                uint32_t* values, uint32_t count);
    /** As `write_list`. A UMCB device adds `base` to each address, with 32 bits; a UIO device ignores it. */
    uint32_t (*write_list_based)(norv_mcb_bus_t* bus, uint32_t base, const norv_mcb_reg_value_t* list,
                                 uint32_t count);
    /** The same operation as `read_burst`. */
    uint32_t (*read_burst_based)(norv_mcb_bus_t* bus, uint32_t start, uint32_t* values, uint32_t count,
                                 int32_t mode);
    /** The same operation as `write_burst`. */
    uint32_t (*write_burst_based)(norv_mcb_bus_t* bus, uint32_t start, const uint32_t* values, uint32_t count,
                                  int32_t mode);

    /** Releases the context; `bus` may be null or closed. The device stays open, the operations in place. */
    void (*close)(norv_mcb_bus_t* bus);

    norv_mcb_bus_context_t* context; /**< null when the record is not open */
};

/**
 * Fills a bus record over an open UIO device.
 *
 * @param uio  the handle variable of an open device; not null; the bus keeps this address, so the variable
 *             has to stay where it is until the bus is closed
 * @param bus  not null; overwritten, so close an open record first; after a failure it is zeroed
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer; NORV_STATUS_NO_MEMORY
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uio_open_mcb_bus(norv_uio_t** uio, norv_mcb_bus_t* bus);

NORV_END_DECLS

#endif
