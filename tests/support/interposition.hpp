// What the interposed calls have in common: they pass through the double that stands in, can fail there, and
// leave a trace in its journal.
#pragma once

#include <mutex>
#include <utility>

#include "support/kernel_state.hpp"

namespace norv::test {

// Creates a descriptor of the real kernel through the double: it can fail, and is watched.
template <typename creation>
int create_descriptor(const char* name, creation create) {
    kernel_double::state* kernel = active_kernel();
    if (kernel == nullptr) {
        return create();
    }
    const std::lock_guard lock(kernel->mutex);
    if (kernel->strikes(name)) {
        return -1;
    }
    const int descriptor = create();
    kernel->opened(descriptor, name);
    call made;
    made.name = name;
    made.result = descriptor;
    kernel->record(made);
    return descriptor;
}

// A call that only passes through, but can fail.
template <typename result, typename passing>
result pass(const char* name, result failure, passing through) {
    kernel_double::state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->strikes(name)) {
            return failure;
        }
    }
    return through();
}

// A call that passes through, unless it fails or the test answers it, and is journalled.
template <typename result, typename passing>
result pass_journalled(call made, result failure, passing through) {
    kernel_double::state* kernel = active_kernel();
    if (kernel == nullptr) {
        return through();
    }
    const std::lock_guard lock(kernel->mutex);
    const auto given = kernel->answers.find(made.name);
    const result returned = given != kernel->answers.end()       ? static_cast<result>(given->second)
                            : kernel->strikes(made.name.c_str()) ? failure
                                                                 : through();
    made.result = static_cast<long>(returned);
    kernel->record(std::move(made));
    return returned;
}

}  // namespace norv::test
