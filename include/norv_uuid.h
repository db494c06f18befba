/**
 * @file norv_uuid.h
 * Random UUIDs from the kernel.
 *
 *     char uuid[NORV_UUID_LENGTH + 1] = "";
 *     norv_uuid_generate(uuid);  // "0d5e7f0c-83f8-4c0e-9f1d-6a3f2b8a7c11"
 */
#ifndef NORV_UUID_H
#define NORV_UUID_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** Characters of a UUID's text: hexadecimal groups of 8, 4, 4, 4 and 12 digits, joined by hyphens. */
#define NORV_UUID_LENGTH 36

/**
 * Generates a UUID: 36 characters of /proc/sys/kernel/random/uuid, another one with every read. Descriptor 0,
 * which the file may get in a process without standard input, counts as not open: the file is read but not
 * closed.
 *
 * @param buffer  receives 36 characters and no terminating NUL; owned by the caller; not null; a failure may
 *                leave some of the characters in it
 * @return 0; NORV_STATUS_INVALID_ARG when `buffer` is null; the status of `norv_open_device`;
 *         NORV_STATUS_SHORT_READ when fewer than 36 bytes could be read, also when the read failed
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uuid_generate(char* buffer);

NORV_END_DECLS

#endif
