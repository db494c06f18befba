// SPDX-License-Identifier: MIT
// What the interposed calls have in common: they pass through the double that stands in, can fail there, and
// leave a trace in its journal.
#pragma once

#include <fcntl.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace norv::test {

// A model's answer as the C library gives it.
template <typename result>
result answer(result value) {
    if (value < 0) {
        errno = static_cast<int>(-value);
        return -1;
    }
    return value;
}

// Opens a descriptor behind which a model stands: a number that can be polled and closed, the model answers
// everything else.
inline int open_model(kernel_double::state& kernel, const std::string& path, std::shared_ptr<device> model) {
    const int descriptor = REAL(eventfd)(0, EFD_CLOEXEC);
    kernel.opened(descriptor, path, std::move(model));
    return descriptor;
}

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

// The same for a call on a path, which leads into the scratch tree.
template <typename result, typename passing>
result pass_path(const char* name, const char* path, result failure, passing through) {
    kernel_double::state* kernel = active_kernel();
    if (kernel == nullptr) {
        return through(path);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = name;
    made.path = path;
    kernel->record(made);
    return kernel->strikes(name, path) ? failure : through(kernel->place_of(path).c_str());
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

// The real kernel's answer to a call on a descriptor. The kernel looks at the descriptor first; what emulates
// another processor's programs looks at the request, which it may not know.
template <typename passing>
int real_answer(int descriptor, passing through) {
    return REAL(fcntl)(descriptor, F_GETFD) < 0 ? -1 : through();
}

// A call on a descriptor, journalled: it fails, or the descriptor's model answers, or the real kernel.
template <typename asking, typename passing>
int ask(call made, int descriptor, asking ask_model, passing through) {
    kernel_double::state* kernel = active_kernel();
    if (kernel == nullptr) {
        return real_answer(descriptor, through);
    }
    const std::lock_guard lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    made.path = file != nullptr ? file->path : "";
    if (kernel->strikes(made.name.c_str(), made.path)) {
        made.result = -1;
    } else if (file != nullptr && file->model != nullptr) {
        const outside_the_double guard;
        made.result = answer(ask_model(*file->model));
    } else {
        made.result = real_answer(descriptor, through);
    }
    kernel->record(made);
    return static_cast<int>(made.result);
}

}  // namespace norv::test
