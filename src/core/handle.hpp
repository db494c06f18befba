// Handles: the caller's variable holds a pointer to the record of what is open, null when nothing is.
#pragma once

namespace norv {

// The open record; null also without a variable.
template <typename record>
record* held(record* const* variable) {
    return variable != nullptr ? *variable : nullptr;
}

template <typename record>
bool is_open(record* const* variable) {
    return held(variable) != nullptr;
}

}  // namespace norv
