// SPDX-License-Identifier: MIT
/**
 * @file norv/dt.hpp
 * Device-tree overlays. What the functions do, and their statuses, are those of norv_dt.h. The kernel keeps a
 * loaded overlay until it is unloaded: nothing here owns it.
 *
 *     norv::dt::load_overlay("camera", "/lib/firmware/camera.dtbo").value();
 *     bool applied = norv::dt::has_overlay("camera").value();
 *     norv::dt::unload_overlay("camera").value();
 *
 * A name of 209 characters or more, whose paths would be truncated (quirk 6), is an invalid argument, as is a
 * path of 4096 characters or more.
 */
#pragma once

#include <string_view>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_dt.h"

namespace norv::dt {

namespace detail {

// An overlay's name has at most 208 characters.
using overlay_name = norv::detail::c_string<209>;

}  // namespace detail

/** See `norv_dt_load_overlay`. */
inline status load_overlay(std::string_view name, std::string_view path) {
    const detail::overlay_name overlay(name);
    const norv::detail::c_string<4096> file(path);
    return status(norv_dt_load_overlay(overlay.get(), file.get()));
}

/** See `norv_dt_has_overlay`. */
inline result<bool> has_overlay(std::string_view name) {
    const detail::overlay_name overlay(name);
    bool applied = false;
    const status read(norv_dt_has_overlay(overlay.get(), &applied));
    return read.ok() ? result<bool>(applied) : result<bool>(read);
}

/** See `norv_dt_unload_overlay`. */
inline status unload_overlay(std::string_view name) {
    const detail::overlay_name overlay(name);
    return status(norv_dt_unload_overlay(overlay.get()));
}

}  // namespace norv::dt
