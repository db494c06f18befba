/**
 * @file norv_file.h
 * Device nodes and attribute files: open by formatted path, read or write in one call, move a whole buffer
 * with or without a time limit, test a path, create and delete marker files.
 *
 * Nothing here keeps state: every function may be called from any thread at any time. Paths are formatted
 * like printf into 256 bytes; a path longer than 255 characters is truncated silently. Every errno becomes a
 * status through `norv_get_status_by_errno` (norv_base.h), which may map one to 0; the call then counts as
 * successful.
 *
 * The transfers take the descriptor of an open file. That of a closed handle, -1, is an error (EBADF) for
 * `norv_iorw_nonblock` alone: poll(2) ignores it, so `norv_iorw_timeout` waits until its time-out and
 * `norv_iorw_block` forever.
 *
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
 * Opens a file by formatted path.
 *
 * @param flags       flags of open(2), for instance `O_RDWR | O_CLOEXEC`; a created file gets mode 0600
 * @param descriptor  receives what open(2) returned, also when that is negative; not null
 * @param format      printf format of the path; not null
 * @return 0; NORV_STATUS_INVALID_ARG when the path could not be formatted (*descriptor is then -1) or a
 *         pointer is null; the errno status of open(2)
 *
 * Blocks as long as the device's open does. Any thread.
 */
