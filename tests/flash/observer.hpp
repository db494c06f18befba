// SPDX-License-Identifier: MIT
// Records the progress reports of an operation, and stops it at a chosen point.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "norv_flash_types.h"

namespace norv::test {

// One progress report.
struct report {
    uint32_t status;
    uint32_t address;
    uint32_t remaining;
    uint32_t percentage;

    bool operator==(const report&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const report& made) {
        return out << "{" << made.status << ", " << made.address << ", " << made.remaining << ", "
                   << made.percentage << "}";
    }
};

// Passed to an operation as its `user`, together with `cancel` and `progress`.
struct observer {
    uint32_t stop_at = UINT32_MAX;  // the call of `cancel` that returns true, counted from 0
    uint32_t cancel_calls = 0;
    std::vector<report> reports = {};

    static bool cancel(void* user) {
        auto* self = static_cast<observer*>(user);
        return self->cancel_calls++ == self->stop_at;
    }
    static void progress(void* user, uint32_t status, uint32_t address, uint32_t remaining,
                         uint32_t percentage) {
        static_cast<observer*>(user)->reports.push_back({status, address, remaining, percentage});
    }
};

}  // namespace norv::test
