// SPDX-License-Identifier: MIT
// The sampler of network usage beside the bare read of its file, as much of it as the sampler needs.
#include <norv_net_usage.h>

#include "support/expect.hpp"
#include "support/rows.hpp"
#include "support/sampled_file.hpp"

int main(int argc, char** argv) {
    const bench::sampled_file dev("/proc/net/dev");
    norv_net_usage_t net;
    bench::expect(norv_net_usage_open(&net, "lo") == NORV_STATUS_OK, "norv_net_usage_open");
    bench::add_pair(
        {.name = "norv_net_usage_update", .target = 1.05}, [&] { dev.read(); },
        [&] { bench::expect(norv_net_usage_update(&net) == NORV_STATUS_OK, "norv_net_usage_update"); });
    const int result = bench::run_rows(argc, argv);
    norv_net_usage_close(&net);
    return result;
}
