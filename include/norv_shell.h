/**
 * @file norv_shell.h
 * Runs a shell command and captures what it prints.
 *
 * The output goes into a buffer of the caller, and no terminating NUL is added: pass a zero-filled buffer,
 * and a size that is one less than its capacity. A newline at the end is taken off. Nothing is kept between
 * calls, which may be made from any thread.
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
 * The output is read in pieces of `size` bytes, each from the start of the buffer on. Of an output that is
 * longer than the buffer, the last piece is left, over the remains of the one before: make the buffer large
 * enough for the whole output. If the text in the buffer, up to its first NUL or `size`, is 2 or more
 * characters long and ends with a newline, that newline is replaced with a NUL; a single newline stays.
 *
 * A signal with a handler that was installed without SA_RESTART ends the piece that is being read: output
 * that follows is stored from the start of the buffer on, and if the piece is still empty, the capture ends
 * and the rest is lost. The status is 0 all the same: install handlers with SA_RESTART.
 *
 * @param buffer   receives the output; left as it was when the command prints nothing; not null
 * @param size     bytes that may be written; nothing behind them is read or written
 * @param command  for the shell, which inherits standard input and standard error; not null. Never build one
 *                 from text that a stranger may choose
 * @return 0, however the command ended and whatever it printed: its exit status is not reported;
 *         NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of popen(3)
 *
 * Blocks until the command closes its output and ends. Any thread.
 */
NORV_API uint32_t norv_shell_result(char* buffer, uint32_t size, const char* command);

/**
 * `norv_shell_result` with a command formatted like printf.
 *
 * @param buffer  as for `norv_shell_result`
 * @param size    as for `norv_shell_result`
 * @param format  printf format of the command, of which no more than 4095 characters are used; not null
 * @return as `norv_shell_result`; NORV_STATUS_INVALID_ARG also when the command could not be formatted, and
 *         nothing is run
 *
 * Blocks as `norv_shell_result` does. Any thread.
 */
NORV_API uint32_t norv_shell_format_result(char* buffer, uint32_t size, const char* format, ...)
    NORV_PRINTF(3, 4);

NORV_END_DECLS

#endif
