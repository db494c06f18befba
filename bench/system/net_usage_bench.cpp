// SPDX-License-Identifier: MIT
// The sampler of network usage beside the bare read of its file, as much of it as the sampler needs.
#include <norv/net_usage.hpp>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/sampled_file.hpp"

int main(int argc, char** argv) {
    const norv::file dev = bench::open_sampled("/proc/net/dev");
    norv::net_usage net = norv::net_usage::open("lo").value();
    bench::add_pair(
        {.name = "norv_net_usage_update", .target = 1.05},
        [bare = dev.descriptor()] { bench::read_sample(bare); },
        [record = net.get()] {
            bench::expect(norv_net_usage_update(record) == NORV_STATUS_OK, "norv_net_usage_update");
        });
    return bench::run_rows(argc, argv);
}
