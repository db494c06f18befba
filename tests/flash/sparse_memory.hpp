// SPDX-License-Identifier: MIT
// Memory of any size, initially zero, of which only what is written is allocated.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>

namespace norv::test {

class sparse_memory {
  public:
    void read(uint64_t address, void* to, size_t count) const {
        auto* next = static_cast<uint8_t*>(to);
        in_pieces(address, count, [&](uint64_t number, size_t offset, size_t length) {
            const auto found = pieces_.find(number);
            if (found == pieces_.end()) {
                std::fill_n(next, length, uint8_t{0});
            } else {
                std::copy_n(found->second.data() + offset, length, next);
            }
            next += length;
        });
    }

    void write(uint64_t address, const void* from, size_t count) {
        const auto* next = static_cast<const uint8_t*>(from);
        in_pieces(address, count, [&](uint64_t number, size_t offset, size_t length) {
            std::copy_n(next, length, pieces_[number].data() + offset);
            next += length;
        });
    }

  private:
    static constexpr size_t piece_size = 65536;
    using piece = std::array<uint8_t, piece_size>;

    // Calls the handler for each piece of a range: its number, the offset in it, the length.
    template <typename handler>
    static void in_pieces(uint64_t address, size_t count, handler handle) {
        while (count > 0) {
            const auto offset = static_cast<size_t>(address % piece_size);
            const size_t length = std::min(count, piece_size - offset);
            handle(address / piece_size, offset, length);
            address += length;
            count -= length;
        }
    }

    std::map<uint64_t, piece> pieces_;
};

}  // namespace norv::test
