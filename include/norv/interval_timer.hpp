// SPDX-License-Identifier: MIT
/**
 * @file norv/interval_timer.hpp
 * Interval timers: kernel timers with an absolute alarm and a period, in ticks of 100 ns; alone
 * (`interval_timer`, norv_linux_timer.h), or with a handler on a loop (`timer_fd`, norv_epoll.h). What the
 * functions do, and their statuses, are those of these headers; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::interval_timer timer = norv::interval_timer::open().value();
 *     timer.set_alarm(norv::monotonic_clock::now() + 2s, 10ms).value();
 *
 *     norv::timer_fd sample([&] { read_sensor(); });
 *     sample.start(loop).value();
 *     sample.set_periodic(100us).value();
 *
 * In a task:
 *
 *     norv::interval_alarms alarms(timer);
 *     while ((co_await alarms.next()).ok()) {
 *         ...
 *     }
 */
#pragma once

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ratio>
#include <utility>

#include "norv/clock.hpp"
#include "norv/loop.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/wait.hpp"
#include "norv_base.h"
#include "norv_epoll.h"
#include "norv_linux_timer.h"

namespace norv {

/** Durations in ticks of 100 ns; those in microseconds and longer units become ticks by themselves. */
using ticks = std::chrono::duration<int64_t, std::ratio<1, NORV_LINUX_TIMER_TICKS_PER_SECOND>>;

/** A time of an alarm. Those of `monotonic_clock` become one by themselves. */
using alarm_time = std::chrono::time_point<monotonic_clock, ticks>;

namespace detail {

inline status set_alarm_time(norv_linux_timer_t* timer, int64_t time, int64_t period) {
    return status(
        norv_linux_timer_set_alarm_time(timer, static_cast<uint64_t>(time), static_cast<uint64_t>(period)));
}

// The alarms of an owner whose `get` returns the timer.
template <typename owner>
class alarms {
  public:
    /**
     * Sets the first alarm, and the period of further ones; a period of 0: one alarm only. See
     * `norv_linux_timer_set_alarm_time`. A time of 0 or less has passed, too. A negative period is an invalid
     * argument.
     */
    status set_alarm(alarm_time first, ticks period = ticks(0)) {
        // The C function takes 0 for another request.
        const int64_t time = std::max<int64_t>(first.time_since_epoch().count(), 1);
        return period.count() < 0 ? status(NORV_STATUS_INVALID_ARG)
                                  : set_alarm_time(timer(), time, period.count());
    }
    /** Sets periodic alarms, the first one period from now. A period of 0 or less is an invalid argument. */
    status set_periodic(ticks period) {
        return period.count() <= 0 ? status(NORV_STATUS_INVALID_ARG)
                                   : set_alarm_time(timer(), 0, period.count());
    }
    /** Sets no alarm any more. */
    status disarm() { return set_alarm_time(timer(), 0, 0); }

  private:
    norv_linux_timer_t* timer() noexcept { return static_cast<owner*>(this)->get(); }
};

}  // namespace detail

/** An open timer. */
class interval_timer : public detail::alarms<interval_timer> {
  public:
    /** See `norv_linux_timer_open`. */
    static result<interval_timer> open() {
        interval_timer timer;
        const status opened = timer.timer_.open(norv_linux_timer_open);
        return opened.ok() ? result<interval_timer>(std::move(timer)) : result<interval_timer>(opened);
    }

    /** The time of the clock of the alarms. See `norv_linux_timer_get_time`. */
    static result<alarm_time> now() {
        uint64_t time = 0;
        const status read(norv_linux_timer_get_time(nullptr, &time));
        return read.ok() ? result<alarm_time>(alarm_time(ticks(static_cast<int64_t>(time))))
                         : result<alarm_time>(read);
    }

    /**
     * See `norv_linux_timer_clear_event`.
     *
     * @retval NORV_STATUS_AGAIN  the timer has not expired
     */
    status clear() {
        if (!timer_.is_open()) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return norv_linux_timer_clear_event(timer_.get()) >= 0
                   ? ok
                   : status(norv_get_status_by_errno(static_cast<uint32_t>(errno)));
    }

