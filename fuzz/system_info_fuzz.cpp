// SPDX-License-Identifier: MIT
// /proc/meminfo, a controller's state and a card's size as the fuzzer likes them.
#include "norv_system_info.h"
#include "support/kernel_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::kernel_file file(data, size);
    norv_mem_info_t info = {};
    const uint32_t status = norv_get_mem_info(&info);
    fuzz::require(status == NORV_STATUS_OK || status == NORV_STATUS_PARSE_ERROR);
    uint32_t state = 0;
    fuzz::require(norv_get_usb_periph_state("controller", &state) == NORV_STATUS_OK);
    // The same text is not a speed.
    fuzz::require(state == NORV_USB_PERIPH_NOT_CONFIGURED || state == NORV_USB_PERIPH_CONFIGURED);
    uint32_t megabytes = 0;
    fuzz::require(norv_get_mmc_size(0, &megabytes) == NORV_STATUS_OK);
    return 0;
}
