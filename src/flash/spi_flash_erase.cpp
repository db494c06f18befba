// SPDX-License-Identifier: MIT
// Erasing the SPI flash: bad blocks are skipped, and blocks that do not erase are marked bad.
#include <algorithm>

#include "core/status.hpp"
#include "flash/alignment.hpp"
#include "flash/observer.hpp"
#include "flash/spi_flash.hpp"

namespace {

using norv::flash_place;

enum class erase_result {
    erased,
    skipped,  // a bad block
    marked,   // marked bad, or tried to
    failed,   // on NOR, where nothing is marked
};

// Erases the block of a place. `status` is that of the previous marking, if that failed, otherwise 0; it
// receives that of this block: of the marking, if the block was marked.
//
// quirk 135: after a failed marking, the next block is marked without being queried or erased.
// quirk 136: so is a block whose state cannot be queried.
erase_result erase_block(const flash_place& place, uint32_t& status) {
    const norv_mtd_t* device = place.device();
    uint8_t bad = 0;
    if (place.is_nand() && status == NORV_STATUS_OK) {
        status = norv_linux_mtd_block_isbad(device, place.offset(), &bad);
    }
    if (bad != 0) {
        return erase_result::skipped;
    }
    if (status == NORV_STATUS_OK) {
        status = norv_linux_mtd_erase(device, place.offset(), place.erase_size());
    }
    if (status == NORV_STATUS_OK) {
        return erase_result::erased;
    }
    if (!place.is_nand()) {
        return erase_result::failed;
    }
    status = norv_linux_mtd_block_markbad(device, place.offset());
    return erase_result::marked;
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
        const erase_result result = erase_block(place, status);
        if (result == erase_result::failed) {
            return status;
        }
        address += place.erase_size();
        if (result == erase_result::erased) {
            *end = static_cast<uint32_t>(address);
            return NORV_STATUS_OK;
        }
    }
    return NORV_STATUS_EXHAUSTED;
}

// Erases blocks until enough of them are erased, or the end is reached.
class continued_erase {
  public:
    continued_erase(const norv_spi_flash_t* flash, uint64_t address, uint32_t* end,
                    const norv::flash_observer& observer)
        : flash_(flash), address_(address), end_(end), observer_(observer) {}

    uint32_t run() {
        do {
            if (observer_.is_cancelled()) {
                return NORV_STATUS_TIMEOUT;
            }
            const flash_place place = norv::find_place(flash_, address_);
            if (!starts_block(place, address_)) {
                return NORV_STATUS_RANGE;
            }
            if (address_ >= *end_) {
                return NORV_STATUS_OK;
            }
            if (!erase(place)) {
                return status_;
            }
            // quirk 138: reaching the end before the length is a success.
        } while (remaining_ > 0 && address_ < *end_);
        if (status_ == NORV_STATUS_OK) {
            *end_ = static_cast<uint32_t>(address_);
        }
        return status_;
    }

  private:
    // False if the call has to end.
    bool erase(const flash_place& place) {
        const erase_result result = erase_block(place, status_);
        if (result == erase_result::failed) {
            return false;
        }
        if (result == erase_result::erased) {
            remaining_ -= std::min(remaining_, place.erase_size());
        }
        const uint64_t start = address_;
        address_ += place.erase_size();
        if (result != erase_result::skipped) {
            report(start);
        }
        return true;
    }

    // quirk 137: the last block before the end is reported as done, whatever the result.
    void report(uint64_t start) const {
        const bool last = address_ >= *end_;
        observer_.report(last ? NORV_STATUS_OK : status_, static_cast<uint32_t>(start),
                         last ? 0 : remaining_);
    }

    const norv_spi_flash_t* flash_;
    uint64_t address_;
    uint32_t* end_;
    norv::flash_observer observer_;
    uint32_t remaining_ = observer_.total;
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
    const erase_result result = erase_block(place, status);
    const bool is_bad =
        result == erase_result::skipped || (result == erase_result::marked && status == NORV_STATUS_OK);
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
    return continued_erase(*flash, address, end, {cancel, progress, user, length}).run();
}
