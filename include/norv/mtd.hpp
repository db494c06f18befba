// SPDX-License-Identifier: MIT
/**
 * @file norv/mtd.hpp
 * A partition of raw flash that closes itself. What the functions do, and their statuses, are those of
 * norv_linux_mtd.h; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::mtd partition = norv::mtd::open("/dev/mtd0").value();
 *     partition.erase(0, partition.info().erasesize).value();
 *     if (norv::transferred written = partition.write(0, page); !written.status.ok()) {
 *         std::fprintf(stderr, "%zu bytes: %s\n", written.count, written.status.text());
 *     }
 */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/transfer.hpp"
#include "norv_linux_mtd.h"

namespace norv {

/** An open partition. */
class mtd {
  public:
    /**
     * See `norv_linux_mtd_open`. The path is not a format here: a `%` is part of the name. It need not end
     * with a NUL; a path of more than 255 characters, or one that contains a NUL, is an invalid argument.
     */
    static result<mtd> open(std::string_view path) {
        mtd partition;
        const detail::c_format name(path);
        const status opened =
            partition.device_.open([&](norv_mtd_t* to) { return norv_linux_mtd_open(name.get(), to); });
        return opened.ok() ? result<mtd>(std::move(partition)) : result<mtd>(opened);
    }

    /** The geometry that the partition had when it was opened; zeros after a move. */
    mtd_info_user info() const noexcept { return device_.is_open() ? device_.get()->info : mtd_info_user{}; }
    /** See `norv_linux_mtd_type_is_nand`. */
    bool is_nand() const noexcept { return norv_linux_mtd_type_is_nand(device_.get()); }

    /** See `norv_linux_mtd_erase`. */
    status erase(uint32_t start, uint32_t length) {
        return status(norv_linux_mtd_erase(device_.get(), start, length));
    }
    /** See `norv_linux_mtd_block_isbad`. */
    result<bool> is_bad_block(uint32_t offset) const {
        uint8_t bad = 0;
        const status asked(norv_linux_mtd_block_isbad(device_.get(), offset, &bad));
        return asked.ok() ? result<bool>(bad != 0) : result<bool>(asked);
    }
    /** Marks a block bad, permanently. See `norv_linux_mtd_block_markbad`. */
    status mark_bad_block(uint32_t offset) {
        return status(norv_linux_mtd_block_markbad(device_.get(), offset));
    }

    /**
     * Reads out-of-band bytes of a page. See `norv_linux_mtd_read_oob`: the range is not checked (quirk 130). A
     * buffer of 4 GiB or more is an invalid argument.
     */
    status read_oob(uint32_t start, std::span<std::byte> buffer) const {
        return status(std::in_range<uint32_t>(buffer.size())
                          ? norv_linux_mtd_read_oob(device_.get(), start,
                                                    static_cast<uint32_t>(buffer.size()), buffer.data())
                          : NORV_STATUS_INVALID_ARG);
    }
    /** Writes out-of-band bytes of a page. See `norv_linux_mtd_write_oob`; as for `read_oob`. */
    status write_oob(uint32_t start, std::span<const std::byte> data) {
        return status(std::in_range<uint32_t>(data.size())
                          ? norv_linux_mtd_write_oob(device_.get(), start, static_cast<uint32_t>(data.size()),
                                                     data.data())
                          : NORV_STATUS_INVALID_ARG);
    }

    /**
     * Reads. See `norv_linux_mtd_read`: damaged bytes do not make it fail (quirk 129), and it ends with the
     * partition (quirk 128). After a failed seek it has read nevertheless, elsewhere (quirk 127); the count is
     * not 0 then.
     */
    transferred read(uint32_t offset, std::span<std::byte> buffer) const {
        uint32_t count = 0;
        const status ended(
            norv_linux_mtd_read(device_.get(), offset, most(buffer.size()), buffer.data(), &count));
        return {count, ended};
    }
    /** Writes to erased flash. See `norv_linux_mtd_write`; as for `read`. */
    transferred write(uint32_t offset, std::span<const std::byte> data) {
        uint32_t count = 0;
        const status ended(
            norv_linux_mtd_write(device_.get(), offset, most(data.size()), data.data(), &count));
        return {count, ended};
    }

    /** The descriptor, for requests that this class does not make; -1 after a move. */
    int32_t descriptor() const noexcept { return device_.is_open() ? device_.get()->descriptor : -1; }
    /** The record of the C interface; null after a move. */
    norv_mtd_t* get() noexcept { return device_.get(); }

  private:
    mtd() noexcept = default;

    static uint32_t most(size_t size) noexcept {
        return static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX));
    }

    detail::owned_record<norv_mtd_t, norv_linux_mtd_close> device_;
};

}  // namespace norv
