// SPDX-License-Identifier: MIT
// Counts the mutexes of the base library that the library under test destroys. For one source of a test
// program.
#pragma once

#include <cstdint>

#include "norv_base.h"
#include "support/real_calls.hpp"

namespace norv::test {

inline int mutex_ends = 0;

}  // namespace norv::test

// The dynamic linker finds this definition first.
extern "C" uint32_t norv_mutex_destroy(norv_mutex_t* mutex) {
    ++norv::test::mutex_ends;
    return REAL(norv_mutex_destroy)(mutex);
}
