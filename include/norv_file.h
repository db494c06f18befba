/* SPDX-License-Identifier: MIT */
/**
 * @file norv_file.h
 * Device nodes and attribute files: open by formatted path, read or write in one call, transfer a whole
 * buffer with or without a time limit, check a path, create and delete marker files. The conventions of
 * norv_status.h hold.
 *
 * The transfers take the descriptor of an open file. With -1, the descriptor of a closed handle,
 * `norv_iorw_nonblock` fails with EBADF; but poll(2) ignores it, so `norv_iorw_timeout` waits for its whole
 * timeout, and `norv_iorw_block` forever.
 *
 *     char text[32] = "";
 *     uint32_t length = sizeof text - 1;
 *     uint32_t status = norv_read_device(text, &length, "/sys/class/net/%s/address", "eth0");
 */
#ifndef NORV_FILE_H
#define NORV_FILE_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Opens a file: open(2). A path is truncated silently after 255 characters (quirk 6).
 *
 * @param flags       of open(2), for instance `O_RDWR | O_CLOEXEC`; a created file gets mode 0600
 * @param descriptor  receives the result of open(2), even a negative one; -1 if the path cannot be formatted
 * @param format      printf format of the path
 * @retval NORV_STATUS_INVALID_ARG  the path cannot be formatted
 * @retval errno                    of open(2)
 *
 * Blocks as open(2) does.
 */
