/**
 * @file norv_fpga.h
 * Programming an FPGA through the kernel's FPGA manager, /sys/class/fpga_manager.
 *
 * An FPGA is addressed by its number, that of its directory fpgaN. There is no handle and nothing to close;
 * any thread may call at any time, but one FPGA is programmed by one thread at a time. After programming,
 * norv_dt.h describes the new hardware to the kernel.
 *
 *     bool operating = false;
 *     norv_fpga_program(0, "design.bit.bin");
 *     norv_fpga_is_program_done(0, &operating);
 */
#ifndef NORV_FPGA_H
#define NORV_FPGA_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Programs an FPGA: writes the name of a firmware file, with its NUL, to
 * /sys/class/fpga_manager/fpgaN/firmware.
 *
 * The kernel looks the file up in its firmware search path, usually /lib/firmware, and loads it before the
 * write returns.
 *
 * @param index     number of the FPGA; printed signed, so 2^31 and more name no FPGA
 * @param firmware  the file's name below the firmware search path; not null. It is a path to the kernel: with
 *                  `..` in it, older kernels leave the search path and newer ones refuse it
 *                  (NORV_STATUS_INVALID_ARG). Do not pass on a name from an untrusted source
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when `firmware` is null; the errno status of
 *         opening or writing the attribute, for instance NORV_STATUS_NOT_FOUND: no such FPGA or no such
 *         firmware; NORV_STATUS_TIMEOUT: the FPGA did not finish
 *
 * Blocks until the driver has loaded the file or given up. Any thread.
 */
NORV_API uint32_t norv_fpga_program(uint32_t index, const char* firmware);

/**
 * Tells whether an FPGA is operating, that is programmed: reads /sys/class/fpga_manager/fpgaN/state.
 *
 * @param index  number of the FPGA; printed signed
 * @param done   receives true exactly when the state is "operating"; untouched on failure; not null. The
 *               last byte that was read is taken for the newline, whatever it is
 * @return 0; NORV_STATUS_INVALID_ARG when `done` is null; the errno status of opening or reading the
 *         attribute, for instance NORV_STATUS_NOT_FOUND: no such FPGA
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_fpga_is_program_done(uint32_t index, bool* done);

NORV_END_DECLS

#endif
