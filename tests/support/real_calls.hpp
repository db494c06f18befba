// SPDX-License-Identifier: MIT
// The C library's own functions, behind the ones that this program puts in front of them.
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
