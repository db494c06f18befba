// SPDX-License-Identifier: MIT
// What is done next to a block of the SPI flash that is to be erased: a function of what is known about it,
// without a system call.
#pragma once

#include <cstdint>

#include "flash/spi_flash.hpp"
#include "norv_status.h"

namespace norv {

enum class erase_action {
    query,    // ask whether the block is bad, and plan again
    erase,    // and if that fails, plan again
    mark,     // the block as bad
    skip,     // a bad block
    give_up,  // on NOR, where nothing is marked
};

// `status` is that of the last action; for the first one, that of the marking of the previous block, if that
// failed.
//
// quirk 135: after a failed marking, the next block is marked without being queried or erased.
// quirk 136: so is a block whose state cannot be queried.
inline erase_action plan_erase(bool is_nand, block_health health, uint32_t status) {
    if (health == block_health::bad) {
        return erase_action::skip;
    }
    if (status != NORV_STATUS_OK) {
        return is_nand ? erase_action::mark : erase_action::give_up;
    }
    const bool is_known = health == block_health::good || !is_nand;
    return is_known ? erase_action::erase : erase_action::query;
}

}  // namespace norv
