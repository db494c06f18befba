// SPDX-License-Identifier: MIT
/**
 * @file norv/loop.hpp
 * The event loop, and what it serves: descriptors, timers, delayed calls and events, each with any callable
 * as its handler. The callable is kept in the object itself; nothing is allocated for it.
 *
 *     norv::loop loop = norv::loop::open().value();
 *     norv::timer blink([&] { led.set_brightness(on = !on).ignore(); });
 *     blink.start_periodic(loop, 500ms).value();
 *     loop.run();  // until loop.exit()
 *
 * A registration (`watch`, `timer`, `delayed_call`, `event`) ends with its object, also within its own handler
 * or another one's: its handler is then not called again. One that ends within its own handler takes with it what
 * the handler has captured. It cannot be moved, because the loop has its address. It may outlive the loop: what
 * the loop consists of is given back with the last of them.
 *
 * Where exceptions are on, one that leaves a handler ends the loop and comes out of `run()`.
 *
 * Threads: handlers run on the thread that runs the loop, one at a time. All functions may be called on any
 * thread. On a thread other than the loop's, those that change the loop's state wait until the loop's thread has
 * done it, between two handlers. Two loops that do this to each other at the same time wait forever.
 *
 * No call is left waiting when the loop ends: one that came in time is done before `run()` returns, a later one at
 * once, on the thread that makes it. While no loop runs, only one thread at a time may use it. The loop may be
 * destroyed as soon as `run()` has returned, even if a thread whose call is done has not yet woken up.
 */
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "norv/callback.hpp"
#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv/timeout.hpp"
#include "norv_epoll.h"

namespace norv {

class loop;

namespace detail {

// A time for a timer of the loop, which compares times safely up to 2^30 ms only: a longer one is waited for in
// parts.
class deadline {
  public:
    // Returns the first part.
    uint32_t begin(int64_t ms) noexcept {
        if (ms > longest) [[unlikely]] {
            end_ = static_cast<int64_t>(norv_time_get_ms()) + ms;
            return longest;
        }
        end_ = 0;
        return static_cast<uint32_t>(ms > 0 ? ms : 0);
    }
    // Returns the next part, or 0 when the time is over.
    uint32_t next() const noexcept {
        if (!is_in_parts()) [[likely]] {
            return 0;
        }
        const int64_t left = end_ - static_cast<int64_t>(norv_time_get_ms());
        return left > longest ? longest : static_cast<uint32_t>(left > 0 ? left : 0);
    }
    bool is_in_parts() const noexcept { return end_ != 0; }

  private:
    static constexpr uint32_t longest = 1U << 30;

    int64_t end_ = 0;
};

// A function that waits for the loop thread to run it.
struct posted_call {
    void (*run)(posted_call* self) = nullptr;
    posted_call* next = nullptr;
    bool done = false;
};

// What a loop and its registrations share.
class loop_state : public norv_epoll_t {
  public:
    static result<loop_state*> open();

    void add_reference() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void drop_reference() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            close();
        }
    }

    // Does nothing while the loop runs already.
    void run(void* watchdog, uint32_t period);

    // Whether the calling thread runs the loop, perhaps with others within its handlers.
    bool is_this_thread() const noexcept {
        return thread_.load(std::memory_order_acquire) == norv_get_curr_pthread_id();
    }

    // Runs a function on the loop thread, and waits for it; at once while no loop runs. Takes the function by
    // value, so that what it has captured stays in registers where it is called at once.
    template <typename function>
    auto call(function called) {
        if (innermost == this) [[likely]] {
            return called();
        }
        return call_from_outside(std::move(called));
    }

    // As `call`, but only while the loop runs: otherwise there is no value.
    template <typename function>
    auto call_while_running(function& called) -> std::optional<std::invoke_result_t<function&>> {
        if (is_this_thread()) {
            return called();
        }
        return post_and_wait(called);
    }

#if defined(__cpp_exceptions)
    // Ends the loop with the exception that is being handled.
    void fail() noexcept {
        if (failure_ == nullptr) {
            failure_ = std::current_exception();
        }
        norv_epoll_exit(this);
    }
#endif

