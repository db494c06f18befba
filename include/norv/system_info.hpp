// SPDX-License-Identifier: MIT
/**
 * @file norv/system_info.hpp
 * Facts about the running board. See norv_system_info.h.
 *
 *     norv::result<norv_mem_info_t> memory = norv::memory_info();
 *     norv::result<std::chrono::seconds> up = norv::uptime();
 *     if (memory && up) {
 *         std::printf("%d of %d kB available\n", memory->available, memory->total);
 *     }
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_system_info.h"

namespace norv {

/** What a USB host has made of the board. */
enum class usb_periph_state : uint32_t {
    not_configured = NORV_USB_PERIPH_NOT_CONFIGURED,
    configured = NORV_USB_PERIPH_CONFIGURED,
    high_speed = NORV_USB_PERIPH_HIGH_SPEED,
    super_speed = NORV_USB_PERIPH_SUPER_SPEED
};

/** See `norv_get_usb_periph_state`. A name of 256 characters or more is an invalid argument. */
inline result<usb_periph_state> get_usb_periph_state(std::string_view name) {
    uint32_t state = 0;
    const status got(norv_get_usb_periph_state(detail::c_string<>(name).get(), &state));
    return got.ok() ? result<usb_periph_state>(static_cast<usb_periph_state>(state))
                    : result<usb_periph_state>(got);
}

/** See `norv_get_mem_info`; if one of the five figures is missing, there are none. */
inline result<norv_mem_info_t> memory_info() {
    norv_mem_info_t info{};
    const status got(norv_get_mem_info(&info));
    return got.ok() ? result<norv_mem_info_t>(info) : result<norv_mem_info_t>(got);
}

/** See `norv_get_uptime`. */
inline result<std::chrono::seconds> uptime() {
    uint32_t seconds = 0;
    const status got(norv_get_uptime(&seconds));
    return got.ok() ? result<std::chrono::seconds>(std::chrono::seconds(seconds))
                    : result<std::chrono::seconds>(got);
}

/** See `norv_get_mmc_size`: millions of bytes; wrong for a card of 1 TiB or more (quirk 104). */
inline result<uint32_t> mmc_megabytes(uint32_t index) {
    uint32_t megabytes = 0;
    const status got(norv_get_mmc_size(index, &megabytes));
    return got.ok() ? result<uint32_t>(megabytes) : result<uint32_t>(got);
}

}  // namespace norv
