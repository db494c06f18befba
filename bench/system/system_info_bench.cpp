// SPDX-License-Identifier: MIT
// System information beside the bare system calls that it needs.
#include <fcntl.h>
#include <norv_system_info.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void bare_mem_info() {
    char text[1024];
    const int file = open("/proc/meminfo", O_RDONLY | O_CLOEXEC);
    bench::expect(read(file, text, sizeof text) > 0, "meminfo");
    close(file);
}

void bare_uptime() {
    struct sysinfo information;
    bench::expect(sysinfo(&information) == 0, "sysinfo");
    benchmark::DoNotOptimize(information.uptime);
}

}  // namespace

int main(int argc, char** argv) {
    bench::add_pair({.name = "norv_get_mem_info", .target = 1.05}, bare_mem_info, [] {
        norv_mem_info_t info;
        bench::expect(norv_get_mem_info(&info) == NORV_STATUS_OK, "norv_get_mem_info");
    });
    bench::add_pair({.name = "norv_get_uptime", .target = 1.05}, bare_uptime, [] {
        uint32_t seconds = 0;
        bench::expect(norv_get_uptime(&seconds) == NORV_STATUS_OK, "norv_get_uptime");
    });
    return bench::run_rows(argc, argv);
}
