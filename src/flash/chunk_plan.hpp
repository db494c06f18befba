// SPDX-License-Identifier: MIT
// The chunks in which an eMMC is erased, read and written: which bytes the next one has. Chunks are computed
// with masks, also when their size is not a power of two (quirk 149).
#pragma once

#include <algorithm>
#include <cstdint>

#include "flash/alignment.hpp"

namespace norv {

inline uint32_t chunk_size(uint32_t wanted) {
    constexpr uint32_t smallest = 16384;
    constexpr uint32_t largest = 131072;
    return std::clamp(wanted, smallest, largest);
}

// From an address to the next chunk border: 1 to `chunk` bytes.
inline uint32_t room_in_chunk(uint64_t address, uint32_t chunk) {
    return chunk - static_cast<uint32_t>((chunk - 1) & address);
}

// One write and its verification.
struct chunk_write {
    uint32_t count;  // bytes of data
    uint32_t size;   // bytes to write, with the padding
    bool is_padded;
};

// Writes up to the next chunk border. quirk 148: data that ends before it is padded to a whole chunk,
// wherever the write starts, and the padding is not verified.
inline chunk_write plan_chunk_write(uint64_t address, uint32_t remaining, uint32_t chunk) {
    const uint32_t room = room_in_chunk(address, chunk);
    if (remaining >= room) {
        return {room, room, false};
    }
    return {remaining, round_up(remaining, chunk), true};
}

}  // namespace norv
