// SPDX-License-Identifier: MIT
/**
 * @file norv/led.hpp
 * LEDs of the kernel's LED class. What the functions do, and their statuses, are those of norv_linux_led.h.
 *
 *     norv::led alarm("red:alarm");
 *     alarm.set_trigger("timer").value();
 *     alarm.set_delay(100ms, 900ms).value();
 *
 * There is nothing to open or to close: the object holds the name alone, and may be copied.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "norv/status.hpp"
#include "norv/text.hpp"
#include "norv_linux_led.h"

namespace norv {

/** An LED, by its name. */
class led {
  public:
    /**
     * Copies the name, which need not end with a NUL. With a name of more than 228 characters, or one that
     * contains a NUL, all functions return NORV_STATUS_INVALID_ARG.
     */
    explicit led(std::string_view name) noexcept : name_(name) {}

    /**
     * See `norv_linux_led_set_trigger`. A name of more than 255 characters, or one that contains a NUL, is an
     * invalid argument.
     */
    status set_trigger(std::string_view trigger) const {
        const detail::c_string text(trigger);
        return status(norv_linux_led_set_trigger(name_.get(), text.get()));
    }
    /** See `norv_linux_led_set_brightness`. */
    status set_brightness(uint8_t brightness) const {
        return status(norv_linux_led_set_brightness(name_.get(), brightness));
    }
    /** See `norv_linux_led_set_delay`. A time of more than 24 days is an invalid argument. */
    status set_delay(std::chrono::milliseconds on, std::chrono::milliseconds off) const {
        if (!fits(on) || !fits(off)) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(norv_linux_led_set_delay(name_.get(), static_cast<int32_t>(on.count()),
                                               static_cast<int32_t>(off.count())));
    }
    /** See `norv_linux_led_trigger_shot`. */
    status trigger_shot() const { return status(norv_linux_led_trigger_shot(name_.get())); }

  private:
    static bool fits(std::chrono::milliseconds time) noexcept {
        return time.count() >= INT32_MIN && time.count() <= INT32_MAX;
    }

    // A longer name would make a path that is truncated: the path of another file.
    detail::c_string<256 - sizeof "/sys/class/leds//brightness" + 1> name_;
};

}  // namespace norv
