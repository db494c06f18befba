// SPDX-License-Identifier: MIT
// What the interposed calls have in common: they pass through the active double, can fail there, and are
// recorded in its journal.
#pragma once

#include <fcntl.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>

#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace norv::test {

using kernel_state = kernel_double::state;

inline std::string bytes_of(const void* bytes, long count) {
    return count > 0 ? std::string(static_cast<const char*>(bytes), static_cast<size_t>(count))
                     : std::string();
}

// A model's answer as the C library returns it.
template <typename result>
result answer(result value) {
    if (value < 0) {
        errno = static_cast<int>(-value);
        return -1;
    }
    return value;
}

// A result as the journal keeps it.
template <typename result>
long journalled(result returned) {
    if constexpr (std::is_pointer_v<result>) {
        return returned == nullptr ? -1 : 0;
    } else {
        return static_cast<long>(returned);
    }
}

// Opens a descriptor that a model answers: the number itself can be polled and closed.
inline int open_model(kernel_state& kernel, const std::string& path, std::shared_ptr<device> model) {
    const int descriptor = REAL(eventfd)(0, EFD_CLOEXEC);
    kernel.opened(descriptor, path, std::move(model));
    return descriptor;
}

// Creates a descriptor of the real kernel through the double: it can fail, and is watched.
template <typename creation>
int create_descriptor(const char* name, creation create) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return create();
    }
    const std::lock_guard lock(kernel->mutex);
    call made{name};
    if (kernel->strikes(made)) {
        return -1;
    }
    made.result = create();
    kernel->opened(static_cast<int>(made.result), name);
    kernel->record(made);
    return static_cast<int>(made.result);
}

// A call that only passes through, but can fail.
template <typename result, typename passing>
result pass(const char* name, result failure, passing through) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->strikes(call{name})) {
            return failure;
        }
    }
    return through();
}

// The same for a call on a path, which leads into the scratch tree; it is journalled.
template <typename result, typename passing>
result pass_path(const char* name, const char* path, result failure, passing through) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return through(path);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{name, path};
    const result returned = kernel->strikes(made) ? failure : through(kernel->place_of(path).c_str());
    made.result = journalled(returned);
    kernel->record(std::move(made));
    return returned;
}

// A call that passes through, unless it fails or the test answers it, and is journalled.
template <typename result, typename passing>
result pass_journalled(call made, result failure, passing through) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return through();
    }
    const std::lock_guard lock(kernel->mutex);
    const auto given = kernel->answers.find(made.name);
    const result returned = given != kernel->answers.end() ? static_cast<result>(given->second)
                            : kernel->strikes(made)        ? failure
                                                           : through();
    made.result = journalled(returned);
    kernel->record(std::move(made));
    return returned;
}

// The real kernel's answer to a call on a descriptor. The kernel checks the descriptor first; an emulator of
// another processor's programs first checks the request, which it may not know.
template <typename passing>
int real_answer(int descriptor, passing through) {
    return REAL(fcntl)(descriptor, F_GETFD) < 0 ? -1 : through();
}

// A call on a descriptor, journalled: it fails, or the descriptor's model answers, or the real kernel.
template <typename asking, typename passing>
int ask(call made, int descriptor, asking ask_model, passing through) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return real_answer(descriptor, through);
    }
    const std::lock_guard lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    made.path = file != nullptr ? file->path : "";
    if (kernel->strikes(made)) {
        made.result = -1;
    } else if (file != nullptr && file->model != nullptr) {
        const calling_out guard;
        made.result = answer(ask_model(*file->model));
    } else {
        const calling_out guard;
        made.result = real_answer(descriptor, through);
    }
    kernel->record(made);
    return static_cast<int>(made.result);
}

}  // namespace norv::test
