// SPDX-License-Identifier: MIT
// What a test expects of a failed kernel call.
#pragma once

#include <cstdint>

#include "norv_base.h"

namespace norv::test {

inline uint32_t errno_status(int error) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error));
}

}  // namespace norv::test
