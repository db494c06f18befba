// SPDX-License-Identifier: MIT
/**
 * @file norv/pwm.hpp
 * A PWM channel that closes itself. What the functions do, and their statuses, are those of norv_linux_pwm.h;
 * after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::pwm fan = norv::pwm::open(0, 2).value();
 *     fan.set_period(40us).value();
 *     fan.set_duty(10us).value();
 *     fan.enable(true).value();
 *     std::this_thread::sleep_for(10s);
 *     fan.enable(false).value();
 *
 * The end of the object unexports the channel, even one that another process has exported (quirk 41), unless
 * `keep_exported` was called; it does not stop the signal (quirk 42).
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv_linux_pwm.h"

namespace norv {

namespace detail {

// A channel, and what becomes of its export at the end.
struct pwm_channel : norv_linux_pwm_t {
    bool stays_exported = false;
};

inline void close_pwm_channel(pwm_channel* channel) noexcept {
    if (!channel->stays_exported) {
        norv_linux_pwm_close(channel);
    }
}

}  // namespace detail

/** An open PWM channel. */
class pwm {
  public:
    enum class polarity { normal, inversed };
    /** What `get_capture` measured. */
    struct capture {
        std::chrono::nanoseconds period;
        std::chrono::nanoseconds duty;
    };

    /** See `norv_linux_pwm_open`. */
    static result<pwm> open(uint32_t chip, uint32_t channel) {
        pwm opening;
        const status opened =
            opening.channel_.open([&](auto* to) { return norv_linux_pwm_open(chip, channel, to); });
        return opened.ok() ? result<pwm>(std::move(opening)) : result<pwm>(opened);
    }

    /** The number of channels of a chip. See `norv_linux_pwm_get_nchannel`: 12 for 128 (quirk 46). */
    static result<uint32_t> get_channel_count(uint32_t chip) {
        uint32_t count = 0;
        const status read(norv_linux_pwm_get_nchannel(chip, &count));
        return read.ok() ? result<uint32_t>(count) : result<uint32_t>(read);
    }

    /** See `norv_linux_pwm_enable`. */
    status enable(bool running) { return status(norv_linux_pwm_enable(channel_.get(), running)); }
    /**
     * See `norv_linux_pwm_set_period`. A period that is negative, or 2^31 nanoseconds or more, is an invalid
     * argument, and nothing is written.
     */
    status set_period(std::chrono::nanoseconds period) { return set(norv_linux_pwm_set_period, period); }
    /** See `norv_linux_pwm_set_duty`. The limits are those of `set_period`. */
    status set_duty(std::chrono::nanoseconds duty) { return set(norv_linux_pwm_set_duty, duty); }
    /** See `norv_linux_pwm_set_polarity`. */
    status set_polarity(polarity wanted) {
        return status(norv_linux_pwm_set_polarity(channel_.get(), wanted == polarity::inversed));
    }
    /** See `norv_linux_pwm_get_capture`. A text without numbers counts as two zeros (quirk 48). */
    result<capture> get_capture() {
        uint32_t period = 0;
        uint32_t duty = 0;
        const status read(norv_linux_pwm_get_capture(channel_.get(), &period, &duty));
        return read.ok() ? result<capture>(
                               capture{std::chrono::nanoseconds(period), std::chrono::nanoseconds(duty)})
                         : result<capture>(read);
    }

    /** Whether the channel stays exported at the end of the object. At first it does not. */
    void keep_exported(bool keep) noexcept {
        if (detail::pwm_channel* const channel = channel_.get()) {
            channel->stays_exported = keep;
        }
    }

    /** The record of the C interface; null after a move. */
    norv_linux_pwm_t* get() noexcept { return channel_.get(); }

  private:
    pwm() noexcept = default;

    // The C functions would write 2^31 and more as a negative number, and of longer times the low 32 bits.
    status set(uint32_t (*write)(norv_linux_pwm_t* channel, uint32_t time), std::chrono::nanoseconds time) {
        if (time.count() < 0 || time.count() > INT32_MAX) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(write(channel_.get(), static_cast<uint32_t>(time.count())));
    }

    detail::owned_record<detail::pwm_channel, detail::close_pwm_channel> channel_;
};

}  // namespace norv
