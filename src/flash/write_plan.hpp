// SPDX-License-Identifier: MIT
// What a write with verification does next on the SPI flash: a function of where it is and of what it knows,
// without a system call.
#pragma once

#include <algorithm>
#include <cstdint>

#include "flash/alignment.hpp"
#include "flash/spi_flash.hpp"
#include "norv_status.h"

namespace norv {

// Where a write is. Bytes remain to be written.
struct write_state {
    uint64_t address;
    uint32_t remaining;
    uint32_t end;
    uint32_t to_skip;       // bytes of good blocks before the data
    uint32_t query_status;  // of the query that failed, if one did
};

enum class write_action {
    stop,          // too little good space is left before the end
    fail,          // end with the status
    fail_leaking,  // the same, without releasing the work area
    query,         // ask whether the block is bad, and plan again
    skip,          // go past a bad block, or past a write unit
    write,         // the rest of the block, from the caller's memory
    write_padded,  // a copy of the last data, filled up to a write unit
};

// What is not named is 0.
struct write_step {
    write_action action;
    uint32_t status{};   // of an action that ends the operation
    uint32_t advance{};  // to the address of the next step
    uint32_t count{};    // bytes of the data that are written, or of the skip
    uint32_t size{};     // bytes to write, with the padding
};

// Skips a write unit.
inline write_step plan_skip(const write_state& state, const flash_place& place) {
    const uint32_t unit = place.write_size();
    return {.action = write_action::skip, .advance = unit, .count = std::min(state.to_skip, unit)};
}

// Writes up to the end of the block.
inline write_step plan_store(const write_state& state, const flash_place& place) {
    const uint32_t room = place.rest_of_block();
    if (state.remaining >= room) {
        return {.action = write_action::write, .advance = room, .count = room, .size = room};
    }
    const uint32_t unit = place.write_size();
    const uint32_t size = (state.remaining + unit - 1) / unit * unit;
    return {.action = write_action::write_padded, .advance = room, .count = state.remaining, .size = size};
}

inline write_step plan_write(const write_state& state, const flash_place& place, block_health health) {
    // quirk 141: the end is compared with the start of the block only.
    if (state.end <= state.address) {
        return {.action = write_action::stop, .status = NORV_STATUS_EXHAUSTED};
    }
    if (!place.exists()) {
        return {.action = write_action::fail, .status = NORV_STATUS_RANGE};
    }
    if (!is_multiple(place.offset(), place.write_size())) {
        return {.action = write_action::fail_leaking, .status = NORV_STATUS_RANGE};
    }
    if (health == block_health::bad) {
        return {.action = write_action::skip, .advance = place.rest_of_block()};
    }
    if (health == block_health::unknown && place.is_nand() && state.query_status == NORV_STATUS_OK) {
        return {.action = write_action::query};
    }
    if (state.to_skip > 0) {
        return plan_skip(state, place);
    }
    // quirk 142: a failed query ends the write only here, after the skip.
    if (state.query_status != NORV_STATUS_OK) {
        return {.action = write_action::fail, .status = state.query_status};
    }
    return plan_store(state, place);
}

}  // namespace norv
