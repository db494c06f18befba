// SPDX-License-Identifier: MIT
// The MTD partitions of a board as one flash: opening, geometry, plain reads and writes.
#include "norv_linux_spi_flash.h"

#include <dirent.h>
#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core/directory.hpp"
#include "core/handle.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "flash/spi_flash.hpp"

NORV_LAYOUT(norv_spi_flash_region_t, 48, base, device);
NORV_LAYOUT(norv_spi_flash_t, 8 + sizeof(void*), size, region_count, regions);
NORV_OFFSETS(norv_flash_info_t, 24, reserved, 0, size, 8, erase_block_size, 16, write_unit_size, 20);

namespace {

int is_partition(const dirent* entry) {
    return fnmatch("mtd[0-9]", entry->d_name, 0) == 0 ? 1 : 0;
}

// Closes the given number of regions, and releases everything.
void release(norv_spi_flash_t* flash, int32_t region_count) {
    for (int32_t index = 0; index < region_count; ++index) {
        norv_linux_mtd_close(&flash->regions[index].device);
    }
    free(flash->regions);
    free(flash);
}

// Null if out of memory. The record comes from the C library, whatever allocator the base library uses.
norv_spi_flash_t* allocate(int region_count) {
    auto* flash = static_cast<norv_spi_flash_t*>(calloc(1, sizeof(norv_spi_flash_t)));
    if (flash == nullptr) {
        return nullptr;
    }
    flash->regions = static_cast<norv_spi_flash_region_t*>(
        calloc(static_cast<size_t>(region_count), sizeof(norv_spi_flash_region_t)));
    if (flash->regions == nullptr) {
        release(flash, 0);
        return nullptr;
    }
    return flash;
}

// Opens a partition as the next region.
uint32_t append_region(norv_spi_flash_t* flash, const char* name) {
    char path[sizeof "/dev/" + sizeof dirent::d_name];
    snprintf(path, sizeof path, "/dev/%s", name);
    norv_spi_flash_region_t* region = &flash->regions[flash->region_count];
    NORV_TRY(norv_linux_mtd_open(path, &region->device));
    if (flash->region_count > 0) {
        region->base = region[-1].base + region[-1].device.info.size;
    }
    flash->size += region->device.info.size;
    ++flash->region_count;
    return NORV_STATUS_OK;
}

uint32_t append_regions(norv_spi_flash_t* flash, const norv::directory_entries& partitions) {
    for (const dirent* partition : partitions) {
        NORV_TRY(append_region(flash, partition->d_name));
    }
    return NORV_STATUS_OK;
}

// Reads or writes with one call of the MTD layer, up to the end of the region.
template <typename bytes, typename mtd_call>
uint32_t transfer_in_region(norv_spi_flash_t** flash, uint32_t address, bytes* buffer, uint32_t* length,
                            mtd_call transfer) {
    NORV_TRY(norv::check_open(flash));
    if (buffer == nullptr || length == nullptr || *length == 0) {
        return NORV_STATUS_INVALID_ARG;
    }
    const norv::flash_place place = norv::find_place(*flash, address);
    if (!place.exists()) {
        return NORV_STATUS_RANGE;
    }
    *length = std::min(*length, place.rest_of_region());
    return transfer(place.device(), place.offset(), *length, buffer, length);
}

}  // namespace

uint32_t norv::query_block(const flash_place& place, block_health* health) {
    uint8_t bad = 0;
    NORV_TRY(norv_linux_mtd_block_isbad(place.device(), place.offset() - place.offset_in_block(), &bad));
    *health = bad != 0 ? block_health::bad : block_health::good;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_spi_flash_open(norv_spi_flash_t** flash) {
    if (flash == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *flash = nullptr;
    // quirk 133: no partitions are not a failure.
    const norv::directory_entries partitions("/dev", is_partition);
    NORV_TRY(partitions.status());
    norv_spi_flash_t* opened = allocate(partitions.count());
    if (opened == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const uint32_t status = append_regions(opened, partitions);
    if (status != NORV_STATUS_OK) {
        // Regions that were never opened are zeros, which closing leaves unchanged.
        release(opened, partitions.count());
        return status;
    }
    *flash = opened;
    return NORV_STATUS_OK;
}

void norv_linux_spi_flash_close(norv_spi_flash_t** flash) {
    norv_spi_flash_t* closed = norv::record_of(flash);
    if (closed == nullptr) {
        return;
    }
    *flash = nullptr;
    release(closed, closed->region_count);
}

uint32_t norv_linux_spi_flash_get_info(norv_spi_flash_t** flash, norv_flash_info_t* info) {
    NORV_TRY(norv::check_open(flash, NORV_STATUS_NOT_FOUND));
    if (info == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 134: the block sizes are those of the first region.
    const mtd_info_user& first = (*flash)->regions[0].device.info;
    info->size = (*flash)->size;
    info->erase_block_size = first.erasesize;
    info->write_unit_size = first.writesize;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_spi_flash_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                   uint32_t* length) {
    return transfer_in_region(flash, address, buffer, length, norv_linux_mtd_read);
}

uint32_t norv_linux_spi_flash_write(norv_spi_flash_t** flash, uint32_t address, const void* data,
                                    uint32_t* length) {
    return transfer_in_region(flash, address, data, length, norv_linux_mtd_write);
}