NORV_API uint32_t norv_open_device(uint32_t flags, int32_t* descriptor, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * `norv_open_device` with its values in a va_list.
 *
 * @param flags       flags of open(2); a created file gets mode 0600
 * @param descriptor  receives what open(2) returned, also when that is negative; not null
 * @param format      printf format of the path; not null
 * @param values      used up
 * @return as `norv_open_device`
 *
 * Blocks as long as the device's open does. Any thread.
 */
NORV_API uint32_t norv_open_device_va(uint32_t flags, int32_t* descriptor, const char* format, va_list values)
    NORV_PRINTF(3, 0);

/**
 * Reads a file once: open(2) with `O_RDONLY | O_CLOEXEC`, one read(2), close(2).
 *
 * @param buffer  receives up to *length bytes; owned by the caller
 * @param length  in: bytes wanted; out: bytes read, which may be fewer; unchanged on failure; not null
 * @param format  printf format of the path; not null
 * @return 0; the status of `norv_open_device`; the errno status of read(2)
 *
 * Blocks as long as the file's read does. Any thread.
 */
NORV_API uint32_t norv_read_device(void* buffer, uint32_t* length, const char* format, ...) NORV_PRINTF(3, 4);

/**
 * Writes a file once: open(2) with `O_WRONLY | O_CLOEXEC`, one write(2), close(2).
 *
 * @param buffer  the bytes to write; owned by the caller
 * @param length  in: bytes to write; out: bytes written, which may be fewer; unchanged on failure; not null
 * @param format  printf format of the path; not null
 * @return 0, also after a short write; the status of `norv_open_device`; the errno status of write(2)
 *
 * Blocks as long as the file's write does. Any thread.
 */
NORV_API uint32_t norv_write_device(const void* buffer, uint32_t* length, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * Writes one formatted text, its terminating NUL included, with one write(2): "1" goes out as two bytes.
 *
 * A text of up to 4095 characters, as many as an attribute takes, is formatted on the stack; a longer one in
 * memory of its own size from `norv_zalloc`, so that a large maximum costs nothing.
 *
 * @param descriptor  an open file
 * @param maximum     size in bytes of the text with its NUL at most: larger than the text is long
 * @param format      printf format of the text; not null
 * @return 0, also after a short write; NORV_STATUS_INVALID_ARG when the text could not be formatted or does
 *         not fit (nothing is written) or `format` is null; NORV_STATUS_NO_MEMORY; the errno status of
 *         write(2)
 *
 * Blocks as long as the file's write does. Any thread.
 */
NORV_API uint32_t norv_write_string(int32_t descriptor, uint32_t maximum, const char* format, ...)
    NORV_PRINTF(3, 4);

/**
 * `norv_write_string` with its values in a va_list.
 *
 * @param descriptor  an open file
 * @param maximum     as for `norv_write_string`
 * @param format      printf format of the text; not null
 * @param values      used up
 * @return as `norv_write_string`
 *
 * Blocks as long as the file's write does. Any thread.
 */
NORV_API uint32_t norv_write_string_va(int32_t descriptor, uint32_t maximum, const char* format,
                                       va_list values) NORV_PRINTF(3, 0);

/**
 * Moves bytes with one read(2) or write(2).
 *
 * @param descriptor  an open file
 * @param buffer      receives or holds the bytes; owned by the caller; not changed by a write
 * @param length      in: bytes wanted; out: bytes moved, which may be fewer; unchanged on failure; not null
 * @param write       true: write; false: read
 * @return 0; NORV_STATUS_INVALID_ARG when `length` is null; the errno status of the call, for instance
 *         NORV_STATUS_AGAIN when a non-blocking descriptor is not ready
 *
 * Blocks only if the descriptor does. Any thread.
 */
NORV_API uint32_t norv_iorw_nonblock(int32_t descriptor, void* buffer, uint32_t* length, bool write);

/**
 * Moves exactly *length bytes and waits as long as that takes.
 *
 * NORV_STATUS_AGAIN and NORV_STATUS_INTERRUPTED are tried again. The end of a file is not detected: a read
 * that keeps returning 0 bytes keeps the call polling forever, so use it only on devices that deliver the
 * full amount.
 *
 * @param descriptor  an open file
 * @param buffer      receives or holds the bytes; owned by the caller; not changed by a write
 * @param length      in: bytes wanted, 0 returns at once; out: bytes moved; left as it was on failure, even
 *                    when some bytes moved; not null
 * @param write       true: write; false: read
 * @return 0; NORV_STATUS_INVALID_ARG when `length` is null; the errno status of poll(2), read(2) or write(2)
 *
 * Blocks without limit. Any thread.
 */
NORV_API uint32_t norv_iorw_block(int32_t descriptor, void* buffer, uint32_t* length, bool write);

/**
 * Moves *length bytes within a time limit.
 *
 * @param descriptor  an open file
 * @param buffer      receives or holds the bytes; owned by the caller; not changed by a write
 * @param length      in: bytes wanted, 0 returns at once; out: bytes moved, also on failure; not null
 * @param timeout     milliseconds for the whole call; 0 or less ends it at once with NORV_STATUS_TIMEOUT
 * @param write       true: write; false: read
 * @return 0; NORV_STATUS_TIMEOUT when the time was up first; NORV_STATUS_INVALID_ARG when `length` is null;
 *         the errno status of poll(2), read(2) or write(2)
 *
 * Blocks for `timeout` at most. Any thread.
 */
NORV_API uint32_t norv_iorw_timeout(int32_t descriptor, void* buffer, uint32_t* length, int32_t timeout,
                                    bool write);

/**
 * Tells whether a path can be accessed.
 *
 * @param mode    mode of access(2): `F_OK`, or `R_OK`, `W_OK`, `X_OK` combined
 * @param format  printf format of the path; not null
 * @return true when access(2) succeeds, and also when it fails with an errno that the base library maps to
 *         0; false otherwise, and when the path could not be formatted
 *
 * Does not block. Any thread.
 */
NORV_API bool norv_file_access(uint32_t mode, const char* format, ...) NORV_PRINTF(2, 3);

/**
 * Creates a marker file: its existence is the mark, nothing is written, an existing file keeps its content.
 *
 * The formatted path is used as a format once more, so a `%` that is still in it is expanded again; write
 * `%%%%` for a single `%` in the file's name.
 *
 * @param format  printf format of the path; not null
 * @return 0; NORV_STATUS_INVALID_ARG when the path could not be formatted; the errno status of open(2) with
 *         `O_RDWR | O_CREAT | O_SYNC`
 *
 * Blocks as long as open(2) does. Any thread.
 */
NORV_API uint32_t norv_file_mark(const char* format, ...) NORV_PRINTF(1, 2);

/**
 * Deletes a marker file.
 *
 * @param format  printf format of the path; not null
 * @return 0; NORV_STATUS_INVALID_ARG when the path could not be formatted; the errno status of remove(3)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_file_unmark(const char* format, ...) NORV_PRINTF(1, 2);

NORV_END_DECLS

#endif
