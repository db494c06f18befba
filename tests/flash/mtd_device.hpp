// SPDX-License-Identifier: MIT
// A partition of raw flash as the kernel's MTD layer presents it: NOR or NAND, with bad blocks, blocks that
// wear out, and bits that flip.
#pragma once

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "support/device.hpp"

namespace norv::test {

struct flash_geometry {
    uint8_t type;
    uint32_t size;
    uint32_t erase_size;
    uint32_t write_size;
    uint32_t oob_size;
};

constexpr flash_geometry nor(uint32_t size, uint32_t erase_size, uint32_t write_size = 1) {
    return {MTD_NORFLASH, size, erase_size, write_size, 0};
}

constexpr flash_geometry nand(uint32_t size, uint32_t erase_size, uint32_t write_size = 256) {
    return {MTD_NANDFLASH, size, erase_size, write_size, 16};
}

// The kernel's answer to MEMGETINFO.
constexpr mtd_info_user info_of(const flash_geometry& geometry) {
    return {geometry.type,
            MTD_WRITEABLE,
            geometry.size,
            geometry.erase_size,
            geometry.write_size,
            geometry.oob_size,
            0};
}

// One operation on the medium.
struct flash_step {
    std::string what;  // "erase", "query", "mark", "read" or "write"
    uint32_t offset;
    uint32_t length = 0;  // of an erase, read or write

    bool operator==(const flash_step&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const flash_step& step) {
        return out << step.what << " at 0x" << std::hex << step.offset << " length 0x" << step.length;
    }
};

class mtd_device : public device {
  public:
    explicit mtd_device(const flash_geometry& geometry)
        : bytes(geometry.size, 0xFF), geometry_(geometry), oob_(pages() * geometry.oob_size, 0xFF) {}

    // The medium, and the operations on it.
    std::vector<uint8_t> bytes;
    std::set<uint32_t> bad_blocks;  // by number
    std::vector<flash_step> steps;

    // Failures, by block: the errno of the request for it.
    std::map<uint32_t, int> erase_errors;
    std::map<uint32_t, int> query_errors;
    std::map<uint32_t, int> marking_errors;
    std::set<uint32_t> flipped;        // bytes that read back with a wrong bit
    std::function<void()> on_query;    // called at each query
    uint32_t most_bytes = UINT32_MAX;  // of one read
    uint32_t most_written = UINT32_MAX;

    std::vector<uint8_t> part(uint32_t offset, uint32_t length) const {
        return {bytes.begin() + offset, bytes.begin() + offset + length};
    }
    const flash_geometry& geometry() const { return geometry_; }
    bool is_nand() const { return geometry_.type != MTD_NORFLASH; }
    // The steps of one kind.
    std::vector<flash_step> steps_of(const std::string& what) const {
        std::vector<flash_step> found;
        std::copy_if(steps.begin(), steps.end(), std::back_inserter(found),
                     [&](const flash_step& step) { return step.what == what; });
        return found;
    }

    long read(void* buffer, size_t size, off_t offset) override {
        const uint32_t start = static_cast<uint32_t>(offset);
        const size_t count = std::min({size, bytes.size() - start, static_cast<size_t>(most_bytes)});
        steps.push_back({"read", start, static_cast<uint32_t>(size)});
        memcpy(buffer, bytes.data() + start, count);
        for (const uint32_t position : flipped) {
            if (position >= start && position < start + count) {
                static_cast<uint8_t*>(buffer)[position - start] ^= 0x10;
            }
        }
        return static_cast<long>(count);
    }

    // Writing only clears bits.
    long write(const void* buffer, size_t size, off_t offset) override {
        const uint32_t start = static_cast<uint32_t>(offset);
        steps.push_back({"write", start, static_cast<uint32_t>(size)});
        if (start % geometry_.write_size != 0 || size % geometry_.write_size != 0) {
            return -EINVAL;
        }
        const size_t count = std::min({size, bytes.size() - start, static_cast<size_t>(most_written)});
        for (size_t index = 0; index < count; ++index) {
            bytes[start + index] &= static_cast<const uint8_t*>(buffer)[index];
        }
        return static_cast<long>(count);
    }

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case MEMGETINFO:
                *static_cast<mtd_info_user*>(argument) = info_of(geometry_);
                return 0;
            case MEMERASE:
                return erase(*static_cast<const erase_info_user*>(argument));
            case MEMGETBADBLOCK:
                return query(static_cast<uint32_t>(*static_cast<const loff_t*>(argument)));
            case MEMSETBADBLOCK:
                return mark(static_cast<uint32_t>(*static_cast<const loff_t*>(argument)));
            case MEMREADOOB:
            case MEMWRITEOOB:
                return move_oob(*static_cast<const mtd_oob_buf*>(argument), request == MEMWRITEOOB);
            default:
                return -ENOTTY;
        }
    }

  private:
    size_t pages() const { return geometry_.size / geometry_.write_size; }

    static long failure(const std::map<uint32_t, int>& errors, uint32_t block) {
        const auto found = errors.find(block);
        return found == errors.end() ? 0 : -found->second;
    }

    long erase(const erase_info_user& area) {
        steps.push_back({"erase", area.start, area.length});
        const uint32_t block = area.start / geometry_.erase_size;
        if (area.start % geometry_.erase_size != 0 || area.length % geometry_.erase_size != 0) {
            return -EINVAL;
        }
        if (bad_blocks.contains(block)) {
            return -EIO;
        }
        const long refusal = failure(erase_errors, block);
        if (refusal == 0) {
            std::fill_n(bytes.begin() + area.start, area.length, uint8_t{0xFF});
        }
        return refusal;
    }

    long query(uint32_t offset) {
        steps.push_back({"query", offset});
        if (on_query) {
            on_query();
        }
        const uint32_t block = offset / geometry_.erase_size;
        const long refusal = failure(query_errors, block);
        return refusal != 0 ? refusal : static_cast<long>(bad_blocks.contains(block));
    }

    long mark(uint32_t offset) {
        steps.push_back({"mark", offset});
        const uint32_t block = offset / geometry_.erase_size;
        const long refusal = is_nand() ? failure(marking_errors, block) : -EOPNOTSUPP;
        if (refusal == 0) {
            bad_blocks.insert(block);
        }
        return refusal;
    }

    long move_oob(const mtd_oob_buf& area, bool write) {
        const size_t first = size_t{area.start} / geometry_.write_size * geometry_.oob_size;
        if (first + area.length > oob_.size()) {
            return -EINVAL;
        }
        if (write) {
            std::copy_n(area.ptr, area.length, oob_.begin() + static_cast<long>(first));
        } else {
            std::copy_n(oob_.begin() + static_cast<long>(first), area.length, area.ptr);
        }
        return 0;
    }

    flash_geometry geometry_;
    std::vector<uint8_t> oob_;
};

}  // namespace norv::test
