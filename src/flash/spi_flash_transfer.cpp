// SPDX-License-Identifier: MIT
// Reading and writing the SPI flash across blocks; bad ones are skipped.
#include <algorithm>

#include "core/status.hpp"
#include "flash/alignment.hpp"
#include "flash/observer.hpp"
#include "flash/spi_flash.hpp"
#include "norv_base.h"

namespace {

using norv::flash_place;

// Only NAND is queried.
uint32_t query_block(const flash_place& place, uint8_t* bad) {
    if (!place.is_nand()) {
        return NORV_STATUS_OK;
    }
    return norv_linux_mtd_block_isbad(place.device(), place.offset() - place.offset_in_block(), bad);
}

// Reads until all bytes are read, or the flash ends.
class continued_read {
  public:
    continued_read(const norv_spi_flash_t* flash, uint64_t address, void* buffer,
                   const norv::flash_observer& observer)
        : flash_(flash), address_(address), buffer_(static_cast<uint8_t*>(buffer)), observer_(observer) {}

    uint32_t run(uint32_t* length) {
        while (remaining_ > 0) {
            if (observer_.is_cancelled()) {
                return NORV_STATUS_TIMEOUT;
            }
            const flash_place place = norv::find_place(flash_, address_);
            if (!place.exists()) {
                // quirk 139: the end of the flash is a success.
                return NORV_STATUS_OK;
            }
            const uint32_t status = read(place);
            if (status != NORV_STATUS_OK) {
                *length = observer_.total - remaining_;
                return status;
            }
        }
        return NORV_STATUS_OK;
    }

  private:
    // Up to the end of the block.
    uint32_t read(const flash_place& place) {
        uint8_t bad = 0;
        NORV_TRY(query_block(place, &bad));
        if (bad != 0) {
            address_ += place.rest_of_block();
            return NORV_STATUS_OK;
        }
        uint32_t count = 0;
        NORV_TRY(norv_linux_mtd_read(place.device(), place.offset(),
                                     std::min(remaining_, place.rest_of_block()), buffer_, &count));
        remaining_ -= count;
        observer_.report(NORV_STATUS_OK, static_cast<uint32_t>(address_), remaining_);
        address_ += count;
        buffer_ += count;
        return NORV_STATUS_OK;
    }

    const norv_spi_flash_t* flash_;
    uint64_t address_;
    uint8_t* buffer_;
    norv::flash_observer observer_;
    uint32_t remaining_ = observer_.total;
};

// The arguments of a write with verification.
struct write_request {
    const norv_spi_flash_t* flash;
    uint32_t address;
    uint32_t skip;
    const uint8_t* data;
    uint32_t* length;
    uint32_t* end;
};

// Writes, reads back and compares, block by block, until all bytes are stored.
class verified_write {
  public:
    verified_write(const write_request& request, const norv::flash_observer& observer, uint8_t* work_area,
                   uint32_t half)
        : request_(request), observer_(observer), write_buffer_(work_area), read_buffer_(work_area + half) {}

    uint32_t run() {
        uint32_t status = NORV_STATUS_OK;
        while (remaining_ > 0 && status == NORV_STATUS_OK) {
            status = step();
        }
        if (status == NORV_STATUS_OK) {
            *request_.end = static_cast<uint32_t>(address_);
        } else if (!stopped_) {
            *request_.length = observer_.total - remaining_;
        }
        return status;
    }

    bool misaligned() const { return misaligned_; }

  private:
    uint32_t step() {
        if (observer_.is_cancelled()) {
            return stop(NORV_STATUS_TIMEOUT);
        }
        // quirk 141: the end is compared with the start of the block only.
        if (*request_.end <= address_) {
            return stop(NORV_STATUS_EXHAUSTED);
        }
        const flash_place place = norv::find_place(request_.flash, address_);
        if (!place.exists()) {
            return NORV_STATUS_RANGE;
        }
        misaligned_ = !norv::is_multiple(place.offset(), place.write_size());
        return misaligned_ ? NORV_STATUS_RANGE : skip_or_store(place);
    }

    // Skips what is bad or to be skipped. quirk 142: a failed query ends the call only after that.
    uint32_t skip_or_store(const flash_place& place) {
        uint8_t bad = 0;
        if (query_status_ == NORV_STATUS_OK) {
            query_status_ = query_block(place, &bad);
        }
        if (bad != 0) {
            address_ += place.rest_of_block();
            return NORV_STATUS_OK;
        }
        if (to_skip_ > 0) {
            to_skip_ -= std::min(to_skip_, place.write_size());
            address_ += place.write_size();
            return NORV_STATUS_OK;
        }
        NORV_TRY(query_status_);
        return store(place);
    }