NORV_API uint32_t norv_open_device(uint32_t flags, int32_t* descriptor, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * Opens a file like `norv_open_device`, with a va_list.
 *
 * @param flags       as for `norv_open_device`
 * @param descriptor  as for `norv_open_device`
 * @param format      as for `norv_open_device`
 * @param values      indeterminate afterwards
 * @return the status of `norv_open_device`
 *
 * Blocks as open(2) does.
 */
NORV_API uint32_t norv_open_device_va(uint32_t flags, int32_t* descriptor, const char* format, va_list values)
    NORV_PRINTF(3, 0);

/**
 * Reads a file once: open(2) with `O_RDONLY | O_CLOEXEC`, one read(2), close(2).
 *
 * @param buffer  receives up to `*length` bytes; not checked
 * @param length  in: bytes to read; out: bytes read, possibly fewer
 * @param format  printf format of the path
 * @retval NORV_STATUS_INVALID_ARG  the path cannot be formatted
 * @retval errno                    of open(2) or read(2)
 *
 * Blocks as open(2) and read(2) do.
 */
NORV_API uint32_t norv_read_device(void* buffer, uint32_t* length, const char* format, ...) NORV_PRINTF(3, 4);

/**
 * Writes a file once: open(2) with `O_WRONLY | O_CLOEXEC`, one write(2), close(2).
 *
 * @param buffer  the bytes to write; not checked
 * @param length  in: bytes to write; out: bytes written, possibly fewer
 * @param format  printf format of the path
 * @retval NORV_STATUS_INVALID_ARG  the path cannot be formatted
 * @retval errno                    of open(2) or write(2)
 *
 * Blocks as open(2) and write(2) do.
 */
NORV_API uint32_t norv_write_device(const void* buffer, uint32_t* length, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * Writes a formatted text and its terminating NUL with one write(2): "1" is two bytes. A short write counts
 * as a success (quirk 7).
 *
 * A text of up to 4095 characters, the most that an attribute takes, is formatted on the stack, and a longer
 * one in memory of its own size from `norv_zalloc`, so a large maximum costs nothing.
 *
 * @param descriptor  an open file
 * @param maximum     the largest size of the text in bytes, including its NUL
 * @param format      printf format of the text
 * @retval NORV_STATUS_INVALID_ARG  the text cannot be formatted, or is larger; nothing is written
 * @retval NORV_STATUS_NO_MEMORY    no memory for a text of more than 4095 characters; nothing is written
 * @retval errno                    of write(2)
 *
 * Blocks as write(2) does.
 */
NORV_API uint32_t norv_write_string(int32_t descriptor, uint32_t maximum, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * Writes a formatted text like `norv_write_string`, with a va_list.
 *
 * @param descriptor  an open file
 * @param maximum     as for `norv_write_string`
 * @param format      printf format of the text
 * @param values      indeterminate afterwards
 * @return the status of `norv_write_string`
 *
 * Blocks as write(2) does.
 */
NORV_API uint32_t norv_write_string_va(int32_t descriptor, uint32_t maximum, const char* format,
                                       va_list values) NORV_PRINTF(3, 0);

/**
 * Transfers bytes with one read(2) or write(2).
 *
 * @param descriptor  an open file
 * @param buffer      receives or contains the bytes; not changed by a write; not checked
 * @param length      in: bytes to transfer; out: bytes transferred, possibly fewer
 * @param write       true: write; false: read
 * @retval NORV_STATUS_AGAIN  a non-blocking descriptor is not ready
 * @retval EBADF              the descriptor is not open
 * @retval errno              of read(2) or write(2)
 *
 * Blocks only if the descriptor is a blocking one.
 */
NORV_API uint32_t norv_iorw_nonblock(int32_t descriptor, void* buffer, uint32_t* length, bool write);

/**
 * Transfers exactly `*length` bytes: poll(2), then read(2) or write(2), until all are transferred.
 *
 * NORV_STATUS_AGAIN and NORV_STATUS_INTERRUPTED are retried. A failure whose errno has the status 0
 * transfers nothing and is retried too (quirk 1).
 *
 * The end of a file is not detected: while read(2) returns 0, the call keeps polling (quirk 8). Use it only
 * on devices that deliver the full length.
 *
 * @param descriptor  an open file
 * @param buffer      receives or contains the bytes; not changed by a write; not checked
 * @param length      in: bytes to transfer, 0 returns at once; out: the same. Unchanged on failure, even if
 *                    some bytes were transferred (quirk 9)
 * @param write       true: write; false: read
 * @retval errno  of poll(2), read(2) or write(2)
 *
 * Blocks without limit.
 */
NORV_API uint32_t norv_iorw_block(int32_t descriptor, void* buffer, uint32_t* length, bool write);

/**
 * Transfers `*length` bytes like `norv_iorw_block`, but within a time limit.
 *
 * @param descriptor  an open file
 * @param buffer      receives or contains the bytes; not changed by a write; not checked
 * @param length      in: bytes to transfer, 0 returns at once; out: bytes transferred, even on failure
 *                    (quirk 9)
 * @param timeout     milliseconds for the whole call; 0 or less: times out at once
 * @param write       true: write; false: read
 * @retval NORV_STATUS_TIMEOUT  the time limit was reached before all bytes were transferred
 * @retval errno                of poll(2), read(2) or write(2)
 *
 * Blocks for up to `timeout`, even if signals arrive; on a blocking descriptor, write(2) may wait longer.
 */
NORV_API uint32_t norv_iorw_timeout(int32_t descriptor, void* buffer, uint32_t* length, int32_t timeout,
                                    bool write);

/**
 * Returns whether a path can be accessed: access(2).
 *
 * @param mode    of access(2): `F_OK`, or `R_OK`, `W_OK` and `X_OK` combined
 * @param format  printf format of the path
 * @return true if access(2) succeeds, or fails with an errno whose status is 0 (quirk 1); otherwise false,
 *         also if the path cannot be formatted
 */
NORV_API bool norv_file_access(uint32_t mode, const char* format, ...) NORV_PRINTF(2, 3);

/**
 * Creates a marker file: open(2) with `O_RDWR | O_CREAT | O_SYNC`. Nothing is written, and an existing file
 * keeps its contents.
 *
 * The formatted path is used as a format again, so a `%` in it is expanded a second time (quirk 10): write
 * `%%%%` for a `%` in the name of the file.
 *
 * @param format  printf format of the path
 * @retval NORV_STATUS_INVALID_ARG  the path cannot be formatted
 * @retval errno                    of open(2)
 *
 * Blocks as open(2) does.
 */
NORV_API uint32_t norv_file_mark(const char* format, ...) NORV_PRINTF(1, 2);

/**
 * Deletes a marker file: remove(3).
 *
 * @param format  printf format of the path
 * @retval NORV_STATUS_INVALID_ARG  the path cannot be formatted
 * @retval errno                    of remove(3)
 */
NORV_API uint32_t norv_file_unmark(const char* format, ...) NORV_PRINTF(1, 2);

NORV_END_DECLS

#endif
