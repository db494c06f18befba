// Transfers whose time-out argument chooses how they wait.
#pragma once

#include <cstdint>

#include "norv_file.h"

namespace norv {

// Moves bytes: 0 does not wait, a negative time-out waits without limit, a positive one so many milliseconds.
inline uint32_t transfer_bytes(int32_t descriptor, void* buffer, uint32_t* length, int32_t timeout,
                               bool write) {
    if (timeout == 0) {
        return norv_iorw_nonblock(descriptor, buffer, length, write);
    }
    return timeout < 0 ? norv_iorw_block(descriptor, buffer, length, write)
                       : norv_iorw_timeout(descriptor, buffer, length, timeout, write);
}

}  // namespace norv
