// SPDX-License-Identifier: MIT
// CPU load from /proc/stat.
#include "norv_cpu_usage.h"

#include "core/layout.hpp"
#include "core/status.hpp"
#include "system/proc_file.hpp"

NORV_LAYOUT(norv_cpu_usage_t, NORV_32_64(16, 24), file, usage, last_idle, last_total);

namespace {

// user, nice, system, idle, iowait, irq, softirq, steal, guest, guest_nice
constexpr uint32_t time_count = 10;
constexpr uint32_t idle_index = 3;

// quirk 96: guest times are added although user and nice include them. quirk 98: the sum wraps.
uint32_t sum_of(const uint32_t (&times)[time_count]) {
    uint32_t sum = 0;
    for (const uint32_t time : times) {
        sum += time;
    }
    return sum;
}

// In hundredths of a percent, rounded half up. quirk 97: if the idle time ran backwards, more than 10000.
uint32_t busy_share(uint32_t idle, uint32_t total) {
    if (total == 0) {
        return 0;
    }
    const uint32_t busy = total - idle;
    return static_cast<uint32_t>((uint64_t{busy} * 10000 + total / 2) / total);
}

uint32_t read_times(FILE* file, uint32_t (&times)[time_count]) {
    char line[norv::line_size];
    norv::rewind_stream(file);              // quirk 100: a failure is not reported
    NORV_TRY(norv::read_line(file, line));  // quirk 99: truncated
    return norv::scan_numbers(line, times, time_count) < time_count ? NORV_STATUS_PARSE_ERROR
                                                                    : NORV_STATUS_OK;
}

uint32_t open_and_update(norv_cpu_usage_t* cpu) {
    const uint32_t status = norv::open_stream(cpu->file, "/proc/stat");
    // quirk 95: last_total is unchanged; the caller has filled the record with zeros.
    cpu->usage = 0;
    cpu->last_idle = 0;
    NORV_TRY(status);
    return norv_cpu_usage_update(cpu);
}

}  // namespace

uint32_t norv_cpu_usage_open(norv_cpu_usage_t* cpu) {
    if (cpu == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_and_update(cpu);
    if (status != NORV_STATUS_OK) {
        norv_cpu_usage_close(cpu);
    }
    return status;
}

uint32_t norv_cpu_usage_update(norv_cpu_usage_t* cpu) {
    if (cpu == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    if (cpu->file == nullptr) {
        return NORV_STATUS_BAD_STATE;
    }
    uint32_t times[time_count] = {};
    NORV_TRY(read_times(cpu->file, times));
    const uint32_t idle = times[idle_index];
    const uint32_t total = sum_of(times);
    cpu->usage = busy_share(idle - cpu->last_idle, total - cpu->last_total);
    cpu->last_idle = idle;
    cpu->last_total = total;
    return NORV_STATUS_OK;
}

void norv_cpu_usage_close(norv_cpu_usage_t* cpu) {
    if (cpu == nullptr) {
        return;
    }
    norv::close_stream(cpu->file);
    cpu->usage = 0;
    cpu->last_idle = 0;
}