  private:
    loop_state() noexcept : norv_epoll_t{} {}
    ~loop_state() = default;

    void close() noexcept {
        norv_epoll_event_fd_destroy(this, &wake_);
        norv_epoll_close(this);
        this->~loop_state();
        norv_free(this);
    }

    static loop_state* of(norv_epoll_event_fd_t* wake) {
        return static_cast<loop_state*>(wake->registration.loop);
    }

    // Adds a call, under the lock and while the loop runs.
    void post(posted_call* call) noexcept {
        *last_ = call;
        last_ = &call->next;
        // Who has posted a call waits for it, whatever happens: a wake that fails is repeated.
        while (norv_epoll_event_fd_activate(&wake_) != NORV_STATUS_OK) {
        }
    }

    posted_call* take_posted() noexcept {
        posted_call* const first = first_;
        first_ = nullptr;
        last_ = &first_;
        return first;
    }

    void run_all(posted_call* call) noexcept {
        while (call != nullptr) {
            // The call may be gone once its caller knows that it is done.
            posted_call* const next = call->next;
            call->run(call);
            {
                const std::lock_guard lock(mutex_);
                call->done = true;
            }
            any_done_.notify_all();
            call = next;
        }
    }

    // The calling thread becomes the one that runs the loop; false if there is one.
    bool begin() noexcept {
        const std::lock_guard lock(mutex_);
        if (thread_.load(std::memory_order_relaxed) != no_thread) {
            return false;
        }
        thread_.store(norv_get_curr_pthread_id(), std::memory_order_release);
        return true;
    }

    // Does what is posted still. Who calls meanwhile waits, so that nothing else happens at the same time.
    void finish() noexcept {
        std::unique_lock lock(mutex_);
        ending_ = true;
        posted_call* const rest = take_posted();
        norv_epoll_event_fd_deactivate(&wake_);
        lock.unlock();
        run_all(rest);
        lock.lock();
        ending_ = false;
        thread_.store(no_thread, std::memory_order_release);
        lock.unlock();
        any_done_.notify_all();
    }

    static void serve(norv_epoll_event_fd_t* wake) {
        loop_state* const self = of(wake);
        std::unique_lock lock(self->mutex_);
        posted_call* const calls = self->take_posted();
        lock.unlock();
        self->run_all(calls);
    }

    template <typename function>
    [[gnu::noinline]] auto call_from_outside(function called) {
        if (thread_.load(std::memory_order_acquire) == no_thread) {
            return called();
        }
        auto value = call_while_running(called);
        return value ? std::move(*value) : called();
    }

    // Has no value when the loop ends before.
    template <typename function>
    auto post_and_wait(function& called) -> std::optional<std::invoke_result_t<function&>>;

    static constexpr uint64_t no_thread = 0;

    // The loop that the thread runs, and that no other one runs within: what most calls are made on. A program
    // and its shared libraries may each have a variable of their own: `thread_` decides.
    static inline thread_local constinit loop_state* innermost = nullptr;

    std::atomic<uint32_t> references_ = 1;
    std::atomic<uint64_t> thread_ = no_thread;  // that runs the loop; changes under the lock
    std::mutex mutex_;
    std::condition_variable any_done_;  // a call, or the loop
    bool ending_ = false;               // only what was posted before is done
    posted_call* first_ = nullptr;
    posted_call** last_ = &first_;
    norv_epoll_event_fd_t wake_{};
#if defined(__cpp_exceptions)
    std::exception_ptr failure_;
#endif
};

inline result<loop_state*> loop_state::open() {
    void* const memory = norv_malloc(sizeof(loop_state));
    if (memory == nullptr) {
        return status(NORV_STATUS_NO_MEMORY);
    }
    auto* const state = new (memory) loop_state;
    status opened(norv_epoll_open(state));
    if (opened.ok()) {
        state->wake_.callback = serve;
        opened = status(norv_epoll_event_fd_create(state, &state->wake_));
        if (!opened.ok()) {
            norv_epoll_close(state);
        }
    }
    if (!opened.ok()) {
        state->~loop_state();
        norv_free(state);
        return opened;
    }
    return state;
}

