// SPDX-License-Identifier: MIT
// The sampler of CPU usage beside the bare read of its file, as much of it as the sampler needs.
#include <norv/cpu_usage.hpp>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/sampled_file.hpp"

int main(int argc, char** argv) {
    const norv::file stat = bench::open_sampled("/proc/stat");
    norv::cpu_usage cpu = norv::cpu_usage::open().value();
    bench::add_pair(
        {.name = "norv_cpu_usage_update", .target = 1.05},
        [bare = stat.descriptor()] { bench::read_sample(bare); },
        [record = cpu.get()] {
            bench::expect(norv_cpu_usage_update(record) == NORV_STATUS_OK, "norv_cpu_usage_update");
        });
    return bench::run_rows(argc, argv);
}
