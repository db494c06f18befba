// SPDX-License-Identifier: MIT
/**
 * @file norv/one_shot_event.hpp
 * The event of norv_base.h, by which one thread waits for another one. (`norv::event` of norv/loop.hpp calls a
 * handler on a loop.)
 *
 *     norv::one_shot_event done;
 *     std::thread worker([&] { done.set().ignore(); });
 *     norv::status waited = done.wait(2s);  // NORV_STATUS_TIMEOUT: not set within two seconds
 *     worker.join();
 */
#pragma once

#include <cstdint>

#include "norv/status.hpp"
#include "norv/timeout.hpp"
#include "norv_base.h"

namespace norv {

/** An event: one set lets one wait pass. It neither moves nor is copied. */
class one_shot_event {
  public:
    /** See `norv_event_init`. A record of zeros is initialised, too, so nothing depends on its status. */
    one_shot_event() noexcept { norv_event_init(&event_); }
    one_shot_event(const one_shot_event&) = delete;
    one_shot_event& operator=(const one_shot_event&) = delete;
    /** See `norv_event_deinit`. No thread may be waiting. */
    ~one_shot_event() { norv_event_deinit(&event_); }

    /** See `norv_event_set`. */
    status set() noexcept { return status(norv_event_set(&event_)); }
    /** See `norv_event_wait`. */
    status wait(timeout limit) noexcept {
        static_assert(NORV_EVENT_FOREVER == static_cast<uint32_t>(-1));
        return status(norv_event_wait(&event_, static_cast<uint32_t>(limit.ms())));
    }

    /** The record of the C interface. */
    norv_event_t* get() noexcept { return &event_; }

  private:
    norv_event_t event_{};
};

}  // namespace norv
