// SPDX-License-Identifier: MIT
// The formatting of text, which can fail in the kernel double.
#include <cstdarg>
#include <cstdio>

#include "support/interposition.hpp"

extern "C" {

// All of the program formats text: it fails only for a test that names it.
int vsnprintf(char* text, size_t size, const char* format, va_list values) noexcept {
    norv::test::kernel_state* kernel = norv::test::active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->strikes_by_name(norv::test::call{"vsnprintf"})) {
            return -1;
        }
    }
    return REAL(vsnprintf)(text, size, format, values);
}

}  // extern "C"
