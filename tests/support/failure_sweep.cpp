// SPDX-License-Identifier: MIT
#include "support/failure_sweep.hpp"

#include <gtest/gtest.h>

#include <string>

#include "norv_base.h"

namespace norv::test {
namespace {

constexpr int most_calls = 1000;  // a scenario with more is taken for an endless one

// One run with one fault; returns whether the fault struck.
bool run_with(const fault& planned, const std::function<void(kernel_double&)>& build_board,
              const std::function<uint32_t()>& scenario, const sweep_options& options) {
    kernel_double kernel;
    build_board(kernel);
    kernel.fail(planned);
    const uint32_t status = scenario();
    if (!kernel.struck()) {
        return false;
    }
    const strike struck = *kernel.struck();
    const bool is_short = struck.how == fault::kind::short_count;
    SCOPED_TRACE("call " + std::to_string(planned.nth) + ", " + struck.name + " " + struck.path +
                 (is_short ? ", moved one byte less"
                           : std::string(", failed with ") + strerrorname_np(planned.error)));
    EXPECT_EQ(status, options.expect ? options.expect(struck) : status_of_fault(struck));
    return true;
}

int strike_one_after_the_other(fault planned, const std::function<void(kernel_double&)>& build_board,
                               const std::function<uint32_t()>& scenario, const sweep_options& options) {
    for (planned.nth = 1; planned.nth < most_calls; ++planned.nth) {
        if (!run_with(planned, build_board, scenario, options)) {
            return planned.nth - 1;
        }
    }
    ADD_FAILURE() << "the scenario does not end";
    return most_calls;
}

}  // namespace

uint32_t status_of_fault(const strike& struck) {
    if (struck.how == fault::kind::short_count || struck.name == "close" || struck.name == "fclose") {
        return NORV_STATUS_OK;
    }
    return struck.name.ends_with("alloc") ? NORV_STATUS_NO_MEMORY
                                          : norv_get_status_by_errno(static_cast<uint32_t>(struck.error));
}

int failure_sweep(const std::function<void(kernel_double&)>& build_board,
                  const std::function<uint32_t()>& scenario, const sweep_options& options) {
    int struck = 0;
    for (const int error : options.errors) {
        struck += strike_one_after_the_other({.error = error}, build_board, scenario, options);
    }
    if (options.short_counts) {
        struck +=
            strike_one_after_the_other({.how = fault::kind::short_count}, build_board, scenario, options);
    }
    EXPECT_GT(struck, 0) << "no call of the scenario could fail: nothing was tested";
    return struck;
}

}  // namespace norv::test
