// SPDX-License-Identifier: MIT
// Internals of the SPI flash: the region of an address, the offset in it, and the block there.
#pragma once

#include <cstdint>

#include "core/handle.hpp"
#include "norv_linux_spi_flash.h"

namespace norv {

// A place in the flash. Addresses have 64 bits here, so that the end of a flash of 4 GiB is not 0.
class flash_place {
  public:
    flash_place(const norv_spi_flash_region_t* region, uint64_t address)
        : region_(region), offset_(region != nullptr ? address - region->base : 0) {}

    // Check this before calling any other member.
    bool exists() const { return region_ != nullptr; }

    const norv_mtd_t* device() const { return &region_->device; }
    bool is_nand() const { return norv_linux_mtd_type_is_nand(device()); }
    uint32_t erase_size() const { return region_->device.info.erasesize; }
    uint32_t write_size() const { return region_->device.info.writesize; }

    uint32_t offset() const { return static_cast<uint32_t>(offset_); }
    uint32_t offset_in_block() const { return offset() & (erase_size() - 1); }
    uint32_t rest_of_block() const { return erase_size() - offset_in_block(); }
    uint32_t rest_of_region() const { return region_->device.info.size - offset(); }

  private:
    const norv_spi_flash_region_t* region_;
    uint64_t offset_;
};

// The place in the first region that ends after the address; it does not exist if all end before.
inline flash_place find_place(const norv_spi_flash_t* flash, uint64_t address) {
    for (int32_t index = 0; index < flash->region_count; ++index) {
        const norv_spi_flash_region_t& region = flash->regions[index];
        if (address < region.base + region.device.info.size) {
            return {&region, address};
        }
    }
    return {nullptr, address};
}

// The place of the last byte before an end.
inline flash_place find_end(const norv_spi_flash_t* flash, uint32_t end) {
    return find_place(flash, end - 1U);
}

// What is known about the erase block of a place.
enum class block_health { unknown, good, bad };

// Finds out whether a NAND block is bad.
uint32_t query_block(const flash_place& place, block_health* health);

// quirk 132: a negative number of regions has a status of its own.
inline uint32_t check_regions(const norv_spi_flash_t* flash, uint32_t status_of_none = NORV_STATUS_EMPTY) {
    if (flash->region_count == 0) {
        return status_of_none;
    }
    return flash->region_count < 0 ? NORV_STATUS_RANGE : NORV_STATUS_OK;
}

inline uint32_t check_open(norv_spi_flash_t* const* flash, uint32_t status_of_none = NORV_STATUS_EMPTY) {
    return is_open(flash) ? check_regions(*flash, status_of_none) : NORV_STATUS_INVALID_ARG;
}

}  // namespace norv