inline void loop_state::run(void* watchdog, uint32_t period) {
    if (!begin()) {
        return;
    }
    loop_state* const outer = std::exchange(innermost, this);
    norv_epoll_loop_with_watchdog(this, watchdog, period);
    finish();
    innermost = outer;
#if defined(__cpp_exceptions)
    if (failure_ != nullptr) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
#endif
}

// A share in the loop, of a registration or a call.
class loop_share {
  public:
    loop_share() noexcept = default;
    loop_share(const loop_share&) = delete;
    loop_share& operator=(const loop_share&) = delete;
    ~loop_share() { drop(); }

    void take(loop_state* state) noexcept {
        if (state_ != state) {
            state->add_reference();
            drop();
            state_ = state;
        }
    }
    void drop() noexcept {
        if (loop_state* const state = std::exchange(state_, nullptr)) {
            state->drop_reference();
        }
    }
    loop_state* get() const noexcept { return state_; }

  private:
    loop_state* state_ = nullptr;
};

template <typename function>
auto loop_state::post_and_wait(function& called) -> std::optional<std::invoke_result_t<function&>> {
    using returned = std::invoke_result_t<function&>;
    struct packet : posted_call {
        explicit packet(function& to_call) : called(&to_call) {}
        function* called;
        std::optional<returned> value;
    };
    packet posted(called);
    posted.run = [](posted_call* self) {
        auto* const mine = static_cast<packet*>(self);
        mine->value.emplace((*mine->called)());
    };
    // The loop may be destroyed once the call is done, before this thread has woken up.
    loop_share share;
    share.take(this);
    std::unique_lock lock(mutex_);
    any_done_.wait(lock, [&] { return !ending_; });
    if (thread_.load(std::memory_order_relaxed) == no_thread) {
        return std::nullopt;
    }
    post(&posted);
    any_done_.wait(lock, [&] { return posted.done; });
    return std::move(posted.value);
}

// Calls a handler in the name of the loop. Nothing is touched afterwards that the handler may have destroyed.
template <typename function, typename... arguments>
void call_handler([[maybe_unused]] loop_state* state, function& handler, arguments... values) {
#if defined(__cpp_exceptions)
    try {
        handler(values...);
    } catch (...) {
        state->fail();
    }
#else
    handler(values...);
#endif
}

}  // namespace detail

/** An event loop. One that was moved from does nothing, and its functions return NORV_STATUS_INVALID_ARG. */
class loop {
  public:
    /** Opens a loop. See `norv_epoll_open`; also NORV_STATUS_NO_MEMORY. */
    static result<loop> open() {
        const result<detail::loop_state*> opened = detail::loop_state::open();
        if (!opened) {
            return opened.status();
        }
        return loop(*opened);
    }

    loop(loop&& other) noexcept : state_(std::exchange(other.state_, nullptr)) {}
    loop& operator=(loop&& other) noexcept {
        if (this != &other) {
            drop();
            state_ = std::exchange(other.state_, nullptr);
        }
        return *this;
    }
    loop(const loop&) = delete;
    loop& operator=(const loop&) = delete;

    /** Closes the loop, which must not be running. */
    ~loop() { drop(); }

    /**
     * Runs the loop on the calling thread until `exit()`. See `norv_epoll_loop_with_watchdog`. Does nothing while the
     * loop runs already, on any thread. A handler may run another loop, whose handlers may use both.
     */
    void run() { run(nullptr, std::chrono::milliseconds(0)); }

    /** Runs the loop and reports to a watchdog of the thread, every `period`. */
    void run(norv_thread_watchdog_t* watchdog, std::chrono::milliseconds period) {
        if (state_ != nullptr) {
            detail::loop_share share;
            share.take(state_);
            share.get()->run(watchdog, static_cast<uint32_t>(period.count()));
        }
    }