    /** The descriptor, for EPOLLIN; -1 after a move. */
    int32_t descriptor() const noexcept { return timer_.is_open() ? timer_.get()->descriptor : -1; }
    /** The record of the C interface; null after a move. */
    norv_linux_timer_t* get() noexcept { return timer_.get(); }

  private:
    interval_timer() noexcept = default;

    detail::owned_record<norv_linux_timer_t, norv_linux_timer_close> timer_;
};

/** The alarms of a timer, for a task; the timer must outlive it, and not move. */
class interval_alarms {
  public:
    explicit interval_alarms(interval_timer& timer) : timer_(timer), ready_(timer.descriptor()) {}

    /**
     * Waits for the next alarm and clears it; `co_await` returns a `status`. However often the timer has expired
     * since the last one, this is one alarm.
     */
    auto next() {
        return ready_.wait(EPOLLIN, [this](const result<uint32_t>& ready) {
            return ready ? timer_.clear() : ready.status();
        });
    }

  private:
    interval_timer& timer_;
    readiness ready_;
};

/**
 * The operations by which code that does not know this family drives a timer. See `norv_linux_timer_mgr_open`.
 * The timer must not move while this object exists, which neither moves nor is copied.
 */
class interval_timer_manager {
  public:
    explicit interval_timer_manager(interval_timer& timer)
        : manager_{}, opened_(norv_linux_timer_mgr_open(timer.get(), &manager_)) {}
    interval_timer_manager(const interval_timer_manager&) = delete;
    interval_timer_manager& operator=(const interval_timer_manager&) = delete;
    ~interval_timer_manager() {
        if (opened_.ok()) {
            manager_.release(&manager_);
        }
    }

    /** The status of `norv_linux_timer_mgr_open`. */
    status opened() const noexcept { return opened_; }
    /** The operations; null if there are none. */
    norv_linux_timer_mgr_t* get() noexcept { return opened_.ok() ? &manager_ : nullptr; }

  private:
    norv_linux_timer_mgr_t manager_;
    status opened_;
};

/**
 * Calls its handler, `void()`, after the alarms of an interval timer of its own: a registration, as those of
 * norv/loop.hpp. However often the timer expires before the loop handles it, the handler is called once.
 */
template <typename function = callback<void()>>
class timer_fd : private norv_epoll_timer_fd_t, public detail::alarms<timer_fd<function>> {
  public:
    explicit timer_fd(function called) : norv_epoll_timer_fd_t{}, handler_(std::move(called)) {
        callback = handle;
    }
    timer_fd(const timer_fd&) = delete;
    timer_fd& operator=(const timer_fd&) = delete;
    ~timer_fd() { stop(); }

    /** Creates the timer, without an alarm. See `norv_epoll_timer_fd_create`. */
    status start(const norv::loop& on) {
        stop();
        if (on.state() == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        share_.take(on.state());
        const status created(norv_epoll_timer_fd_create(share_.get(), this));
        created_ = created.ok();
        return created;
    }

    /** Ends the timer: the handler is not called again. Does nothing if it was not started. */
    void stop() {
        if (std::exchange(created_, false)) {
            share_.get()
                ->call([this] {
                    norv_epoll_timer_fd_destroy(share_.get(), this);
                    return ok;
                })
                .ignore();
        }
    }

    /** The timer of the C interface; null if it was not started. */
    norv_linux_timer_t* get() noexcept { return created_ ? &this->norv_epoll_timer_fd_t::timer : nullptr; }

  private:
    static void handle(norv_epoll_timer_fd_t* record) {
        auto* const self = static_cast<timer_fd*>(record);
        detail::call_handler(self->share_.get(), self->handler_);
    }

    function handler_;
    detail::loop_share share_;
    bool created_ = false;
};

}  // namespace norv
