// SPDX-License-Identifier: MIT
// Erasing the SPI flash: bad blocks are skipped, and blocks that do not erase are marked bad.
#include <algorithm>

#include "core/status.hpp"
#include "flash/alignment.hpp"
#include "flash/erase_plan.hpp"
#include "flash/observer.hpp"
#include "flash/spi_flash.hpp"
#include "flash/steps.hpp"

namespace {

using norv::block_health;
using norv::erase_action;
using norv::flash_cursor;
using norv::flash_place;
using norv::flow;
using norv::step_outcome;

// Carries out what is planned for the block of a place, and returns the last action. `status` is that of the
// previous marking, if that failed, otherwise 0; it receives that of this block: of the marking, if the block
// was marked.
erase_action erase_block(const flash_place& place, uint32_t& status) {
    const norv_mtd_t* device = place.device();
    block_health health = block_health::unknown;
    erase_action action = norv::plan_erase(place.is_nand(), health, status);
    if (action == erase_action::query) {
        status = norv::query_block(place, &health);
        action = norv::plan_erase(place.is_nand(), health, status);
    }
    if (action == erase_action::erase) {
        status = norv_linux_mtd_erase(device, place.offset(), place.erase_size());
        action = norv::plan_erase(place.is_nand(), block_health::good, status);
    }
    if (action == erase_action::mark) {
        status = norv_linux_mtd_block_markbad(device, place.offset());
    }
    return action;
}

// Whether a block starts at an address, also in its region: the kernel would refuse to erase at any other
// offset, and a good NAND block would be marked bad.
bool starts_block(const flash_place& place, uint64_t address) {
    return place.exists() && norv::is_aligned(address, place.erase_size()) && place.offset_in_block() == 0;
}

uint32_t check_end(const norv_spi_flash_t* flash, uint32_t end) {
    const flash_place last = norv::find_end(flash, end);
    return last.exists() && norv::is_aligned(end, last.erase_size()) ? NORV_STATUS_OK : NORV_STATUS_RANGE;
}

uint32_t erase_first_valid(const norv_spi_flash_t* flash, uint64_t address, uint32_t* end) {
    uint32_t status = NORV_STATUS_OK;
    while (address < *end) {
        const flash_place place = norv::find_place(flash, address);
        if (!starts_block(place, address)) {
            return NORV_STATUS_RANGE;
        }
        const erase_action action = erase_block(place, status);
        if (action == erase_action::give_up) {
            return status;
        }
        address += place.erase_size();
        if (action == erase_action::erase) {
            *end = static_cast<uint32_t>(address);
            return NORV_STATUS_OK;
        }
    }
    return NORV_STATUS_EXHAUSTED;
}

// Erases blocks until enough of them are erased, or the end is reached.
class continued_erase {
  public:
    continued_erase(const norv_spi_flash_t* flash, uint32_t* end, const norv::flash_observer& observer)
        : flash_(flash), end_(end), observer_(observer) {}

    uint32_t run(uint64_t address) {
        flash_cursor cursor = {address, observer_.total};
        const step_outcome last =
            norv::run_steps(cursor, observer_, [this](const flash_cursor& at) { return step(at); });
        if (last.next != flow::complete) {
            return last.status;
        }
        if (status_ == NORV_STATUS_OK) {
            *end_ = static_cast<uint32_t>(cursor.address);
        }
        return status_;
    }

  private:
    step_outcome step(const flash_cursor& at) {
        const flash_place place = norv::find_place(flash_, at.address);
        if (!starts_block(place, at.address)) {
            return norv::fail(NORV_STATUS_RANGE);
        }
        if (at.address >= *end_) {
            return norv::stop(NORV_STATUS_OK);
        }
        const erase_action action = erase_block(place, status_);
        if (action == erase_action::give_up) {
            return norv::fail(status_);
        }
        const uint32_t size = place.erase_size();
        const uint32_t done = action == erase_action::erase ? std::min(at.remaining, size) : 0;
        if (action != erase_action::skip) {
            report(at, size, at.remaining - done);
        }
        // quirk 138: reaching the end before the length is a success.
        return {.next = at.address + size < *end_ ? flow::proceed : flow::complete,
                .done = done,
                .advance = size};
    }

    // quirk 137: the last block before the end is reported as done, whatever the result.
    void report(const flash_cursor& at, uint32_t size, uint32_t remaining) const {
        const bool last = at.address + size >= *end_;
        observer_.report(last ? NORV_STATUS_OK : status_, static_cast<uint32_t>(at.address),
                         last ? 0 : remaining);
    }

    const norv_spi_flash_t* flash_;
    uint32_t* end_;
    norv::flash_observer observer_;
    uint32_t status_ = NORV_STATUS_OK;  // of the last marking
};

}  // namespace

uint32_t norv_linux_spi_flash_erase_one_block(norv_spi_flash_t** flash, uint32_t address) {
    NORV_TRY(norv::check_open(flash));
    const flash_place place = norv::find_place(*flash, address);
    if (!place.exists() || place.offset_in_block() != 0) {
        return NORV_STATUS_RANGE;
    }
    uint32_t status = NORV_STATUS_OK;
    const erase_action action = erase_block(place, status);
    const bool is_bad =
        action == erase_action::skip || (action == erase_action::mark && status == NORV_STATUS_OK);
    return is_bad ? NORV_STATUS_EXHAUSTED : status;
}

uint32_t norv_linux_spi_flash_erase_first_valid_block(norv_spi_flash_t** flash, uint32_t address,
                                                      uint32_t* end) {
    NORV_TRY(norv::check_open(flash));
    if (end == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(check_end(*flash, *end));
    return erase_first_valid(*flash, address, end);
}

// quirk 131: a null flash is not checked for.
uint32_t norv_linux_spi_flash_continue_erase(norv_spi_flash_t** flash, uint32_t address, uint32_t length,
                                             uint32_t* end, norv_flash_cancel_fn cancel,
                                             norv_flash_progress_fn progress, void* user) {
    NORV_TRY(norv::check_regions(*flash));
    NORV_TRY(check_end(*flash, *end));
    if (length == 0) {
        *end = address;
        return NORV_STATUS_OK;
    }
    return continued_erase(*flash, end, {cancel, progress, user, length}).run(address);
}