    /**
     * Waits until a thread runs the loop, without limit; until then, `run_on_loop` would run its function on the
     * calling thread. Returns at once on the loop thread itself. See `norv_epoll_wait_loop_started`.
     */
    status wait_started() const {
        if (state_ == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(state_->is_this_thread() ? NORV_STATUS_OK : norv_epoll_wait_loop_started(state_));
    }

    /**
     * Ends the loop after the handler that is running. Does nothing while no loop runs: a request before
     * `run()` is discarded.
     */
    status exit() {
        if (state_ == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(state_->call([state = state_] { return norv_epoll_exit(state); }));
    }

    /**
     * Runs a function on the loop thread, and waits for it: at once on the loop thread itself, and while no
     * loop runs.
     *
     * @return `result<T>` with what the function returned; `status` if it returns nothing or a status; what it
     *         returned if that is a `result`. An exception of the function is thrown here.
     */
    template <typename function>
    auto run_on_loop(function&& called);

    /** The record of the C interface; null after a move. */
    norv_epoll_t* get() const noexcept { return state_; }

    /** For the registrations. */
    detail::loop_state* state() const noexcept { return state_; }

  private:
    explicit loop(detail::loop_state* state) noexcept : state_(state) {}

    void drop() noexcept {
        if (detail::loop_state* const state = std::exchange(state_, nullptr)) {
            state->drop_reference();
        }
    }

    detail::loop_state* state_;
};

namespace detail {

template <typename T>
inline constexpr bool is_result = false;
template <typename T>
inline constexpr bool is_result<result<T>> = true;

// What a function's value becomes where the call itself may fail.
template <typename T>
struct outcome {
    using type = result<T>;
};
template <typename T>
requires(std::is_void_v<T> || std::is_same_v<T, status>) struct outcome<T> {
    using type = status;
};
template <typename T>
requires is_result<T>
struct outcome<T> {
    using type = T;
};
template <typename T>
using outcome_t = typename outcome<T>::type;

// Calls a function, and brings its exception to the thread that waits for it.
template <typename function>
class carried {
  public:
    using value = outcome_t<std::invoke_result_t<function&>>;

    explicit carried(function& called) : called_(called) {}

    value operator()() {
#if defined(__cpp_exceptions)
        try {
            return call();
        } catch (...) {
            failure_ = std::current_exception();
            return value(status(NORV_STATUS_BAD_STATE));
        }
#else
        return call();
#endif
    }

    void rethrow() const {
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            std::rethrow_exception(failure_);
        }
#endif
    }

  private:
    value call() {
        if constexpr (std::is_void_v<std::invoke_result_t<function&>>) {
            called_();
            return ok;
        } else {
            return called_();
        }
    }

    function& called_;
#if defined(__cpp_exceptions)
    std::exception_ptr failure_;
#endif
};

}  // namespace detail

template <typename function>
auto loop::run_on_loop(function&& called) {
    detail::carried carried(called);
    using value = typename decltype(carried)::value;
    if (state_ == nullptr) {
        return value(status(NORV_STATUS_INVALID_ARG));
    }
    value returned = state_->call([&carried] { return carried(); });
    carried.rethrow();
    return returned;
}

/** Calls its handler, `void(uint32_t events)`, while a descriptor is ready. */
template <typename function = callback<void(uint32_t)>>
class watch : private norv_epoll_fd_t {
  public:
    explicit watch(function called) : norv_epoll_fd_t{}, handler_(std::move(called)) {}
    watch(const watch&) = delete;
    watch& operator=(const watch&) = delete;
    ~watch() { stop().ignore(); }

