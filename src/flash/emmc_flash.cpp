// SPDX-License-Identifier: MIT
// A block device as a flash.
#include "norv_linux_emmc_flash.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "flash/alignment.hpp"
#include "flash/chunk_plan.hpp"
#include "flash/observer.hpp"
#include "flash/steps.hpp"
#include "norv_base.h"
#include "norv_file.h"

struct norv_emmc_flash {
    int32_t descriptor;
    uint64_t size;
    uint32_t erase_block_size;
    uint32_t write_unit_size;
};

NORV_OFFSETS(norv_emmc_flash_t, 24, descriptor, 0, size, 8, erase_block_size, 16, write_unit_size, 20);
static_assert(sizeof(size_t) != 8 || (BLKBSZGET == 0x80081270 && BLKGETSIZE64 == 0x80081272));

namespace {

using norv::chunk_write;
using norv::flash_cursor;
using norv::flash_observer;
using norv::scoped_memory;
using norv::step_outcome;

// An operation ends at 4 GiB instead of continuing at 0.
bool is_addressable(uint64_t address) {
    return address <= UINT32_MAX;
}

// ---- the device

uint32_t find_geometry(norv_emmc_flash_t* flash) {
    int block_size = 0;
    NORV_TRY(norv::device_ioctl(flash->descriptor, BLKBSZGET, &block_size));
    flash->erase_block_size = static_cast<uint32_t>(block_size);
    flash->write_unit_size = static_cast<uint32_t>(block_size);
    return norv::device_ioctl(flash->descriptor, BLKGETSIZE64, &flash->size);
}

uint32_t open_device(norv_emmc_flash_t* flash, const char* path) {
    NORV_TRY(norv_open_device(O_RDWR | O_CLOEXEC | O_SYNC, &flash->descriptor, "%s", path));
    return find_geometry(flash);
}

// ---- erasing

// Whether zeros may be written from an address to an end.
uint32_t check_area(const norv_emmc_flash_t* flash, uint64_t address, uint64_t end) {
    const bool fits = is_addressable(end) && end >= address &&
                      norv::is_aligned(address, flash->erase_block_size) &&
                      norv::is_aligned(end, flash->erase_block_size);
    return fits ? NORV_STATUS_OK : NORV_STATUS_RANGE;
}

// quirk 145: zeroes a whole chunk, also as the last one.
// quirk 146, quirk 150: whatever the device accepts of it, the chunk counts as erased.
uint32_t erase_chunk(norv_emmc_flash_t** flash, uint64_t address, uint32_t chunk, const void* zeros) {
    NORV_TRY(check_area(*flash, address, address + chunk));
    uint32_t count = norv::round_up(chunk, (*flash)->erase_block_size);
    return norv_linux_emmc_flash_write(flash, static_cast<uint32_t>(address), zeros, &count);
}

// ---- chunk after chunk

// Calls step(address, remaining, &done) until nothing remains. A step never reports 0 bytes done.
template <typename step_type>
uint32_t run_chunks(const flash_observer& observer, uint64_t address, uint32_t* length, step_type step) {
    flash_cursor cursor = {address, observer.total};
    const step_outcome last = norv::run_steps(cursor, observer, [&](const flash_cursor& at) {
        uint32_t done = 0;
        const uint32_t status = step(at.address, at.remaining, &done);
        if (status != NORV_STATUS_OK) {
            return norv::fail(status);
        }
        observer.report(NORV_STATUS_OK, static_cast<uint32_t>(at.address), at.remaining - done);
        return norv::proceed(done, done);
    });
    if (last.next == norv::flow::fail) {
        *length -= cursor.remaining;
    }
    return last.status;
}

// Reads up to the next chunk border. At the end of the device, every read would return 0 bytes.
uint32_t read_chunk(norv_emmc_flash_t** flash, uint64_t address, uint8_t* buffer, uint32_t count,
                    uint32_t* done) {
    if (!is_addressable(address)) {
        return NORV_STATUS_RANGE;
    }
    const uint32_t status = norv_linux_emmc_flash_read(flash, static_cast<uint32_t>(address), buffer, &count);
    *done = count;
    NORV_TRY(status);
    return count == 0 ? NORV_STATUS_RANGE : NORV_STATUS_OK;
}

// The memory of a write with verification: two chunks, the first for outgoing data, the second for what is
// read back. Padded data may be longer than a chunk if the chunk size is not a power of two (quirk 149), but
// is shorter than two: it then occupies part of the second chunk as well, until it is written.
class work_area {
  public:
    explicit work_area(uint32_t chunk)
        : memory_(norv_malloc(2 * static_cast<size_t>(chunk))), chunk_(chunk) {}

