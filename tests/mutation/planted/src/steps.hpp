// SPDX-License-Identifier: MIT
#pragma once

constexpr unsigned step_limit = 3;

// A volatile counter, so that the compiler keeps a loop that does not end.
template <typename number>
unsigned count_down(volatile number& left) {
    unsigned steps = 0;
    while (left > 0 && steps < step_limit) {
        left = left - 1;
        ++steps;
    }
    return steps;
}
