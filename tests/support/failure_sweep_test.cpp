// SPDX-License-Identifier: MIT
// The failure sweep.
#include "support/failure_sweep.hpp"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "norv_file.h"

namespace {

using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::strike;

uint32_t open_and_write() {
    int32_t descriptor = -1;
    uint32_t status = norv_open_device(O_WRONLY, &descriptor, "/sys/a");
    if (status == 0) {
        status = norv_write_string(descriptor, 2, "1");
        close(descriptor);
    }
    return status;
}

TEST(FailureSweep, MakesEveryCallFailOnceForEachErrno) {
    norv::test::sweep_options options;
    options.errors = {EIO, ENOSPC};
    const int struck =
        failure_sweep([](kernel_double& kernel) { kernel.add_file("/sys/a"); }, open_and_write, options);
    EXPECT_EQ(struck, 2 * 3 + 1);  // open, write, close; and one short write
}

TEST(FailureSweep, ReportsAFailureThatTheScenarioSwallows) {
    EXPECT_NONFATAL_FAILURE(
        {
            norv::test::sweep_options options;
            options.errors = {EIO};
            options.short_counts = false;
            options.expect = [](const strike& struck) {
                return struck.name == "write" ? 1U : norv::test::status_of_fault(struck);
            };
            failure_sweep([](kernel_double& kernel) { kernel.add_file("/sys/a"); }, open_and_write, options);
        },
        "write /sys/a");
}

TEST(FailureSweep, AScenarioThatCallsNothingFails) {
    EXPECT_NONFATAL_FAILURE(failure_sweep([](kernel_double&) {}, [] { return 0U; }), "nothing was tested");
}

}  // namespace