    bool exists() const { return memory_.get() != nullptr; }

    // A copy of the data, filled up with 0xFF. It is lost when something is read back.
    const uint8_t* padded(const uint8_t* data, const chunk_write& planned) const {
        norv_memcpy(first(), data, planned.count);
        norv_memset(first() + planned.count, 0xFF, planned.size - planned.count);
        return first();
    }

    uint8_t* read_back() const { return first() + chunk_; }

  private:
    uint8_t* first() const { return static_cast<uint8_t*>(memory_.get()); }

    scoped_memory memory_;
    uint32_t chunk_;
};

// Writes up to the next chunk border, and reads back. Data that needs no padding is written without a copy.
uint32_t write_chunk(norv_emmc_flash_t** flash, uint64_t address, const uint8_t* data,
                     const chunk_write& planned, const work_area& area, uint32_t* done) {
    if (!is_addressable(address)) {
        return NORV_STATUS_RANGE;
    }
    const auto start = static_cast<uint32_t>(address);
    const uint8_t* outgoing = planned.is_padded ? area.padded(data, planned) : data;
    uint32_t written = planned.size;
    NORV_TRY(norv_linux_emmc_flash_write(flash, start, outgoing, &written));
    uint32_t count = planned.count;
    // quirk 151: this reads from the page cache. quirk 152: a short read that matches is done up to its end.
    NORV_TRY(norv_linux_emmc_flash_read(flash, start, area.read_back(), &count));
    *done = count;
    const bool same = count != 0 && count <= written && norv_memcmp(data, area.read_back(), count) == 0;
    return same ? NORV_STATUS_OK : NORV_STATUS_VERIFY_FAILED;
}

// The address after the whole units in `skip`.
uint64_t skip_units(uint32_t address, uint32_t skip, uint32_t unit) {
    return unit != 0 ? uint64_t{address} + skip - skip % unit : address;
}

}  // namespace