    // Up to the end of the block.
    uint32_t store(const flash_place& place) {
        const uint32_t room = place.rest_of_block();
        const uint32_t count = std::min(remaining_, room);
        NORV_TRY(count < room ? write_padded(place, count) : write(place, data_, count, count));
        remaining_ -= count;
        observer_.report(NORV_STATUS_OK, static_cast<uint32_t>(address_), remaining_);
        address_ += room;
        data_ += count;
        return NORV_STATUS_OK;
    }

    // Pads a copy of the last bytes to a write unit; whole blocks are written from the caller's memory.
    uint32_t write_padded(const flash_place& place, uint32_t count) {
        const uint32_t unit = place.write_size();
        const uint32_t size = (count + unit - 1) / unit * unit;
        norv_memcpy(write_buffer_, data_, count);
        norv_memset(write_buffer_ + count, 0xFF, size - count);
        return write(place, write_buffer_, size, count);
    }

    uint32_t write(const flash_place& place, const uint8_t* bytes, uint32_t size, uint32_t count) {
        uint32_t written = 0;
        uint32_t found = 0;
        NORV_TRY(norv_linux_mtd_write(place.device(), place.offset(), size, bytes, &written));
        NORV_TRY(norv_linux_mtd_read(place.device(), place.offset(), count, read_buffer_, &found));
        const bool same = found == count && written >= count && norv_memcmp(bytes, read_buffer_, count) == 0;
        return same ? NORV_STATUS_OK : NORV_STATUS_VERIFY_FAILED;
    }

    // Ends the call and leaves the length unchanged: quirk 143.
    uint32_t stop(uint32_t status) {
        stopped_ = true;
        return status;
    }

    const write_request& request_;
    norv::flash_observer observer_;
    uint8_t* write_buffer_;
    uint8_t* read_buffer_;
    uint64_t address_ = request_.address;
    const uint8_t* data_ = request_.data;
    uint32_t remaining_ = observer_.total;
    uint32_t to_skip_ = request_.skip;
    uint32_t query_status_ = NORV_STATUS_OK;
    bool stopped_ = false;
    bool misaligned_ = false;
};

// The largest erase block of the area, which may not be that of its last region.
uint32_t largest_block(const write_request& request) {
    uint32_t largest = norv::find_end(request.flash, *request.end).erase_size();
    for (int32_t index = 0; index < request.flash->region_count; ++index) {
        const norv_spi_flash_region_t& region = request.flash->regions[index];
        if (region.base < *request.end && request.address < region.base + region.device.info.size) {
            largest = std::max(largest, region.device.info.erasesize);
        }
    }
    return largest;
}

uint32_t write_and_verify(const write_request& request, const norv::flash_observer& observer) {
    const uint32_t half = largest_block(request);
    auto* work_area = static_cast<uint8_t*>(norv_malloc(size_t{2} * half));
    if (work_area == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    verified_write run(request, observer, work_area, half);
    const uint32_t status = run.run();
    // quirk 140: a misaligned address leaks the work area.
    if (!run.misaligned()) {
        norv_free(work_area);
    }
    return status;
}

}  // namespace

// quirk 131: a null flash is not checked for.
uint32_t norv_linux_spi_flash_continue_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                            uint32_t* length, norv_flash_cancel_fn cancel,
                                            norv_flash_progress_fn progress, void* user) {
    NORV_TRY(norv::check_regions(*flash));
    return continued_read(*flash, address, buffer, {cancel, progress, user, *length}).run(length);
}

// quirk 131: a null flash is not checked for.
uint32_t norv_linux_spi_flash_continue_write_verify(norv_spi_flash_t** flash, uint32_t address, uint32_t skip,
                                                    const void* data, uint32_t* length, uint32_t* end,
                                                    norv_flash_cancel_fn cancel,
                                                    norv_flash_progress_fn progress, void* user) {
    NORV_TRY(norv::check_regions(*flash));
    const flash_place last = norv::find_end(*flash, *end);
    if (!last.exists() || !norv::is_multiple(*end, last.write_size()) ||
        !norv::is_multiple(skip, last.write_size())) {
        return NORV_STATUS_RANGE;
    }
    return write_and_verify({*flash, address, skip, static_cast<const uint8_t*>(data), length, end},
                            {cancel, progress, user, *length});
}
