// SPDX-License-Identifier: MIT
// The samplers of CPU and network usage beside the bare read of their files, as much of these as the samplers
// need.
#include <fcntl.h>
#include <norv_cpu_usage.h>
#include <norv_net_usage.h>
#include <unistd.h>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void bare_read(int file) {
    char text[1024];
    bench::expect(pread(file, text, sizeof text, 0) > 0, "pread");
}

}  // namespace

int main(int argc, char** argv) {
    const int stat = open("/proc/stat", O_RDONLY | O_CLOEXEC);
    const int dev = open("/proc/net/dev", O_RDONLY | O_CLOEXEC);
    norv_cpu_usage_t cpu = {};
    norv_net_usage_t net;
    bench::expect(norv_cpu_usage_open(&cpu) == NORV_STATUS_OK, "norv_cpu_usage_open");
    bench::expect(norv_net_usage_open(&net, "lo") == NORV_STATUS_OK, "norv_net_usage_open");
    bench::add_pair(
        {.name = "norv_cpu_usage_update", .target = 1.05}, [=] { bare_read(stat); },
        [&] { bench::expect(norv_cpu_usage_update(&cpu) == NORV_STATUS_OK, "norv_cpu_usage_update"); });
    bench::add_pair(
        {.name = "norv_net_usage_update", .target = 1.05}, [=] { bare_read(dev); },
        [&] { bench::expect(norv_net_usage_update(&net) == NORV_STATUS_OK, "norv_net_usage_update"); });
    const int result = bench::run_rows(argc, argv);
    norv_net_usage_close(&net);
    norv_cpu_usage_close(&cpu);
    close(dev);
    close(stat);
    return result;
}
