// SPDX-License-Identifier: MIT
// Handles: the caller's variable points to the record that an open function allocated, or is null.
#pragma once

#include <cstdint>

#include "norv_base.h"
#include "norv_status.h"

namespace norv {

// Allocates a record of zeros. Without memory the variable becomes null.
template <typename record>
uint32_t allocate_record(record*& variable) {
    variable = static_cast<record*>(norv_zalloc(sizeof(record)));
    return variable == nullptr ? NORV_STATUS_NO_MEMORY : NORV_STATUS_OK;
}

// Returns the open record; null also if there is no variable.
template <typename record>
record* record_of(record* const* variable) {
    return variable != nullptr ? *variable : nullptr;
}

template <typename record>
bool is_open(record* const* variable) {
    return record_of(variable) != nullptr;
}

}  // namespace norv