    /**
     * Starts to watch a descriptor, which must stay open until `stop()`; stops watching another one.
     *
     * @param on               the loop
     * @param file_descriptor  the descriptor
     * @param events           EPOLLIN, EPOLLOUT, EPOLLPRI, EPOLLET, ... combined
     * @return a status of `norv_epoll_fd_add`
     */
    status start(const norv::loop& on, int32_t file_descriptor, uint32_t events) {
        stop().ignore();
        if (on.state() == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        share_.take(on.state());
        return status(share_.get()->call([this, file_descriptor, events] {
            descriptor = file_descriptor;
            handler = handle;
            const uint32_t added = norv_epoll_fd_add(share_.get(), this, events);
            watching_ = added == NORV_STATUS_OK;
            return added;
        }));
    }

    /** Changes the events. See `norv_epoll_fd_modify`. */
    status modify(uint32_t events) {
        if (!watching_) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(
            share_.get()->call([this, events] { return norv_epoll_fd_modify(share_.get(), this, events); }));
    }

    /** Stops watching: the handler is not called again. Does nothing if it watches nothing. */
    status stop() {
        if (!watching_) {
            return ok;
        }
        return status(share_.get()->call([this] {
            watching_ = false;
            const uint32_t removed = norv_epoll_fd_remove(share_.get(), this);
            if (removed != NORV_STATUS_OK) {
                norv_epoll_fd_ignore_once(share_.get(), this);
            }
            return removed;
        }));
    }

    /** Whether it watches a descriptor. */
    bool watching() const noexcept { return watching_; }

  private:
    static void handle(norv_epoll_fd_t* record, uint32_t events) {
        auto* const self = static_cast<watch*>(record);
        detail::call_handler(self->share_.get(), self->handler_, events);
    }

    function handler_;
    detail::loop_share share_;
    std::atomic<bool> watching_ = false;
};

/** Calls its handler, `void()`, after a time, once or periodically. */
template <typename function = callback<void()>>
class timer : private norv_epoll_timer_t {
  public:
    explicit timer(function called) : norv_epoll_timer_t{}, handler_(std::move(called)) { callback = handle; }
    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;
    ~timer() { stop().ignore(); }

    /**
     * Calls the handler once, after a time of any length; a time of 0 or less is over at once. Restarts a timer
     * that is pending. Whole milliseconds, rounded up.
     */
    template <typename representation, typename unit>
    status start(const norv::loop& on, std::chrono::duration<representation, unit> time) {
        return start<false>(on, detail::milliseconds_of(time));
    }

    /**
     * Calls the handler again and again, first after one period. A round that is late shifts all following ones.
     *
     * @retval NORV_STATUS_INVALID_ARG  a period of 0 or less, which would never let the loop do anything else
     */
    template <typename representation, typename unit>
    status start_periodic(const norv::loop& on, std::chrono::duration<representation, unit> every) {
        const int64_t ms = detail::milliseconds_of(every);
        return ms > 0 ? start<true>(on, ms) : status(NORV_STATUS_INVALID_ARG);
    }

    /** Stops the timer: the handler is not called again. Does nothing if it is not pending. */
    status stop() {
        detail::loop_state* const state = share_.get();
        if (state == nullptr) {
            return ok;
        }
        return status(state->call([this, state] { return norv_epoll_timer_cancel(state, this); }));
    }

    /** Whether the timer is pending. */
    bool pending() const noexcept { return norv_epoll_timer_pending(this) != 0; }

