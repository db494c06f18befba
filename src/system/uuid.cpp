// SPDX-License-Identifier: MIT
// UUIDs from the kernel's random number generator.
#include "norv_uuid.h"

#include <fcntl.h>
#include <unistd.h>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/status.hpp"

uint32_t norv_uuid_generate(char* buffer) {
    if (buffer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    norv::scoped_descriptor file;
    NORV_TRY(norv::open_file(O_RDONLY | O_CLOEXEC, {"/proc/sys/kernel/random/uuid"}, file.out()));
    // quirk 124: a failed read counts as a short one, and nothing terminates the text.
    return pread(file.get(), buffer, NORV_UUID_LENGTH, 0) < NORV_UUID_LENGTH ? NORV_STATUS_SHORT_READ
                                                                             : NORV_STATUS_OK;
}
