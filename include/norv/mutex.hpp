// SPDX-License-Identifier: MIT
/**
 * @file norv/mutex.hpp
 * The mutex of norv_base.h, for std::lock_guard and std::unique_lock.
 *
 *     norv::mutex mutex;
 *     {
 *         const std::lock_guard lock(mutex);  // throws norv::error, or ends the program, where that fails
 *         ++shared;
 *     }
 *     norv::status locked = mutex.acquire();  // for those who handle a failure
 */
#pragma once

#include "norv/status.hpp"
#include "norv_base.h"

namespace norv {

/** A mutex, which neither moves nor is copied. */
class mutex {
  public:
    /** See `norv_mutex_init`. */
    mutex() noexcept : initialised_(norv_mutex_init(&mutex_)) {}
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;
    /** See `norv_mutex_destroy`. */
    ~mutex() {
        if (initialised_.ok()) {
            norv_mutex_destroy(&mutex_);
        }
    }

    /** Whether `norv_mutex_init` succeeded; if not, the functions below do nothing and return its status. */
    status initialised() const noexcept { return initialised_; }

    /** See `norv_mutex_lock`. */
    status acquire() noexcept { return initialised_.ok() ? status(norv_mutex_lock(&mutex_)) : initialised_; }
    /** See `norv_mutex_unlock`. */
    status release() noexcept {
        return initialised_.ok() ? status(norv_mutex_unlock(&mutex_)) : initialised_;
    }

    /** As `acquire`; a failure is thrown, or ends the program. */
    void lock() { acquire().value(); }
    /** As `release`; a failure ends the program. */
    void unlock() noexcept { release().value(); }

    /** The record of the C interface. */
    norv_mutex_t* get() noexcept { return &mutex_; }

  private:
    norv_mutex_t mutex_;
    status initialised_;
};

}  // namespace norv
