// SPDX-License-Identifier: MIT
// How a failed kernel call becomes a status, and how a status is passed on.
#pragma once

#include <cerrno>
#include <cstdint>

#include "norv_base.h"
#include "norv_status.h"

namespace norv {

// The status of errno. quirk 1: if it is 0, the caller continues as if the call had succeeded, so turn each
// failure into a status before testing it.
inline uint32_t errno_status() {
    return norv_get_status_by_errno(static_cast<uint32_t>(errno));
}

// The status of a kernel call that reports failure by a negative result and errno.
inline uint32_t status_of(int64_t result) {
    return result < 0 ? errno_status() : NORV_STATUS_OK;
}

}  // namespace norv

// Returns from the calling function with the status of an expression, unless that is 0. tools/mutation
// replaces the definition, to find mutants in the expression too.
#ifndef NORV_TRY
#define NORV_TRY(expression)                           \
    do {                                               \
        const uint32_t norv_try_status = (expression); \
        if (norv_try_status != NORV_STATUS_OK) {       \
            return norv_try_status;                    \
        }                                              \
    } while (false)
#endif
