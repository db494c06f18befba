// SPDX-License-Identifier: MIT
// FPGA programming through /sys/class/fpga_manager.
#include "norv_fpga.h"

#include <cstring>

#include "core/attribute.hpp"
#include "core/status.hpp"

// The number is printed signed: quirk 2.
uint32_t norv_fpga_program(uint32_t index, const char* firmware) {
    return norv::write_text({"/sys/class/fpga_manager/fpga%d/firmware", index}, firmware);
}

uint32_t norv_fpga_is_program_done(uint32_t index, bool* done) {
    if (done == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    char state[16];
    NORV_TRY(
        norv::read_text({"/sys/class/fpga_manager/fpga%d/state", index}, state, norv::last_byte::dropped));
    *done = strcmp(state, "operating") == 0;
    return NORV_STATUS_OK;
}
