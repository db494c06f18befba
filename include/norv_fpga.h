/* SPDX-License-Identifier: MIT */
/**
 * @file norv_fpga.h
 * Programming an FPGA through the kernel's FPGA manager, /sys/class/fpga_manager. The conventions of
 * norv_status.h hold.
 *
 * An FPGA is identified by its number, the N of its directory fpgaN. There is no handle and nothing to close.
 * One FPGA is programmed by one thread at a time. After programming, norv_dt.h describes the new hardware to
 * the kernel.
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
 * /sys/class/fpga_manager/fpgaN/firmware. A short write counts as a success.
 *
 * The kernel looks the file up in its firmware search path, usually /lib/firmware, and loads it before the
 * write returns.
 *
 * @param index     number of the FPGA
 * @param firmware  the file's name below the search path. Do not pass on a name from an untrusted source:
 *                  with `..` in it, older kernels leave the search path, and newer ones refuse it
 * @retval NORV_STATUS_NOT_FOUND    there is no such FPGA or no such firmware
 * @retval NORV_STATUS_INVALID_ARG  the kernel refuses the name or the file
 * @retval NORV_STATUS_TIMEOUT      the FPGA did not finish
 * @retval errno                    of opening or writing the attribute
 *
 * Blocks until the driver has loaded the file or given up.
 */
NORV_API uint32_t norv_fpga_program(uint32_t index, const char* firmware);

/**
 * Reports whether an FPGA is operating, that is programmed: reads /sys/class/fpga_manager/fpgaN/state.
 *
 * @param index  number of the FPGA
 * @param done   receives true exactly when the state is "operating". At most 15 bytes are read, and the last
 *               one is dropped, whether or not it is a newline (quirk 5)
 * @retval NORV_STATUS_NOT_FOUND  there is no such FPGA
 * @retval errno                  of opening or reading the attribute
 */
NORV_API uint32_t norv_fpga_is_program_done(uint32_t index, bool* done);

NORV_END_DECLS

#endif
