// SPDX-License-Identifier: MIT
// Transfers of bytes with a limit, in the terms of the C interface.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv/timeout.hpp"

namespace norv {

/** What a transfer did: how many bytes it moved, also where it failed, and how it ended. */
struct [[nodiscard]] transferred {
    size_t count = 0;
    norv::status status;
};

namespace detail {

// The C functions take the address of a 32-bit length: the bytes to move, then those that were moved. Where
// they fail, only those with a limit above 0 change it. A longer span is moved up to that length.
template <typename function>
transferred transfer(size_t size, timeout limit, function move) {
    auto length = static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX));
    const status ended(move(&length, limit.ms()));
    return {ended.ok() || limit.ms() > 0 ? length : 0, ended};
}

// Operations for `readiness::repeat`, of an owner with `send` and `receive`.
template <typename owner>
struct receiving {
    owner& from;
    std::span<std::byte> buffer;
    transferred moved{};

    bool step(uint32_t) {
        moved = from.receive(buffer, std::chrono::milliseconds(0));
        return moved.status != NORV_STATUS_AGAIN;
    }
    result<size_t> finish(status waited) const {
        const status ended = waited.ok() ? moved.status : waited;
        return ended.ok() ? result<size_t>(moved.count) : result<size_t>(ended);
    }
};

template <typename owner>
struct sending {
    owner& to;
    std::span<const std::byte> data;
    transferred moved{};

    bool step(uint32_t) {
        do {
            const transferred more = to.send(data.subspan(moved.count), std::chrono::milliseconds(0));
            moved = {moved.count + more.count, more.status};
        } while (moved.status.ok() && moved.count < data.size());
        return moved.status != NORV_STATUS_AGAIN;
    }
    transferred finish(status waited) const { return {moved.count, waited.ok() ? moved.status : waited}; }
};

}  // namespace detail

}  // namespace norv
