// SPDX-License-Identifier: MIT
// The failure sweep: runs a scenario again and again, and makes its 1st, 2nd, 3rd, ... kernel call or
// allocation fail, until a run meets no failure any more.
//
//     failure_sweep(
//         [](kernel_double& kernel) { build_board(kernel); },
//         [] { norv_linux_gpio_t line; ...; return norv_linux_gpio_open(17, &line); });
//
// After every run the double checks that nothing leaked. The scenario's status must be the one of the failed
// call; a scenario that documents something else (a retry, an ignored failure) says so with `expect`.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

struct sweep_options {
    // The errno values that each call fails with in turn.
    std::vector<int> errors = {13 /* EACCES */, 4 /* EINTR */, 5 /* EIO */};
    // Also make each read and write move one byte less than asked.
    bool short_counts = true;
    // The status that the scenario must return when this fault struck; default: `status_of_fault`.
    std::function<uint32_t(const strike& struck)> expect;
};

// The status of the errno that the fault injects, NO_MEMORY for an allocation, 0 for a failing close or
// fclose and for a short count.
uint32_t status_of_fault(const strike& struck);

// Returns how many faults struck; a sweep that met none tested nothing and fails.
int failure_sweep(const std::function<void(kernel_double&)>& build_board,
                  const std::function<uint32_t()>& scenario, const sweep_options& options = {});

}  // namespace norv::test
