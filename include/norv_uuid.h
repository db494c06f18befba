/* SPDX-License-Identifier: MIT */
/**
 * @file norv_uuid.h
 * Random UUIDs from the kernel. The conventions of norv_status.h hold.
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
 * Generates a UUID: reads /proc/sys/kernel/random/uuid, which is another one at every read.
 *
 * If the file is opened as descriptor 0, it is read but not closed (quirk 3).
 *
 * @param buffer  receives 36 characters and no terminating NUL (quirk 124); a short read leaves what it read
 * @retval NORV_STATUS_SHORT_READ  fewer than 36 bytes were read, or pread(2) failed (quirk 124)
 * @retval errno                   of open(2)
 */
NORV_API uint32_t norv_uuid_generate(char* buffer);

NORV_END_DECLS

#endif
