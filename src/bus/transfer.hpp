// SPDX-License-Identifier: MIT
// Transfers that wait according to their timeout.
#pragma once

#include <cstdint>

#include "norv_file.h"

namespace norv {

// Transfers bytes. Timeout 0: does not wait; negative: no limit; positive: milliseconds.
inline uint32_t transfer_bytes(int32_t descriptor, void* buffer, uint32_t* length, int32_t timeout,
                               bool write) {
    if (timeout == 0) {
        return norv_iorw_nonblock(descriptor, buffer, length, write);
    }
    return timeout < 0 ? norv_iorw_block(descriptor, buffer, length, write)
                       : norv_iorw_timeout(descriptor, buffer, length, timeout, write);
}

}  // namespace norv
