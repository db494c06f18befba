// SPDX-License-Identifier: MIT
// LEDs through /sys/class/leds.
#include "norv_linux_led.h"

#include "core/attribute.hpp"
#include "core/status.hpp"

namespace {

// quirk 40: how much is written to it is not checked.
norv::file_path led_attribute(const char* name, const char* attribute) {
    if (name == nullptr) {
        return {};
    }
    return {"/sys/class/leds/%s/%s", name, attribute};
}

}  // namespace

uint32_t norv_linux_led_set_trigger(const char* name, const char* trigger) {
    return norv::write_text(led_attribute(name, "trigger"), trigger);
}

uint32_t norv_linux_led_set_brightness(const char* name, int32_t brightness) {
    // quirk 39: callers pass 256 to turn the LED off and -1 for full brightness.
    return norv::write_number(led_attribute(name, "brightness"), static_cast<uint8_t>(brightness));
}

uint32_t norv_linux_led_set_delay(const char* name, int32_t on, int32_t off) {
    NORV_TRY(norv::write_number(led_attribute(name, "delay_on"), on));
    return norv::write_number(led_attribute(name, "delay_off"), off);
}

uint32_t norv_linux_led_trigger_shot(const char* name) {
    return norv::write_text(led_attribute(name, "shot"), "1");
}
