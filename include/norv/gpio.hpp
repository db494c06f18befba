// SPDX-License-Identifier: MIT
/**
 * @file norv/gpio.hpp
 * A GPIO line that closes itself. What the functions do, and their statuses, are those of norv_linux_gpio.h;
 * after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::gpio button = norv::gpio::open(17).value();
 *     button.set_direction(norv::gpio::direction::input).value();
 *     button.set_edge(norv::gpio::edge::rising).value();
 *     button.get_value().value();  // or the first wait returns at once
 *     if (button.wait_edge(1s).ok()) {
 *         bool pressed = button.get_value().value();
 *     }
 *
 * In a task:
 *
 *     norv::gpio_edges edges(button);
 *     while (norv::result<bool> level = co_await edges.next()) {
 *         ...
 *     }
 */
#pragma once

#include <sys/epoll.h>
#include <unistd.h>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/timeout.hpp"
#include "norv/wait.hpp"
#include "norv_linux_gpio.h"

namespace norv {

namespace detail {

// A line, and what becomes of its export at the end.
struct gpio_line : norv_linux_gpio_t {
    bool stays_exported = false;
};

inline void close_gpio_line(gpio_line* line) noexcept {
    if (!line->stays_exported) {
        norv_linux_gpio_close(line);
    } else if (line->value_descriptor > 0) {
        ::close(line->value_descriptor);
    }
}

}  // namespace detail

/** An open GPIO line. */
class gpio {
  public:
    enum class direction { input, output };
    enum class edge : uint32_t {
        none = NORV_LINUX_GPIO_EDGE_NONE,
        rising = NORV_LINUX_GPIO_EDGE_RISING,
        falling = NORV_LINUX_GPIO_EDGE_FALLING,
        both = NORV_LINUX_GPIO_EDGE_BOTH
    };

    /** See `norv_linux_gpio_open`. */
    static result<gpio> open(uint32_t number) {
        gpio line;
        const status opened = line.line_.open([&](auto* to) { return norv_linux_gpio_open(number, to); });
        return opened.ok() ? result<gpio>(std::move(line)) : result<gpio>(opened);
    }

    /** See `norv_linux_gpio_set_dir`. */
    status set_direction(direction wanted) {
        return status(norv_linux_gpio_set_dir(line_.get(), wanted == direction::output));
    }
    /** See `norv_linux_gpio_set_irq`. */
    status set_edge(edge wanted) {
        return status(norv_linux_gpio_set_irq(line_.get(), static_cast<uint32_t>(wanted)));
    }
    /** See `norv_linux_gpio_set_active_low`. */
    status set_active_low(bool active_low) {
        return status(norv_linux_gpio_set_active_low(line_.get(), active_low));
    }
    /** See `norv_linux_gpio_set_value`. */
    status set_value(bool value) { return status(norv_linux_gpio_set_value(line_.get(), value)); }
    /** See `norv_linux_gpio_get_value`. */
    result<bool> get_value() {
        uint8_t value = 0;
        const status read(norv_linux_gpio_get_value(line_.get(), &value));
        return read.ok() ? result<bool>(value != 0) : result<bool>(read);
    }
    /** See `norv_linux_gpio_wait_irq`. */
    status wait_edge(timeout limit) {
        return status(norv_linux_gpio_wait_irq(line_.get(), static_cast<uint32_t>(limit.ms())));
    }

    /**
     * Whether the line stays exported at the end of the object, with its direction and level; only its descriptor
     * is closed then. At first it does not.
     */
    void keep_exported(bool keep) noexcept {
        if (detail::gpio_line* const line = line_.get()) {
            line->stays_exported = keep;
        }
    }

    /** The descriptor, for EPOLLPRI; -1 after a move. */
    int32_t descriptor() const noexcept { return line_.is_open() ? norv_linux_gpio_get_fd(line_.get()) : -1; }
    /** The record of the C interface; null after a move. */
    norv_linux_gpio_t* get() noexcept { return line_.get(); }

  private:
    gpio() noexcept = default;

    detail::owned_record<detail::gpio_line, detail::close_gpio_line> line_;
};

/** The edges of a line, for a task; the line must outlive it, and not move. */
class gpio_edges {
  public:
    explicit gpio_edges(gpio& line) : line_(line), ready_(line.descriptor()) {}

    /** Waits for the next edge; `co_await` returns a `result<bool>`, the level at that time. */
    auto next() {
        return ready_.wait(EPOLLPRI, [this](const result<uint32_t>& ready) {
            return ready ? line_.get_value() : result<bool>(ready.status());
        });
    }

  private:
    gpio& line_;
    readiness ready_;
};

}  // namespace norv
