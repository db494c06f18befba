// SPDX-License-Identifier: MIT
// The engine of the operations that can be resumed, on both kinds of flash: one step after another, until
// nothing remains.
#pragma once

#include <cstdint>

#include "flash/observer.hpp"
#include "norv_status.h"

namespace norv {

// How far an operation has come.
struct flash_cursor {
    uint64_t address;    // of the next step; 64 bits, so that 4 GiB is not 0
    uint32_t remaining;  // bytes of the operation
};

enum class flow {
    proceed,   // to the next step
    complete,  // the operation is done
    stop,      // it ends, and leaves the caller's length and end unchanged
    fail,      // it ends, and the caller's length becomes the bytes done
};

// What came of a step. What is not named is 0.
struct step_outcome {
    flow next;
    uint32_t status{};
    uint32_t done{};     // bytes of the operation
    uint32_t advance{};  // from the step's address to that of the next one
};

inline step_outcome proceed(uint32_t done, uint32_t advance) {
    return {.next = flow::proceed, .done = done, .advance = advance};
}

// The operation is done, whatever remains.
inline step_outcome complete() {
    return {.next = flow::complete};
}

inline step_outcome stop(uint32_t status) {
    return {.next = flow::stop, .status = status};
}

inline step_outcome fail(uint32_t status) {
    return {.next = flow::fail, .status = status};
}

// Calls step(cursor) until nothing remains, or a step ends the operation, and returns the last step.
// quirk 143, quirk 153: a cancellation is a stop.
template <typename step_type>
step_outcome run_steps(flash_cursor& cursor, const flash_observer& observer, step_type step) {
    while (cursor.remaining > 0) {
        if (observer.is_cancelled()) {
            return stop(NORV_STATUS_TIMEOUT);
        }
        const step_outcome taken = step(cursor);
        cursor.remaining -= taken.done;
        cursor.address += taken.advance;
        if (taken.next != flow::proceed) {
            return taken;
        }
    }
    return complete();
}

}  // namespace norv
