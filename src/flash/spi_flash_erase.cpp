// Erasing the joined flash: bad blocks are left out, and blocks that do not erase become bad ones.
#include <algorithm>

#include "flash/observer.hpp"
#include "flash/spi_flash.hpp"

namespace {

using norv::flash_place;

// What became of a block.
enum class fate {
    erased,
    bad,     // it was, and nothing was done to it
    marked,  // it is bad from now on, or should be
    failed,  // on NOR, where nothing is marked
};

// Erases the block of a place. `status` is 0, or the failure of the marking just before; it receives the
// failure of this block, and for a block that was marked that of the marking.
//
// After a marking that failed, the next block is marked without being asked or erased, and so on until a
// marking succeeds: kept.
fate erase_block(const flash_place& place, uint32_t& status) {
    const norv_mtd_t* device = place.device();
    uint8_t bad = 0;
    if (place.is_nand() && status == NORV_STATUS_OK) {
        status = norv_linux_mtd_block_isbad(device, place.offset(), &bad);
    }
    if (bad != 0) {
        return fate::bad;
    }
    if (status == NORV_STATUS_OK) {
        status = norv_linux_mtd_erase(device, place.offset(), place.erase_size());
    }
    if (status == NORV_STATUS_OK) {
        return fate::erased;
    }
    if (!place.is_nand()) {
        return fate::failed;
    }
    status = norv_linux_mtd_block_markbad(device, place.offset());
    return fate::marked;
}

// Whether a block starts at an address. The place in the region counts too: the kernel refuses to erase at
// any other, and NAND blocks would be marked bad for it.
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
        const fate block = erase_block(place, status);
        if (block == fate::failed) {
            return status;
        }
        address += place.erase_size();
        if (block == fate::erased) {
            *end = static_cast<uint32_t>(address);
            return NORV_STATUS_OK;
        }
    }
    return NORV_STATUS_EXHAUSTED;
}

// A run over blocks, until enough of them are erased or the end is reached.
class continued_erase {
  public:
    continued_erase(const norv_spi_flash_t* flash, uint64_t address, uint32_t* end,
                    const norv::flash_observer& observer)
        : flash_(flash), address_(address), end_(end), observer_(observer) {}

    uint32_t run() {
        do {
            if (observer_.stops()) {
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
        } while (remaining_ > 0 && address_ < *end_);
        if (status_ == NORV_STATUS_OK) {
            *end_ = static_cast<uint32_t>(address_);
        }
        return status_;
    }

  private:
    // False when the run cannot go on.
    bool erase(const flash_place& place) {
        const fate block = erase_block(place, status_);
        if (block == fate::failed) {
            return false;
        }
        if (block == fate::erased) {
            remaining_ -= std::min(remaining_, place.erase_size());
        }
        const uint64_t start = address_;
        address_ += place.erase_size();
        if (block != fate::bad) {
            report(start);
        }
        return true;
    }

    // The last block before the end is reported as the end of all work, whatever became of it: kept.
    void report(uint64_t start) const {
        const bool last = address_ >= *end_;
        observer_.hear(last ? NORV_STATUS_OK : status_, static_cast<uint32_t>(start), last ? 0 : remaining_);
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
    uint32_t status = norv::check_open(flash);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    const flash_place place = norv::find_place(*flash, address);
    if (!place.exists() || place.offset_in_block() != 0) {
        return NORV_STATUS_RANGE;
    }
    const fate block = erase_block(place, status);
    const bool is_bad = block == fate::bad || (block == fate::marked && status == NORV_STATUS_OK);
    return is_bad ? NORV_STATUS_EXHAUSTED : status;
}

uint32_t norv_linux_spi_flash_erase_first_valid_block(norv_spi_flash_t** flash, uint32_t address,
                                                      uint32_t* end) {
    uint32_t status = norv::check_open(flash);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    if (end == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    status = check_end(*flash, *end);
    return status != NORV_STATUS_OK ? status : erase_first_valid(*flash, address, end);
}

// A null flash is not checked for: kept.
uint32_t norv_linux_spi_flash_continue_erase(norv_spi_flash_t** flash, uint32_t address, uint32_t length,
                                             uint32_t* end, norv_flash_cancel_fn cancel,
                                             norv_flash_progress_fn progress, void* user) {
    uint32_t status = norv::check_regions(*flash);
    if (status == NORV_STATUS_OK) {
        status = check_end(*flash, *end);
    }
    if (status != NORV_STATUS_OK) {
        return status;
    }
    if (length == 0) {
        *end = address;
        return NORV_STATUS_OK;
    }
    return continued_erase(*flash, address, end, {cancel, progress, user, length}).run();
}
