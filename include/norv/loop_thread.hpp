// SPDX-License-Identifier: MIT
/**
 * @file norv/loop_thread.hpp
 * An event loop on a thread of its own, which ends with its object.
 *
 *     norv::loop_thread io = norv::loop_thread::start().value();
 *     norv::timer sample([&] { read_sensor(); });
 *     sample.start_periodic(io.loop(), 500ms).value();
 *     io.run_on_loop([] { return norv::this_thread::set_name("io"); }).value();
 *     io.stop().value();  // or at the end of `io`
 *
 * The loop runs when `start` has returned. It ends when the object does, by `stop`, or when a handler calls
 * `loop().exit()`; its thread is joined by the former two. Registrations may end before or after it, but what
 * their handlers use must still exist when it ends.
 *
 * Any thread may call `run_on_loop`, also while another one calls `stop`, but not while the object moves or ends.
 */
#pragma once

#include <pthread.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "norv/loop.hpp"
#include "norv/one_shot_event.hpp"
#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv_base.h"

namespace norv {

/** A loop on a thread of its own. One that was moved from has none: its functions return NORV_STATUS_INVALID_ARG. */
class loop_thread {
  public:
    /** How the thread is started. */
    struct options {
        const pthread_attr_t* attributes = nullptr;  /**< of pthread_create(3); null: the defaults */
        norv_thread_watchdog_t* watchdog = nullptr;  /**< receives the reports of the loop; null: none */
        std::chrono::milliseconds watchdog_period{}; /**< between two reports */
    };

    /**
     * Opens a loop, and runs it on a new thread.
     *
     * @return the thread, on which the loop runs; or a status of `loop::open`, NORV_STATUS_NO_MEMORY, or the
     *         status of pthread_create(3)
     */
    static result<loop_thread> start() { return start(options()); }
    /** As above, with options. */
    static result<loop_thread> start(const options& wanted) {
        result<norv::loop> opened = norv::loop::open();
        if (!opened) {
            return opened.status();
        }
        void* const memory = norv_malloc(sizeof(running));
        if (memory == nullptr) {
            return status(NORV_STATUS_NO_MEMORY);
        }
        loop_thread started(std::move(*opened), new (memory) running);
        const status begun = started.begin(wanted);
        return begun.ok() ? result<loop_thread>(std::move(started)) : result<loop_thread>(begun);
    }

    loop_thread(loop_thread&& other) noexcept = default;
    /** Ends the loop that it has, as the destructor does. */
    loop_thread& operator=(loop_thread&& other) noexcept {
        if (this != &other) {
            end();
            loop_ = std::move(other.loop_);
            running_ = std::move(other.running_);
        }
        return *this;
    }
    loop_thread(const loop_thread&) = delete;
    loop_thread& operator=(const loop_thread&) = delete;

    /**
     * Ends the loop, and joins its thread. An exception of a handler is dropped: call `stop` to get it.
     *
     * On the loop's own thread, which cannot join itself, it ends the program with a message.
     */
    ~loop_thread() { end(); }

    /**
     * Ends the loop after the handler that is running, and joins its thread. An exception that has left a handler
     * is thrown here. Once it has ended, further calls do nothing.
     *
     * @retval NORV_STATUS_BAD_STATE  called on the loop's own thread, which cannot join itself: let the handler
     *                                call `loop().exit()`
     */
    status stop() {
        if (running_ == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        if (running_->joined) {
            return ok;
        }
        if (pthread_equal(pthread_self(), running_->thread) != 0) {
            return status(NORV_STATUS_BAD_STATE);
        }
        loop_.exit().ignore();
        const int error = pthread_join(running_->thread, nullptr);
        running_->joined = true;
#if defined(__cpp_exceptions)
        if (running_->failure != nullptr) {
            std::rethrow_exception(std::exchange(running_->failure, nullptr));
        }
#endif
        return status(norv_get_status_by_errno(static_cast<uint32_t>(error)));
    }

    /**
     * Runs a function on the loop's thread, and waits for it, as `loop::run_on_loop` does; at once on that thread
     * itself.
     *
     * @retval NORV_STATUS_BAD_STATE  the loop has ended; the function was not run
     */
    template <typename function>
    auto run_on_loop(function&& called) {
        detail::carried carried(called);
        using value = typename decltype(carried)::value;
        if (running_ == nullptr) {
            return value(status(NORV_STATUS_INVALID_ARG));
        }
        std::optional<value> returned = loop_.state()->call_while_running(carried);
        if (!returned) {
            return value(status(NORV_STATUS_BAD_STATE));
        }
        carried.rethrow();
        return std::move(*returned);
    }

    /** The loop, for registrations and jobs; one that was moved from after a move. */
    norv::loop& loop() noexcept {
        return loop_;
    }
    const norv::loop& loop() const noexcept {
        return loop_;
    }

  private:
    // What the thread uses; it stays where it is when the object moves.
    struct running {
        detail::loop_share share;
        options wanted;
        pthread_t thread{};
        bool joined = true;
#if defined(__cpp_exceptions)
        std::exception_ptr failure;
#endif
    };
    struct deleter {
        void operator()(running* ended) const noexcept {
            ended->~running();
            norv_free(ended);
        }
    };

    loop_thread(norv::loop&& opened, running* empty) noexcept : loop_(std::move(opened)), running_(empty) {}

    // Starts the thread, and waits until its loop runs: a request to end before that would be discarded.
    status begin(const options& wanted) {
        one_shot_event in_loop;
        timer first_round([&in_loop] { in_loop.set().ignore(); });
        status begun = first_round.start(loop_, std::chrono::milliseconds(0));
        if (begun.ok()) {
            running_->share.take(loop_.state());
            running_->wanted = wanted;
            const int error = pthread_create(&running_->thread, wanted.attributes, run, running_.get());
            begun = status(norv_get_status_by_errno(static_cast<uint32_t>(error)));
        }
        if (begun.ok()) {
            running_->joined = false;
            in_loop.wait(no_limit).ignore();
        }
        return begun;
    }

    static void* run(void* argument) {
        auto* const self = static_cast<running*>(argument);
        const auto period = static_cast<uint32_t>(self->wanted.watchdog_period.count());
#if defined(__cpp_exceptions)
        try {
            self->share.get()->run(self->wanted.watchdog, period);
        } catch (...) {
            self->failure = std::current_exception();
        }
#else
        self->share.get()->run(self->wanted.watchdog, period);
#endif
        return nullptr;
    }

    void end() noexcept {
#if defined(__cpp_exceptions)
        try {
            end_without_exception();
        } catch (...) {
            // The exception of a handler, which only stop() reports.
        }
#else
        end_without_exception();
#endif
    }
    void end_without_exception() {
        if (stop() == NORV_STATUS_BAD_STATE) {
            std::fputs("norv: a loop_thread has ended on its own thread, which it cannot join\n", stderr);
            std::abort();
        }
    }

    norv::loop loop_;
    std::unique_ptr<running, deleter> running_;
};

}  // namespace norv
