// SPDX-License-Identifier: MIT
/**
 * @file norv/emmc_flash.hpp
 * A block device as a flash, which closes itself. What the functions do, and their statuses, are those of
 * norv_linux_emmc_flash.h; after a move they return NORV_STATUS_INVALID_ARG. The callables of the operations of
 * many steps are described in norv/flash_types.hpp.
 *
 *     norv::emmc_flash flash = norv::emmc_flash::open("/dev/mmcblk0boot0").value();
 *     flash.continue_erase(0, image_size).value();
 *     flash.continue_write_verify(0, 0, image).status.value();
 *
 * The last chunk of an area is erased (quirk 145) and written (quirk 148) whole: bytes past the area are
 * overwritten, unless its address and length are multiples of 128 KiB.
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
#include "norv/text.hpp"
#include "norv/transfer.hpp"
#include "norv_linux_emmc_flash.h"

namespace norv {

/** An open block device. */
class emmc_flash {
  public:
    /**
     * See `norv_linux_emmc_flash_open`. The path need not end with a NUL; one of more than 255 characters, or one
     * that contains a NUL, is an invalid argument.
     */
    static result<emmc_flash> open(std::string_view path) {
        emmc_flash flash;
        const detail::c_string name(path);
        const status opened = flash.flash_.open(
            [&](norv_emmc_flash_t** to) { return norv_linux_emmc_flash_open(to, name.get()); });
        return opened.ok() ? result<emmc_flash>(std::move(flash)) : result<emmc_flash>(opened);
    }

    /** See `norv_linux_emmc_flash_get_info`. */
    result<flash_info> get_info() const {
        return detail::get_flash_info(
            [&](norv_flash_info_t* info) { return norv_linux_emmc_flash_get_info(flash_.address(), info); });
    }

    /** Reads; the count is 0 after a failure. See `norv_linux_emmc_flash_read`. */
    transferred read(uint32_t address, std::span<std::byte> buffer) const {
        return detail::move_once(buffer.size(), [&](uint32_t* length) {
            return norv_linux_emmc_flash_read(flash_.address(), address, buffer.data(), length);
        });
    }
    /** Writes; the count is 0 after a failure. See `norv_linux_emmc_flash_write`. */
    transferred write(uint32_t address, std::span<const std::byte> data) {
        return detail::move_once(data.size(), [&](uint32_t* length) {
            return norv_linux_emmc_flash_write(flash_.address(), address, data.data(), length);
        });
    }

    /** See `norv_linux_emmc_flash_erase_one_block`. */
    status erase_one_block(uint32_t address) {
        return status(norv_linux_emmc_flash_erase_one_block(flash_.address(), address));
    }
    /** Erases everything up to the end. See `norv_linux_emmc_flash_erase_first_valid_block`. */
    flash_erased erase_first_valid_block(uint32_t address, uint32_t end) {
        const status erased(norv_linux_emmc_flash_erase_first_valid_block(flash_.address(), address, &end));
        return {end, erased};
    }

    /** See `norv_linux_emmc_flash_continue_erase`. */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    status continue_erase(uint32_t address, uint32_t length, progress&& on_progress = progress(),
                          cancel&& is_stopped = cancel()) {
        return detail::erase_steps(length, on_progress, is_stopped, [&](auto... watching) {
            return norv_linux_emmc_flash_continue_erase(flash_.address(), address, length, watching...);
        });
    }

    /**
     * See `norv_linux_emmc_flash_continue_read`. The count is what was read, also by an operation that was
     * stopped. A buffer of 4 GiB or more is an invalid argument.
     */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    transferred continue_read(uint32_t address, std::span<std::byte> buffer,
                              progress&& on_progress = progress(), cancel&& is_stopped = cancel()) const {
        return detail::move_steps(buffer.size(), on_progress, is_stopped,
                                  [&](uint32_t* length, auto... watching) {
                                      return norv_linux_emmc_flash_continue_read(
                                          flash_.address(), address, buffer.data(), length, watching...);
                                  });
    }

    /**
     * See `norv_linux_emmc_flash_continue_write_verify`, which compares what the kernel's page cache has
     * (quirk 151). The count is what was written and verified, also by an operation that was stopped. Data of
     * 4 GiB or more is an invalid argument.
     */
    template <typename progress = detail::no_callable, typename cancel = detail::no_callable>
    transferred continue_write_verify(uint32_t address, uint32_t skip, std::span<const std::byte> data,
                                      progress&& on_progress = progress(), cancel&& is_stopped = cancel()) {
        return detail::move_steps(data.size(), on_progress, is_stopped,
                                  [&](uint32_t* length, auto... watching) {
                                      return norv_linux_emmc_flash_continue_write_verify(
                                          flash_.address(), address, skip, data.data(), length, watching...);
                                  });
    }

    /** The handle of the C interface; null after a move. */
    norv_emmc_flash_t* get() const noexcept { return flash_.get(); }

  private:
    emmc_flash() noexcept = default;

    detail::owned_handle<norv_emmc_flash_t, norv_linux_emmc_flash_close> flash_;
};

}  // namespace norv
