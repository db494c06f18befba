// SPDX-License-Identifier: MIT
/**
 * @file norv/spi_flash.hpp
 * The SPI flash of a board, which closes itself. What the functions do, and their statuses, are those of
 * norv_linux_spi_flash.h; after a move they return NORV_STATUS_INVALID_ARG. The callables of the operations of
 * many steps are described in norv/flash_types.hpp.
 *
 *     norv::spi_flash flash = norv::spi_flash::open().value();
 *     norv::flash_erased erased = flash.continue_erase(start, area_end - start, area_end);
 *     if (erased.status.ok()) {
 *         flash.continue_write_verify(start, 0, image, erased.end).status.value();
 *     }
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "norv/flash_types.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/transfer.hpp"
#include "norv_linux_spi_flash.h"

namespace norv {

namespace detail {

// The regions of a flash; none of a null pointer.
inline std::span<const norv_spi_flash_region_t> regions_of(const norv_spi_flash_t* flash) noexcept {
    return flash != nullptr ? std::span<const norv_spi_flash_region_t>(
                                  flash->regions, static_cast<size_t>(flash->region_count))
                            : std::span<const norv_spi_flash_region_t>();
}

// Whether a write may start at an address. The C function refuses another one, too, but then leaks its memory.
inline bool starts_write_unit(const norv_spi_flash_t& flash, uint32_t address) noexcept {
    for (int32_t index = 0; index < flash.region_count; ++index) {
        const norv_spi_flash_region_t& region = flash.regions[index];
        if (address < region.base + region.device.info.size) {
            const uint32_t unit = region.device.info.writesize;
            return unit != 0 && (address - region.base) % unit == 0;
        }
    }
    return true;
}

}  // namespace detail

/** The open SPI flash. */
class spi_flash {
  public:
    /** See `norv_linux_spi_flash_open`. */
    static result<spi_flash> open() {
        spi_flash flash;
        const status opened =
            flash.flash_.open([](norv_spi_flash_t** to) { return norv_linux_spi_flash_open(to); });
        return opened.ok() ? result<spi_flash>(std::move(flash)) : result<spi_flash>(opened);
    }

    /** See `norv_linux_spi_flash_get_info`. The sizes are those of the first region (quirk 134). */
    result<flash_info> get_info() const {
        return detail::get_flash_info(
            [&](norv_flash_info_t* info) { return norv_linux_spi_flash_get_info(flash_.address(), info); });
    }
    /** The regions, in the order of their addresses; none after a move. */
    std::span<const norv_spi_flash_region_t> regions() const noexcept {
        return detail::regions_of(flash_.get());
    }

    /** Reads up to the end of the region; the count is 0 after a failure. See `norv_linux_spi_flash_read`. */
    transferred read(uint32_t address, std::span<std::byte> buffer) const {
        return detail::move_once(buffer.size(), [&](uint32_t* length) {
            return norv_linux_spi_flash_read(flash_.address(), address, buffer.data(), length);
        });
    }
    /** Writes up to the end of the region; the count is 0 after a failure. See `norv_linux_spi_flash_write`. */
    transferred write(uint32_t address, std::span<const std::byte> data) {
        return detail::move_once(data.size(), [&](uint32_t* length) {
            return norv_linux_spi_flash_write(flash_.address(), address, data.data(), length);
        });
    }

    /** See `norv_linux_spi_flash_erase_one_block`. A NAND block may be marked bad (quirk 136). */
    status erase_one_block(uint32_t address) {
        return status(norv_linux_spi_flash_erase_one_block(flash_.address(), address));
    }
    /** See `norv_linux_spi_flash_erase_first_valid_block`. NAND blocks may be marked bad (quirk 135). */
    flash_erased erase_first_valid_block(uint32_t address, uint32_t end) {
        const status erased(norv_linux_spi_flash_erase_first_valid_block(flash_.address(), address, &end));
        return {end, erased};
    }

    /**
     * See `norv_linux_spi_flash_continue_erase`. NAND blocks may be marked bad (quirk 135); that the end was
     * reached before the length is a success (quirk 138).
     */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    flash_erased continue_erase(uint32_t address, uint32_t length, uint32_t end,
                                progress&& on_progress = progress(), cancel&& is_stopped = cancel()) {
        if (!flash_.is_open()) {
            return {end, status(NORV_STATUS_INVALID_ARG)};
        }
        const status erased = detail::erase_steps(length, on_progress, is_stopped, [&](auto... watching) {
            return norv_linux_spi_flash_continue_erase(flash_.address(), address, length, &end, watching...);
        });
        return {end, erased};
    }

    /**
     * See `norv_linux_spi_flash_continue_read`. The count is what was read, also by an operation that was
     * stopped, and by one that reached the end of the flash, which is a success (quirk 139). A buffer of 4 GiB or
     * more is an invalid argument.
     */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    transferred continue_read(uint32_t address, std::span<std::byte> buffer,
                              progress&& on_progress = progress(), cancel&& is_stopped = cancel()) const {
        if (!flash_.is_open()) {
            return {0, status(NORV_STATUS_INVALID_ARG)};
        }
        return detail::move_steps(buffer.size(), on_progress, is_stopped,
                                  [&](uint32_t* length, auto... watching) {
                                      return norv_linux_spi_flash_continue_read(
                                          flash_.address(), address, buffer.data(), length, watching...);
                                  });
    }

    /**
     * See `norv_linux_spi_flash_continue_write_verify`. A block that starts before the end is written up to its
     * own end (quirk 141). A misaligned address is refused first, so no memory leaks (quirk 140). Data of 4 GiB
     * or more is an invalid argument.
     */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    flash_written continue_write_verify(uint32_t address, uint32_t skip, std::span<const std::byte> data,
                                        uint32_t end, progress&& on_progress = progress(),
                                        cancel&& is_stopped = cancel()) {
        if (!flash_.is_open()) {
            return {0, end, status(NORV_STATUS_INVALID_ARG)};
        }
        if (!detail::starts_write_unit(*flash_.get(), address)) {
            return {0, end, status(NORV_STATUS_RANGE)};
        }
        const transferred written =
            detail::move_steps(data.size(), on_progress, is_stopped, [&](uint32_t* length, auto... watching) {
                return norv_linux_spi_flash_continue_write_verify(flash_.address(), address, skip,
                                                                  data.data(), length, &end, watching...);
            });
        return {written.count, end, written.status};
    }

    /** The handle of the C interface; null after a move. */
    norv_spi_flash_t* get() const noexcept { return flash_.get(); }

  private:
    spi_flash() noexcept = default;

    detail::owned_handle<norv_spi_flash_t, norv_linux_spi_flash_close> flash_;
};

}  // namespace norv
