// SPDX-License-Identifier: MIT
// Reading and writing the SPI flash across blocks; bad ones are skipped.
#include <algorithm>

#include "core/memory.hpp"
#include "core/status.hpp"
#include "flash/alignment.hpp"
#include "flash/observer.hpp"
#include "flash/spi_flash.hpp"
#include "flash/steps.hpp"
#include "flash/write_plan.hpp"
#include "norv_base.h"

namespace {

using norv::block_health;
using norv::flash_cursor;
using norv::flash_place;
using norv::step_outcome;
using norv::write_action;
using norv::write_step;

// Reads until all bytes are read, or the flash ends.
class continued_read {
  public:
    continued_read(const norv_spi_flash_t* flash, void* buffer, const norv::flash_observer& observer)
        : flash_(flash), buffer_(static_cast<uint8_t*>(buffer)), observer_(observer) {}

    uint32_t run(uint64_t address, uint32_t* length) {
        flash_cursor cursor = {address, observer_.total};
        const step_outcome last =
            norv::run_steps(cursor, observer_, [this](const flash_cursor& at) { return step(at); });
        if (last.next == norv::flow::fail) {
            *length = observer_.total - cursor.remaining;
        }
        return last.status;
    }

  private:
    step_outcome step(const flash_cursor& at) const {
        const flash_place place = norv::find_place(flash_, at.address);
        if (!place.exists()) {
            // quirk 139: the end of the flash is a success.
            return norv::complete();
        }
        block_health health = block_health::good;
        if (place.is_nand()) {
            const uint32_t status = norv::query_block(place, &health);
            if (status != NORV_STATUS_OK) {
                return norv::fail(status);
            }
        }
        return health == block_health::bad ? norv::proceed(0, place.rest_of_block()) : read(at, place);
    }

    // Up to the end of the block.
    step_outcome read(const flash_cursor& at, const flash_place& place) const {
        uint32_t count = 0;
        const uint32_t status =
            norv_linux_mtd_read(place.device(), place.offset(), std::min(at.remaining, place.rest_of_block()),
                                buffer_ + (observer_.total - at.remaining), &count);
        if (status != NORV_STATUS_OK) {
            return norv::fail(status);
        }
        observer_.report(NORV_STATUS_OK, static_cast<uint32_t>(at.address), at.remaining - count);
        return norv::proceed(count, count);
    }

    const norv_spi_flash_t* flash_;
    uint8_t* buffer_;
    norv::flash_observer observer_;
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

// Two buffers, each for the largest block.
class work_area {
  public:
    explicit work_area(uint32_t half) : memory_(norv_malloc(size_t{2} * half)), half_(half) {}

    bool exists() const { return memory_.get() != nullptr; }
    uint8_t* outgoing() const { return static_cast<uint8_t*>(memory_.get()); }
    uint8_t* read_back() const { return outgoing() + half_; }
    bool can_hold(uint32_t size) const { return size <= half_; }
    void abandon() { memory_.abandon(); }

  private:
    norv::scoped_memory memory_;
    uint32_t half_;
};

// Writes, reads back and compares, block by block, until all bytes are stored: carries out the plan.
class verified_write {
  public:
    verified_write(const write_request& request, const norv::flash_observer& observer, work_area& buffers)
        : request_(request), observer_(observer), buffers_(buffers), to_skip_(request.skip) {}

    uint32_t run() {
        flash_cursor cursor = {request_.address, observer_.total};
        const step_outcome last =
            norv::run_steps(cursor, observer_, [this](const flash_cursor& at) { return step(at); });
        if (last.next == norv::flow::complete) {
            *request_.end = static_cast<uint32_t>(cursor.address);
        }
        if (last.next == norv::flow::fail) {
            *request_.length = observer_.total - cursor.remaining;
        }
        return last.status;
    }

  private:
    step_outcome step(const flash_cursor& at) {
        const flash_place place = norv::find_place(request_.flash, at.address);
        write_step planned = plan(at, place, block_health::unknown);
        if (planned.action == write_action::query) {
            block_health health = block_health::unknown;
            query_status_ = norv::query_block(place, &health);
            planned = plan(at, place, health);
        }
        return carry_out(at, place, planned);
    }

    write_step plan(const flash_cursor& at, const flash_place& place, block_health health) const {
        return norv::plan_write({at.address, at.remaining, *request_.end, to_skip_, query_status_}, place,
                                health);
    }

    step_outcome carry_out(const flash_cursor& at, const flash_place& place, const write_step& planned) {
        switch (planned.action) {
            case write_action::stop:
                // quirk 143: leaves the length unchanged.
                return norv::stop(planned.status);
            case write_action::fail_leaking:
                // quirk 140: a misaligned address leaks the work area.
                buffers_.abandon();
                return norv::fail(planned.status);
            case write_action::fail:
                return norv::fail(planned.status);
            case write_action::skip:
                to_skip_ -= planned.count;
                return norv::proceed(0, planned.advance);
            default:
                // A block is too large only if a callback has moved the end to a region with larger ones.
                return buffers_.can_hold(planned.size) ? store(at, place, planned)
                                                       : norv::fail(NORV_STATUS_RANGE);
        }
    }

    step_outcome store(const flash_cursor& at, const flash_place& place, const write_step& planned) const {
        const uint8_t* data = request_.data + (observer_.total - at.remaining);
        const bool is_padded = planned.action == write_action::write_padded;
        const uint32_t status = write(place, is_padded ? padded(data, planned) : data, planned);
        if (status != NORV_STATUS_OK) {
            return norv::fail(status);
        }
        observer_.report(NORV_STATUS_OK, static_cast<uint32_t>(at.address), at.remaining - planned.count);
        return norv::proceed(planned.count, planned.advance);
    }

    const uint8_t* padded(const uint8_t* data, const write_step& planned) const {
        norv_memcpy(buffers_.outgoing(), data, planned.count);
        norv_memset(buffers_.outgoing() + planned.count, 0xFF, planned.size - planned.count);
        return buffers_.outgoing();
    }

    uint32_t write(const flash_place& place, const uint8_t* bytes, const write_step& planned) const {
        const uint32_t count = planned.count;
        uint32_t written = 0;
        uint32_t found = 0;
        NORV_TRY(norv_linux_mtd_write(place.device(), place.offset(), planned.size, bytes, &written));
        NORV_TRY(norv_linux_mtd_read(place.device(), place.offset(), count, buffers_.read_back(), &found));
        const bool same =
            found == count && written >= count && norv_memcmp(bytes, buffers_.read_back(), count) == 0;
        return same ? NORV_STATUS_OK : NORV_STATUS_VERIFY_FAILED;
    }

    const write_request& request_;
    const norv::flash_observer& observer_;
    work_area& buffers_;
    uint32_t to_skip_;
    uint32_t query_status_ = NORV_STATUS_OK;
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
    work_area buffers(largest_block(request));
    return buffers.exists() ? verified_write(request, observer, buffers).run() : NORV_STATUS_NO_MEMORY;
}

}  // namespace

// quirk 131: a null flash is not checked for.
uint32_t norv_linux_spi_flash_continue_read(norv_spi_flash_t** flash, uint32_t address, void* buffer,
                                            uint32_t* length, norv_flash_cancel_fn cancel,
                                            norv_flash_progress_fn progress, void* user) {
    NORV_TRY(norv::check_regions(*flash));
    return continued_read(*flash, buffer, {cancel, progress, user, *length}).run(address, length);
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
