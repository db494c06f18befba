// SPDX-License-Identifier: MIT
// /proc/stat as the fuzzer likes it.
#include "norv_cpu_usage.h"
#include "support/kernel_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::kernel_file file(data, size);
    norv_cpu_usage_t cpu = {};
    const uint32_t opened = norv_cpu_usage_open(&cpu);
    fuzz::require(opened == NORV_STATUS_OK || opened == NORV_STATUS_PARSE_ERROR);
    fuzz::require((cpu.file != nullptr) == (opened == NORV_STATUS_OK));
    if (opened == NORV_STATUS_OK) {
        // The same numbers again: no time has passed.
        fuzz::require(norv_cpu_usage_update(&cpu) == NORV_STATUS_OK && cpu.usage == 0);
    }
    norv_cpu_usage_close(&cpu);
    return 0;
}
