// SPDX-License-Identifier: MIT
// How a benchmark ends when a call fails: one that continued would measure something else.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace bench {

inline void expect(bool fulfilled, const char* what) {
    if (!fulfilled) {
        std::perror(what);
        std::exit(1);
    }
}

}  // namespace bench
