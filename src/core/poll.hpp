// SPDX-License-Identifier: MIT
// Waiting for one descriptor.
#pragma once

#include <poll.h>

#include <cerrno>
#include <cstdint>

#include "core/status.hpp"

namespace norv {

// Polls one descriptor once: above 0: ready, 0: timeout, below 0: failed.
inline int poll_once(int32_t descriptor, int16_t events, int32_t timeout) {
    pollfd request = {descriptor, events, 0};
    return poll(&request, 1, timeout);
}

// Waits for one descriptor. quirk 4: a signal restarts the wait with the whole timeout.
inline uint32_t wait_for(int32_t descriptor, int16_t events, int32_t timeout) {
    int ready = 0;
    do {
        ready = poll_once(descriptor, events, timeout);
    } while (ready < 0 && errno == EINTR);
    return ready == 0 ? NORV_STATUS_TIMEOUT : status_of(ready);
}

}  // namespace norv
