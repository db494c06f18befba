// SPDX-License-Identifier: MIT
// /proc/net/dev as the fuzzer likes it. The first line of the input is the name that is searched for.
#include <algorithm>
#include <string>

#include "norv_net_usage.h"
#include "support/kernel_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* const end = data + size;
    const uint8_t* const line_end = std::find(data, end, '\n');
    const uint8_t* const content = line_end == end ? end : line_end + 1;
    const std::string name(data, line_end);
    const fuzz::kernel_file file(content, static_cast<size_t>(end - content));

    norv_net_usage_t net;
    const uint32_t opened = norv_net_usage_open(&net, name.c_str());
    fuzz::require(opened == NORV_STATUS_OK || opened == NORV_STATUS_PARSE_ERROR ||
                  opened == NORV_STATUS_NOT_FOUND || opened == NORV_STATUS_EXHAUSTED);
    fuzz::require((net.file != nullptr) == (opened == NORV_STATUS_OK));
    if (opened == NORV_STATUS_OK) {
        // As if the last sample were a second old.
        net.last_ms -= 1000;
        fuzz::require(norv_net_usage_update(&net) == NORV_STATUS_OK && net.rx_rate == 0 && net.tx_rate == 0);
    }
    norv_net_usage_close(&net);
    return 0;
}
