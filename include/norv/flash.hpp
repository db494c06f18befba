// SPDX-License-Identifier: MIT
/**
 * @file norv/flash.hpp
 * A flash of either kind, which closes itself. What the functions do, and their statuses, are those of
 * norv_linux_flash.h; after a move they return NORV_STATUS_INVALID_ARG. The callables of the operations of many
 * steps are described in norv/flash_types.hpp.
 *
 *     norv::flash flash = norv::flash::open_emmc("/dev/mmcblk0boot0").value();
 *     norv::flash_erased erased = flash.continue_erase(0, image_size, area_end);
 *     if (erased.status.ok()) {
 *         flash.continue_write_verify(0, 0, image, erased.end).status.value();
 *     }
 *
 * What norv/spi_flash.hpp and norv/emmc_flash.hpp say of quirks holds here, too. An operation on an eMMC ignores
 * the end, and returns it (quirk 156).
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "norv/flash_types.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/spi_flash.hpp"
#include "norv/text.hpp"
#include "norv/transfer.hpp"
#include "norv_linux_flash.h"

namespace norv {

/** An open flash. */
class flash {
  public:
    enum class kind : uint32_t { none = 0, spi = NORV_FLASH_KIND_SPI, emmc = NORV_FLASH_KIND_EMMC };

    /** Opens the SPI flash. See `norv_linux_flash_open`. */
    static result<flash> open_spi() { return open({NORV_FLASH_KIND_SPI, nullptr}); }
    /**
     * Opens an eMMC. The path need not end with a NUL; one of more than 255 characters, or one that contains a
     * NUL, is an invalid argument.
     */
    static result<flash> open_emmc(std::string_view path) {
        const detail::c_string name(path);
        return open({NORV_FLASH_KIND_EMMC, name.get()});
    }

    /** Which flash was opened; none after a move. */
    kind get_kind() const noexcept {
        return flash_.is_open() ? static_cast<kind>(flash_.get()->kind) : kind::none;
    }
    /** See `norv_linux_flash_get_info`. */
    result<flash_info> get_info() {
        return detail::get_flash_info(
            [&](norv_flash_info_t* info) { return norv_linux_flash_get_info(flash_.get(), info); });
    }

    /** The regions of an SPI flash, in the order of their addresses; an eMMC has none. */
    std::span<const norv_spi_flash_region_t> regions() const noexcept {
        return detail::regions_of(get_kind() == kind::spi ? flash_.get()->backend.spi : nullptr);
    }

    /** Reads; the count is 0 after a failure. See `norv_linux_flash_read`. */
    transferred read(uint32_t address, std::span<std::byte> buffer) {
        return detail::move_once(buffer.size(), [&](uint32_t* length) {
            return norv_linux_flash_read(flash_.get(), address, buffer.data(), length);
        });
    }
    /** Writes; the count is 0 after a failure. See `norv_linux_flash_write`. */
    transferred write(uint32_t address, std::span<const std::byte> data) {
        return detail::move_once(data.size(), [&](uint32_t* length) {
            return norv_linux_flash_write(flash_.get(), address, data.data(), length);
        });
    }

    /** See `norv_linux_flash_erase_one_block`. */
    status erase_one_block(uint32_t address) {
        return status(norv_linux_flash_erase_one_block(flash_.get(), address));
    }
    /** See `norv_linux_flash_erase_first_valid_block`. On an eMMC, erases everything up to the end. */
    flash_erased erase_first_valid_block(uint32_t address, uint32_t end) {
        const status erased(norv_linux_flash_erase_first_valid_block(flash_.get(), address, &end));
        return {end, erased};
    }

    /** See `norv_linux_flash_continue_erase`. */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    flash_erased continue_erase(uint32_t address, uint32_t length, uint32_t end,
                                progress&& on_progress = progress(), cancel&& is_stopped = cancel()) {
        const status erased = detail::erase_steps(length, on_progress, is_stopped, [&](auto... watching) {
            return norv_linux_flash_continue_erase(flash_.get(), address, length, &end, watching...);
        });
        return {end, erased};
    }

    /** See `norv_linux_flash_continue_read`. A buffer of 4 GiB or more is an invalid argument. */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    transferred continue_read(uint32_t address, std::span<std::byte> buffer,
                              progress&& on_progress = progress(), cancel&& is_stopped = cancel()) {
        return detail::move_steps(buffer.size(), on_progress, is_stopped,
                                  [&](uint32_t* length, auto... watching) {
                                      return norv_linux_flash_continue_read(
                                          flash_.get(), address, buffer.data(), length, watching...);
                                  });
    }

    /** See `norv_linux_flash_continue_write_verify`. Data of 4 GiB or more is an invalid argument. */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    flash_written continue_write_verify(uint32_t address, uint32_t skip, std::span<const std::byte> data,
                                        uint32_t end, progress&& on_progress = progress(),
                                        cancel&& is_stopped = cancel()) {
        if (get_kind() == kind::spi && !detail::starts_write_unit(*flash_.get()->backend.spi, address)) {
            return {0, end, status(NORV_STATUS_RANGE)};
        }
        const transferred written =
            detail::move_steps(data.size(), on_progress, is_stopped, [&](uint32_t* length, auto... watching) {
                return norv_linux_flash_continue_write_verify(flash_.get(), address, skip, data.data(),
                                                              length, &end, watching...);
            });
        return {written.count, end, written.status};
    }

    /** The record of the C interface; null after a move. */
    norv_flash_t* get() noexcept { return flash_.get(); }

  private:
    flash() noexcept = default;

    static result<flash> open(const norv_flash_config_t& config) {
        flash opening;
        const status opened =
            opening.flash_.open([&](norv_flash_t* to) { return norv_linux_flash_open(&config, to); });
        return opened.ok() ? result<flash>(std::move(opening)) : result<flash>(opened);
    }

    detail::owned_record<norv_flash_t, norv_linux_flash_close> flash_;
};

}  // namespace norv
