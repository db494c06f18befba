// SPDX-License-Identifier: MIT
// The C library's own functions, which this program replaces by those of the kernel double.
#pragma once

#include <dlfcn.h>

#include "support/symbol_names.hpp"

// REAL(open)(path, flags): looked up once per place.
#define REAL(name)                                                                               \
    ([]() {                                                                                      \
        static decltype(&::name) const real =                                                    \
            reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, norv::test::symbol_of(#name))); \
        return real;                                                                             \
    }())
