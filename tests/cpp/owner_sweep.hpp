// SPDX-License-Identifier: MIT
// The failure sweep for owners: whatever fails, nothing leaks and nothing is closed twice. Which status each
// failure has is tested where the C functions are.
#pragma once

#include <cstdint>
#include <functional>

#include "support/failure_sweep.hpp"

namespace norv::test {

inline void owner_sweep(const std::function<void(kernel_double&)>& build_board,
                        const std::function<uint32_t()>& scenario) {
    uint32_t returned = 0;
    failure_sweep(build_board, [&] { return returned = scenario(); },
                  {.expect = [&](const strike&) { return returned; }});
}

}  // namespace norv::test