  private:
    template <bool again>
    status start(const norv::loop& on, int64_t ms) {
        detail::loop_state* const state = on.state();
        if (state == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        if (share_.get() != state) [[unlikely]] {
            stop().ignore();
            share_.take(state);
        }
        return status(state->call([this, ms] {
            const uint32_t first = deadline_.begin(ms);
            if (deadline_.is_in_parts()) [[unlikely]] {
                period_in_parts_ = again ? ms : 0;
                return norv_epoll_timer_schedule(share_.get(), this, first, false);
            }
            return norv_epoll_timer_schedule(share_.get(), this, first, again);
        }));
    }

    static void handle(norv_epoll_timer_t* record) {
        auto* const self = static_cast<timer*>(record);
        if (self->deadline_.is_in_parts() && self->is_early()) {
            return;
        }
        detail::call_handler(self->share_.get(), self->handler_);
    }

    // Waits for the next part, or begins the next period.
    bool is_early() {
        const uint32_t next = deadline_.next();
        if (next != 0) {
            norv_epoll_timer_schedule(share_.get(), this, next, false);
        } else if (period_in_parts_ != 0) {
            norv_epoll_timer_schedule(share_.get(), this, deadline_.begin(period_in_parts_), false);
        }
        return next != 0;
    }

    function handler_;
    detail::loop_share share_;
    detail::deadline deadline_;
    int64_t period_in_parts_ = 0;  // of a time that is waited for in parts
};

/** Calls its handler, `void()`, at the end of the loop's round. */
template <typename function = callback<void()>>
class delayed_call : private norv_epoll_delayed_t {
  public:
    explicit delayed_call(function called) : norv_epoll_delayed_t{}, handler_(std::move(called)) {
        callback = handle;
    }
    delayed_call(const delayed_call&) = delete;
    delayed_call& operator=(const delayed_call&) = delete;
    ~delayed_call() { stop().ignore(); }

    /** Schedules the call; a smaller priority runs first. See `norv_epoll_delayed_schedule`. */
    status start(const norv::loop& on, uint32_t call_priority = 0) {
        if (on.state() == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        if (share_.get() != on.state()) {
            stop().ignore();
            share_.take(on.state());
        }
        return status(share_.get()->call([this, call_priority] {
            return norv_epoll_delayed_schedule(share_.get(), this, call_priority);
        }));
    }

    /** Cancels the call. Does nothing if it is not pending. */
    status stop() {
        detail::loop_state* const state = share_.get();
        if (state == nullptr) {
            return ok;
        }
        return status(state->call([this, state] { return norv_epoll_delayed_cancel(state, this); }));
    }

    /** Whether the call is pending. */
    bool pending() const noexcept { return norv_epoll_delayed_pending(this) != 0; }

  private:
    static void handle(norv_epoll_delayed_t* record) {
        auto* const self = static_cast<delayed_call*>(record);
        detail::call_handler(self->share_.get(), self->handler_);
    }

    function handler_;
    detail::loop_share share_;
};

/** Calls its handler, `void()`, once after any thread, or a signal handler, has raised it. */
template <typename function = callback<void()>>
class event : private norv_epoll_event_fd_t {
  public:
    explicit event(function called) : norv_epoll_event_fd_t{}, handler_(std::move(called)) {
        callback = handle;
    }
    event(const event&) = delete;
    event& operator=(const event&) = delete;
    ~event() { stop(); }

    /** Creates the event. See `norv_epoll_event_fd_create`. */
    status start(const norv::loop& on) {
        stop();
        if (on.state() == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        share_.take(on.state());
        const status created(norv_epoll_event_fd_create(share_.get(), this));
        created_ = created.ok();
        return created;
    }

    /** Raises the event, without waiting for the loop. See `norv_epoll_event_fd_activate`. */
    status raise() {
        return created_ ? status(norv_epoll_event_fd_activate(this)) : status(NORV_STATUS_INVALID_ARG);
    }

    /** Withdraws what was raised and not yet handled. */
    status withdraw() {
        return created_ ? status(norv_epoll_event_fd_deactivate(this)) : status(NORV_STATUS_INVALID_ARG);
    }

    /** Ends the event. No other thread may raise it meanwhile. */
    void stop() {
        if (std::exchange(created_, false)) {
            share_.get()
                ->call([this] {
                    norv_epoll_event_fd_destroy(share_.get(), this);
                    return ok;
                })
                .ignore();
        }
    }

  private:
    static void handle(norv_epoll_event_fd_t* record) {
        auto* const self = static_cast<event*>(record);
        detail::call_handler(self->share_.get(), self->handler_);
    }

    function handler_;
    detail::loop_share share_;
    bool created_ = false;
};

}  // namespace norv
