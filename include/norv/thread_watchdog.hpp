// SPDX-License-Identifier: MIT
/**
 * @file norv/thread_watchdog.hpp
 * The thread watchdog of norv_base.h, which notices when a thread stops reporting.
 *
 *     norv::thread_watchdog watchdog(5s);
 *     std::thread worker([&] { loop.run(watchdog.get(), 1s); });  // reports every second
 *     if (!watchdog.check().ok()) {
 *         std::fputs("the loop hangs\n", stderr);
 *     }
 */
#pragma once

#include <chrono>
#include <cstdint>

#include "norv/status.hpp"
#include "norv/timeout.hpp"
#include "norv_base.h"

namespace norv {

/** A watchdog, which neither moves nor is copied: the watched thread has its address. */
class thread_watchdog {
  public:
    /**
     * Starts the watchdog. See `norv_thread_watchdog_start`.
     *
     * @param limit  the time that may pass between two reports, rounded up to milliseconds
     */
    template <typename representation, typename period>
    explicit thread_watchdog(std::chrono::duration<representation, period> limit) noexcept {
        start(limit);
    }
    thread_watchdog(const thread_watchdog&) = delete;
    thread_watchdog& operator=(const thread_watchdog&) = delete;

    /** Starts it again, with another limit; not while another thread checks it. */
    template <typename representation, typename period>
    void start(std::chrono::duration<representation, period> limit) noexcept {
        norv_thread_watchdog_start(&watchdog_, static_cast<uint32_t>(timeout(limit).ms()));
    }

    /** See `norv_thread_keep_alive`. */
    status keep_alive() noexcept { return status(norv_thread_keep_alive(&watchdog_)); }
    /** See `norv_thread_watchdog_check`. */
    status check() const noexcept { return status(norv_thread_watchdog_check(&watchdog_)); }

    /** The record of the C interface, for `loop::run`. */
    norv_thread_watchdog_t* get() noexcept { return &watchdog_; }

  private:
    norv_thread_watchdog_t watchdog_;
};

}  // namespace norv
