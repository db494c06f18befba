// SPDX-License-Identifier: MIT
// The callbacks of an operation that can be resumed.
#pragma once

#include <cstdint>

#include "norv_flash_types.h"

namespace norv {

// Both callbacks may be null.
struct flash_observer {
    norv_flash_cancel_fn cancel;
    norv_flash_progress_fn progress;
    void* user;
    uint32_t total;  // of the operation, in bytes; not 0

    bool is_cancelled() const { return cancel != nullptr && cancel(user); }

    void report(uint32_t status, uint32_t address, uint32_t remaining) const {
        if (progress != nullptr) {
            progress(user, status, address, remaining, percentage(total - remaining));
        }
    }

    uint32_t percentage(uint32_t done) const {
        return static_cast<uint32_t>(static_cast<double>(done) * 100 / static_cast<double>(total));
    }
};

}  // namespace norv