uint32_t norv_linux_emmc_flash_open(norv_emmc_flash_t** flash, const char* path) {
    if (flash == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *flash = nullptr;
    if (path == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    norv_emmc_flash_t* opened = nullptr;
    NORV_TRY(norv::allocate_record(opened));
    const uint32_t status = open_device(opened, path);
    if (status != NORV_STATUS_OK) {
        norv::close_descriptor(opened->descriptor);
        // quirk 144: not norv_free, as in close.
        free(opened);
        return status;
    }
    *flash = opened;
    return NORV_STATUS_OK;
}

void norv_linux_emmc_flash_close(norv_emmc_flash_t** flash) {
    if (!norv::is_open(flash)) {
        return;
    }
    norv_emmc_flash_t* closing = *flash;
    *flash = nullptr;
    norv::close_descriptor(closing->descriptor);
    norv_free(closing);
}

uint32_t norv_linux_emmc_flash_get_info(norv_emmc_flash_t** flash, norv_flash_info_t* info) {
    if (!norv::is_open(flash) || info == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    info->size = (*flash)->size;
    info->erase_block_size = (*flash)->erase_block_size;
    info->write_unit_size = (*flash)->write_unit_size;
    return NORV_STATUS_OK;
}

uint32_t norv_linux_emmc_flash_read(norv_emmc_flash_t** flash, uint32_t address, void* buffer,
                                    uint32_t* length) {
    if (!norv::is_open(flash) || buffer == nullptr || length == nullptr || *length == 0) {
        return NORV_STATUS_INVALID_ARG;
    }
    const ssize_t count = pread((*flash)->descriptor, buffer, *length, static_cast<off_t>(address));
    if (count < 0) {
        return norv::errno_status();
    }
    *length = static_cast<uint32_t>(count);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_emmc_flash_write(norv_emmc_flash_t** flash, uint32_t address, const void* buffer,
                                     uint32_t* length) {
    if (!norv::is_open(flash) || buffer == nullptr || length == nullptr || *length == 0) {
        return NORV_STATUS_INVALID_ARG;
    }
    const ssize_t count = pwrite((*flash)->descriptor, buffer, *length, static_cast<off_t>(address));
    if (count < 0) {
        return norv::errno_status();
    }
    // quirk 150: also if nothing was written.
    *length = static_cast<uint32_t>(count);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_emmc_flash_erase_one_block(norv_emmc_flash_t** flash, uint32_t address) {
    return norv_linux_emmc_flash_erase_first_valid_block(flash, address, nullptr);
}

uint32_t norv_linux_emmc_flash_erase_first_valid_block(norv_emmc_flash_t** flash, uint32_t address,
                                                       uint32_t* end) {
    if (!norv::is_open(flash)) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(check_area(*flash, address, end != nullptr ? *end : address));
    const uint32_t block = (*flash)->erase_block_size;
    uint32_t length = end != nullptr ? norv::round_up(*end - address, block) : block;
    const scoped_memory zeros(norv_zalloc(length));
    // quirk 147: without memory, or if the end equals the address, the write refuses.
    NORV_TRY(norv_linux_emmc_flash_write(flash, address, zeros.get(), &length));
    if (end != nullptr) {
        *end = address + length;
    }
    return NORV_STATUS_OK;
}

uint32_t norv_linux_emmc_flash_continue_erase(norv_emmc_flash_t** flash, uint32_t address, uint32_t length,
                                              norv_flash_cancel_fn cancel, norv_flash_progress_fn progress,
                                              void* user) {
    if (!norv::is_open(flash)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t block = (*flash)->erase_block_size;
    if (!norv::is_aligned(address, block)) {
        return NORV_STATUS_RANGE;
    }
    const uint32_t chunk = norv::chunk_size(norv::round_up(length, block));
    // All chunks share the zeros. quirk 147: without memory for them, the first write refuses.
    const scoped_memory zeros(length != 0 ? norv_zalloc(norv::round_up(chunk, block)) : nullptr);
    return run_chunks({cancel, progress, user, length}, address, &length,
                      [&](uint64_t start, uint32_t remaining, uint32_t* done) {
                          *done = std::min(remaining, chunk);
                          return erase_chunk(flash, start, chunk, zeros.get());
                      });
}

uint32_t norv_linux_emmc_flash_continue_read(norv_emmc_flash_t** flash, uint32_t address, void* buffer,
                                             uint32_t* length, norv_flash_cancel_fn cancel,
                                             norv_flash_progress_fn progress, void* user) {
    if (!norv::is_open(flash) || length == nullptr || (buffer == nullptr && *length != 0)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t total = *length;
    const uint32_t chunk = norv::chunk_size(norv::round_down(total, (*flash)->erase_block_size));
    auto* bytes = static_cast<uint8_t*>(buffer);
    return run_chunks({cancel, progress, user, total}, address, length,
                      [&](uint64_t start, uint32_t remaining, uint32_t* done) {
                          const uint32_t count = std::min(remaining, norv::room_in_chunk(start, chunk));
                          return read_chunk(flash, start, bytes + (total - remaining), count, done);
                      });
}

uint32_t norv_linux_emmc_flash_continue_write_verify(norv_emmc_flash_t** flash, uint32_t address,
                                                     uint32_t skip, const void* data, uint32_t* length,
                                                     norv_flash_cancel_fn cancel,
                                                     norv_flash_progress_fn progress, void* user) {
    if (!norv::is_open(flash) || length == nullptr || (data == nullptr && *length != 0)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t unit = (*flash)->write_unit_size;
    if (!norv::is_aligned(address, unit) || !norv::is_aligned(skip, unit)) {
        return NORV_STATUS_RANGE;
    }
    const uint32_t total = *length;
    const uint32_t chunk = norv::chunk_size(norv::round_down(total, (*flash)->erase_block_size));
    const work_area area(chunk);
    // quirk 154: also for a length of 0.
    if (!area.exists()) {
        return NORV_STATUS_NO_MEMORY;
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    return run_chunks({cancel, progress, user, total}, skip_units(address, skip, unit), length,
                      [&](uint64_t start, uint32_t remaining, uint32_t* done) {
                          return write_chunk(flash, start, bytes + (total - remaining),
                                             norv::plan_chunk_write(start, remaining, chunk), area, done);
                      });
}
