// SPDX-License-Identifier: MIT
// GPIO lines through /sys/class/gpio.
#include "norv_linux_gpio.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstddef>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/layout.hpp"
#include "core/poll.hpp"
#include "core/status.hpp"

NORV_OFFSETS(norv_linux_gpio_t, 8, number, 0, value_descriptor, 4);

namespace {

constexpr const char* edge_names[] = {"none", "rising", "falling", "both"};

// Numbers are printed signed: quirk 2.
bool is_exported(uint32_t number) {
    return norv::is_directory(norv::file_path("/sys/class/gpio/gpio%d", number).text());
}

norv::file_path line_attribute(const norv_linux_gpio_t* gpio, const char* name) {
    if (gpio == nullptr) {
        return {};
    }
    return {"/sys/class/gpio/gpio%d/%s", gpio->number, name};
}

uint32_t write_global(const char* name, uint32_t number) {
    return norv::write_number({"/sys/class/gpio/%s", name}, static_cast<int32_t>(number));
}

const char* digit(bool value) {
    return value ? "1" : "0";
}

uint32_t export_and_open(norv_linux_gpio_t* gpio) {
    if (!is_exported(gpio->number)) {
        NORV_TRY(write_global("export", gpio->number));
    }
    return norv::open_file(O_RDWR | O_CLOEXEC, line_attribute(gpio, "value"), &gpio->value_descriptor);
}

}  // namespace

uint32_t norv_linux_gpio_open(uint32_t number, norv_linux_gpio_t* gpio) {
    if (gpio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *gpio = {number, -1};
    const uint32_t status = export_and_open(gpio);
    if (status != NORV_STATUS_OK) {
        // quirk 38: the line stays exported.
        norv::close_descriptor(gpio->value_descriptor);
    }
    return status;
}

void norv_linux_gpio_close(norv_linux_gpio_t* gpio) {
    if (gpio == nullptr) {
        return;
    }
    // quirk 34: callers rely on a closed line being free, whoever exported it.
    // quirk 35, quirk 36: a record of zeros denotes line 0, and a closed one still its line.
    if (is_exported(gpio->number)) {
        write_global("unexport", gpio->number);
    }
    norv::close_descriptor(gpio->value_descriptor);
}

int32_t norv_linux_gpio_get_fd(const norv_linux_gpio_t* gpio) {
    return gpio->value_descriptor;
}

uint32_t norv_linux_gpio_set_dir(norv_linux_gpio_t* gpio, bool output) {
    return norv::write_text(line_attribute(gpio, "direction"), output ? "out" : "in");
}

uint32_t norv_linux_gpio_set_irq(norv_linux_gpio_t* gpio, uint32_t edge) {
    if (edge > NORV_LINUX_GPIO_EDGE_BOTH) {
        return NORV_STATUS_INVALID_ARG;
    }
    return norv::write_text(line_attribute(gpio, "edge"), edge_names[edge]);
}

uint32_t norv_linux_gpio_set_active_low(norv_linux_gpio_t* gpio, bool active_low) {
    return norv::write_text(line_attribute(gpio, "active_low"), digit(active_low));
}

uint32_t norv_linux_gpio_set_value(norv_linux_gpio_t* gpio, bool value) {
    if (gpio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // Not formatted: drivers toggle lines with this call, and formatting would cost a tenth of the write.
    return norv::status_of(write(gpio->value_descriptor, digit(value), 2));
}

uint32_t norv_linux_gpio_get_value(norv_linux_gpio_t* gpio, uint8_t* value) {
    if (gpio == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    char text[2] = {};
    NORV_TRY(norv::rewind_and_read(gpio->value_descriptor, text, sizeof text));
    if (value != nullptr) {
        *value = text[0] == '1' ? 1 : 0;
    }
    return NORV_STATUS_OK;
}

uint32_t norv_linux_gpio_wait_irq(norv_linux_gpio_t* gpio, uint32_t timeout) {
    // quirk 37: neither a closed handle nor the error condition of an unexported line is a failure.
    return gpio == nullptr ? NORV_STATUS_INVALID_ARG
                           : norv::wait_for(gpio->value_descriptor, POLLPRI, static_cast<int32_t>(timeout));
}
