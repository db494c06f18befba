// SPDX-License-Identifier: MIT
// Handles: the caller's variable points to the record that an open function allocated, or is null.
#pragma once

namespace norv {

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
