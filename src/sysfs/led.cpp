// SPDX-License-Identifier: MIT
// LEDs through /sys/class/leds.
#include "norv_linux_led.h"

#include <cstdio>
#include <cstring>

#include "core/status.hpp"
#include "norv_file.h"

namespace {

// quirk 40: how much was written is not checked.
uint32_t write_text(const char* name, const char* attribute, const char* text) {
    if (name == nullptr || text == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    auto length = static_cast<uint32_t>(strlen(text) + 1);
    return norv_write_device(text, &length, "/sys/class/leds/%s/%s", name, attribute);
}

uint32_t write_number(const char* name, const char* attribute, int32_t number) {
    char text[12];
    snprintf(text, sizeof text, "%d", number);
    return write_text(name, attribute, text);
}

}  // namespace

uint32_t norv_linux_led_set_trigger(const char* name, const char* trigger) {
    return write_text(name, "trigger", trigger);
}

uint32_t norv_linux_led_set_brightness(const char* name, int32_t brightness) {
    // quirk 39: callers pass 256 to turn the LED off and -1 for full brightness.
    return write_number(name, "brightness", static_cast<uint8_t>(brightness));
}

uint32_t norv_linux_led_set_delay(const char* name, int32_t on, int32_t off) {
    NORV_TRY(write_number(name, "delay_on", on));
    return write_number(name, "delay_off", off);
}

uint32_t norv_linux_led_trigger_shot(const char* name) {
    return write_text(name, "shot", "1");
}
