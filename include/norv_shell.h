/* SPDX-License-Identifier: MIT */
/**
 * @file norv_shell.h
 * Runs a shell command and captures its output. The conventions of norv_status.h hold.
 *
 * No terminating NUL is added to the output (quirk 123): pass a buffer of zeros, and a size that is one less
 * than its capacity.
 *
 *     char kernel[64] = "";
 *     norv_shell_result(kernel, sizeof kernel - 1, "uname -r");
 */
#ifndef NORV_SHELL_H
#define NORV_SHELL_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Runs a command with /bin/sh and captures its standard output: popen(3) with "r".
 *
 * The output is read in pieces of up to `size` bytes, each stored from the start of the buffer: if it is
 * longer than the buffer, its last piece is left there, over the remains of the piece before (quirk 121). A
 * newline at the end of the text in the buffer (up to its first NUL or `size`) is replaced with a NUL, unless
 * it is the whole text (quirk 123).
 *
 * A signal whose handler was installed without SA_RESTART ends a piece early. If the piece is empty, the
 * capture ends with status 0, and the rest of the output is lost (quirk 122).
 *
 * @param buffer   receives the output; unchanged if there is none
 * @param size     bytes of the buffer to use; nothing past them is read or written
 * @param command  for the shell, which inherits standard input and standard error; the exit status is not
 *                 reported (quirk 123). Never build a command from untrusted text
 * @retval errno  of popen(3)
 *
 * Blocks until the command has closed its output and ended.
 */
NORV_API uint32_t norv_shell_result(char* buffer, uint32_t size, const char* command);

/**
 * Formats a command like printf and runs it as `norv_shell_result` does.
 *
 * @param buffer  receives the output
 * @param size    bytes of the buffer to use
 * @param format  printf format of the command, which is truncated after 4095 characters (quirk 6)
 * @retval NORV_STATUS_INVALID_ARG  the command could not be formatted; nothing was run
 * @retval errno                    of popen(3)
 *
 * Blocks until the command has closed its output and ended.
 */
NORV_API uint32_t norv_shell_format_result(char* buffer, uint32_t size, const char* format, ...)
    NORV_PRINTF(3, 4);

NORV_END_DECLS

#endif
