// SPDX-License-Identifier: MIT
// The region of registers that an owner of a mapped device has.
#pragma once

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "norv_file.h"

namespace norv::detail {

// The numbers of a device node. The macros of <sys/sysmacros.h> would take the names `major` and `minor` from
// the programs that include this.
constexpr uint32_t major_number(uint64_t device) noexcept {
    return static_cast<uint32_t>((device >> 8 & 0xFFF) | (device >> 32 & 0xFFFFF000));
}
constexpr uint32_t minor_number(uint64_t device) noexcept {
    return static_cast<uint32_t>((device & 0xFF) | (device >> 12 & 0xFFFFFF00));
}

// The size of region 0, from an attribute whose path is formatted; 0 if it cannot be read.
template <typename... arguments>
uint64_t read_region_size(const char* path, arguments... values) noexcept {
    char text[32] = "";
    uint32_t length = sizeof text - 1;
    const uint32_t read = norv_read_device(text, &length, path, values...);
    return read == NORV_STATUS_OK ? strtoull(text, nullptr, 0) : 0;
}

// The same of the device whose node a descriptor is.
inline uint64_t region_size_of(int32_t descriptor) noexcept {
    struct stat node {};
    return fstat(descriptor, &node) == 0
               ? read_region_size("/sys/dev/char/%u:%u/maps/map0/size", major_number(node.st_rdev),
                                  minor_number(node.st_rdev))
               : 0;
}

// Where the registers of an open device end. Nothing is within the region of one that was moved from, nor of
// one that is not mapped; everything is where the size is unknown.
class register_region {
  public:
    register_region() noexcept = default;
    // A region that is mapped at an address, in whole pages; a size of 0 is unknown.
    register_region(const void* address, uint64_t size) noexcept
        : end_(address != nullptr && address != MAP_FAILED ? end_of(size) : 0) {}
    register_region(register_region&& other) noexcept : end_(std::exchange(other.end_, 0)) {}
    register_region& operator=(register_region&& other) noexcept {
        end_ = this != &other ? std::exchange(other.end_, 0) : end_;
        return *this;
    }

    // Whether there is a whole register at this offset.
    bool contains(uint32_t offset) const noexcept {
        return offset % 4 == 0 && uint64_t{offset} + sizeof(uint32_t) <= end_;
    }

    // In bytes; 0 if it is unknown, or if there is none.
    uint64_t size() const noexcept { return end_ != unknown ? end_ : 0; }

  private:
    static constexpr uint64_t unknown = UINT64_MAX;

    static uint64_t end_of(uint64_t size) noexcept {
        const auto page_bits = static_cast<uint64_t>(getpagesize()) - 1;
        return size != 0 ? ((size - 1) | page_bits) + 1 : unknown;
    }

    uint64_t end_ = 0;
};

}  // namespace norv::detail
