// SPDX-License-Identifier: MIT
// The sampler of CPU usage beside the bare read of its file, as much of it as the sampler needs.
#include <norv_cpu_usage.h>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/sampled_file.hpp"

int main(int argc, char** argv) {
    const bench::sampled_file stat("/proc/stat");
    norv_cpu_usage_t cpu = {};
    bench::expect(norv_cpu_usage_open(&cpu) == NORV_STATUS_OK, "norv_cpu_usage_open");
    bench::add_pair(
        {.name = "norv_cpu_usage_update", .target = 1.05}, [&] { stat.read(); },
        [&] { bench::expect(norv_cpu_usage_update(&cpu) == NORV_STATUS_OK, "norv_cpu_usage_update"); });
    const int result = bench::run_rows(argc, argv);
    norv_cpu_usage_close(&cpu);
    return result;
}
