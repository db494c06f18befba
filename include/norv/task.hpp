// SPDX-License-Identifier: MIT
/**
 * @file norv/task.hpp
 * Coroutines on the event loop: code that waits, written as if it did not.
 *
 *     norv::task<norv::status> blink(norv::led& led) {
 *         for (;;) {
 *             if (norv::status set = led.set_brightness(1); !set.ok()) co_return set;
 *             if (norv::status slept = co_await norv::sleep(500ms); !slept.ok()) co_return slept;
 *             ...
 *         }
 *     }
 *     norv::job job(loop, blink(led));  // runs until its first wait
 *     loop.run();
 *
 * A task starts when it is awaited, or given to a `job`; it runs on the thread that runs the loop. Waits of a
 * task that has been asked to stop return NORV_STATUS_TIMEOUT, those that it begins afterwards too. When a task is
 * destroyed while it waits, nothing of it stays registered.
 *
 * The frame of a task comes from `norv_malloc`. Without memory an awaited task returns NORV_STATUS_NO_MEMORY
 * if its type is `status` or `result`; otherwise it throws `norv::error`, or ends the program. Waiting allocates
 * nothing.
 */
#pragma once

#include <coroutine>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stop_token>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "norv/loop.hpp"
#include "norv/result.hpp"
#include "norv/status.hpp"

namespace norv {

namespace detail {

class stop_scope;

// A place where a coroutine waits, or where a scope belongs to its outer one; linked while it does.
class stop_node {
  public:
    stop_node() noexcept = default;
    stop_node(const stop_node&) = delete;
    stop_node& operator=(const stop_node&) = delete;
    ~stop_node() { unlink(); }

    void link(stop_scope* scope, void (*stop)(stop_node*)) noexcept;
    void unlink() noexcept {
        if (linked()) {
            *back_ = next_;
            if (next_ != nullptr) {
                next_->back_ = back_;
            }
            back_ = nullptr;
        }
    }
    bool linked() const noexcept { return back_ != nullptr; }

  private:
    friend class stop_scope;

    stop_node* next_ = nullptr;
    stop_node** back_ = nullptr;
    void (*stop_)(stop_node*) = nullptr;
};

// What can be stopped as one: the waits within it, and the scopes within it. On the loop thread only.
class stop_scope : private stop_node {
  public:
    stop_scope() noexcept = default;
    ~stop_scope() {
        while (first_ != nullptr) {
            first_->unlink();
        }
    }

    // Belongs to another scope from now on.
    void enter(stop_scope* outer) noexcept {
        if (outer != nullptr) {
            link(outer, [](stop_node* node) { static_cast<stop_scope*>(node)->stop(); });
            stopped_ = outer->stopped_;
        }
    }

    bool stopped() const noexcept { return stopped_; }

    // Ends all waits: their coroutines resume at once, one after the other. The coroutine that has this scope
    // resumes after them, as the last act: it may destroy the scope.
    void stop() {
        stopped_ = true;
        if (std::exchange(stopping_, true)) {
            return;
        }
        while (first_ != nullptr) {
            stop_node* const node = first_;
            node->unlink();
            node->stop_(node);
        }
        stopping_ = false;
        if (const std::coroutine_handle<> next = std::exchange(next_, {})) {
            next.resume();
        }
    }

    // The coroutine that has this scope is to resume: at once, or when stop() has ended all waits.
    std::coroutine_handle<> resume_next(std::coroutine_handle<> next) noexcept {
        if (stopping_) {
            next_ = next;
            return std::noop_coroutine();
        }
        return next;
    }
    bool stopping() const noexcept { return stopping_; }

  private:
    friend class stop_node;

    stop_node* first_ = nullptr;
    std::coroutine_handle<> next_;
    bool stopping_ = false;
    bool stopped_ = false;
};

inline void stop_node::link(stop_scope* scope, void (*stop)(stop_node*)) noexcept {
    stop_ = stop;
    next_ = scope->first_;
    back_ = &scope->first_;
    if (next_ != nullptr) {
        next_->back_ = &next_;
    }
    scope->first_ = this;
}

// What a coroutine knows of its surroundings; those that it awaits inherit it.
struct task_context {
    loop_state* loop = nullptr;
    stop_scope* scope = nullptr;
    const void* job = nullptr;

    task_context within(stop_scope* inner) const noexcept { return {loop, inner, job}; }
};

// A job whose task the thread runs at this moment, and the one that it runs within.
class running_job {
  public:
    explicit running_job(const void* job) noexcept : job_(job), outer_(std::exchange(innermost, this)) {}
    running_job(const running_job&) = delete;
    running_job& operator=(const running_job&) = delete;
    ~running_job() { innermost = outer_; }

    static bool is(const void* job) noexcept {
        const running_job* running = innermost;
        while (running != nullptr && running->job_ != job) {
            running = running->outer_;
        }
        return running != nullptr;
    }

  private:
    static inline thread_local constinit const running_job* innermost = nullptr;

    const void* job_;
    const running_job* outer_;
};

class promise_base {
  public:
    static void* operator new(size_t size, const std::nothrow_t&) noexcept { return norv_malloc(size); }
    static void* operator new(size_t size) noexcept { return norv_malloc(size); }
    static void operator delete(void* frame) noexcept { norv_free(frame); }

    std::suspend_always initial_suspend() const noexcept { return {}; }

    struct at_end {
        bool await_ready() const noexcept { return false; }
        template <typename promise>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<promise> ended) const noexcept {
            promise_base& mine = ended.promise();
            return mine.on_end(mine);
        }
        void await_resume() const noexcept {}
    };
    at_end final_suspend() const noexcept { return {}; }

    const task_context& context() const noexcept { return context_; }

    // What resumes when this coroutine has ended.
    std::coroutine_handle<> (*on_end)(promise_base& ended) noexcept = nullptr;
    void* waiting = nullptr;

    task_context context_;
};

// What a coroutine of type T that has no value returns in its place; without a place for a status, there is none.
template <typename T>
T failed_value(status failed) {
    if constexpr (std::is_same_v<T, status> || is_result<T>) {
        return failed;
    } else {
        fail(failed);
    }
}

// The value of a coroutine of type T, or its exception.
template <typename T>
class task_value {
  public:
    template <typename U = T>
    requires std::is_constructible_v<T, U>
    void return_value(U&& value) { value_.emplace(std::forward<U>(value)); }
#if defined(__cpp_exceptions)
    void unhandled_exception() noexcept {
        failure_ = std::current_exception();
    }
#else
    void unhandled_exception() noexcept {
        std::abort();
    }
#endif
    T take() {
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            std::rethrow_exception(failure_);
        }
#endif
        return std::move(*value_);
    }

  private:
    std::optional<T> value_;
#if defined(__cpp_exceptions)
    std::exception_ptr failure_;
#endif
};

template <>
class task_value<void> {
  public:
    void return_void() const noexcept {}
#if defined(__cpp_exceptions)
    void unhandled_exception() noexcept {
        failure_ = std::current_exception();
    }
    void take() const {
        if (failure_ != nullptr) {
            std::rethrow_exception(failure_);
        }
    }

  private:
    std::exception_ptr failure_;
#else
    void unhandled_exception() noexcept {
        std::abort();
    }
    void take() const noexcept {}
#endif
};

}  // namespace detail

/** A coroutine that returns a T, which may be void. Can be moved; destroying it destroys the coroutine. */
template <typename T = void>
class [[nodiscard]] task {
  public:
    using value_type = T;

    class promise_type : public detail::promise_base, public detail::task_value<T> {
      public:
        task get_return_object() noexcept {
            return task(std::coroutine_handle<promise_type>::from_promise(*this));
        }
        static task get_return_object_on_allocation_failure() noexcept { return task({}); }
    };

    task(task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, {})) {}
    task& operator=(task&& other) noexcept {
        if (this != &other) {
            destroy();
            coroutine_ = std::exchange(other.coroutine_, {});
        }
        return *this;
    }
    task(const task&) = delete;
    task& operator=(const task&) = delete;
    ~task() { destroy(); }

    /** Whether there is a coroutine: not after a move, nor without memory for its frame. */
    explicit operator bool() const noexcept { return static_cast<bool>(coroutine_); }

    /** Runs the coroutine to its end; it inherits the loop of the one that awaits it, and ends with it. */
    auto operator co_await() && noexcept { return awaiter{coroutine_}; }

    /** For those that combine tasks. */
    std::coroutine_handle<promise_type> coroutine() const noexcept { return coroutine_; }

    /** The value of a task that has ended. */
    T take() { return take(coroutine_); }

  private:
    struct awaiter {
        std::coroutine_handle<promise_type> awaited;

        bool await_ready() const noexcept { return !awaited; }
        // Begins with an ordinary call: where tasks do not wait, the stack must not grow with their number, even if
        // the compiler does not optimise the transfer from one coroutine to another.
        template <typename promise>
        bool await_suspend(std::coroutine_handle<promise> waiting) noexcept {
            promise_type& mine = awaited.promise();
            mine.context_ = waiting.promise().context();
            mine.on_end = [](detail::promise_base&) noexcept -> std::coroutine_handle<> {
                return std::noop_coroutine();
            };
            awaited.resume();
            if (awaited.done()) {
                return false;
            }
            mine.waiting = waiting.address();
            mine.on_end = [](detail::promise_base& ended) noexcept {
                return std::coroutine_handle<>::from_address(ended.waiting);
            };
            return true;
        }
        T await_resume() { return take(awaited); }
    };

    explicit task(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_(coroutine) {}

    static T take(std::coroutine_handle<promise_type> ended) {
        return ended ? ended.promise().take() : detail::failed_value<T>(status(NORV_STATUS_NO_MEMORY));
    }

    void destroy() noexcept {
        if (coroutine_) {
            coroutine_.destroy();
        }
    }

    std::coroutine_handle<promise_type> coroutine_;
};

/**
 * A task that runs on a loop by itself. Ends with its object: what the task waits for is unregistered.
 *
 * To be made, and destroyed, on the loop thread, or while no loop runs. A task that destroys its own job, or one that
 * waits for it to return, ends the program with a message: let `on_done` do that.
 */
template <typename T>
class job {
  public:
    /**
     * Starts the task, which runs until its first wait. Once stopped through the token, on any thread, its
     * waits return NORV_STATUS_TIMEOUT. A task that cannot be started has ended, and `take()` has the status:
     * NORV_STATUS_INVALID_ARG on a loop that was moved from, or a status of `norv_epoll_event_fd_create`.
     */
    job(const loop& on, task<T> started, std::stop_token token = {})
        : task_(std::move(started)), wake_([this] { stop(); }) {
        begun_ = !task_ ? status(NORV_STATUS_NO_MEMORY) : begin(on, std::move(token));
        if (!begun_.ok()) {
            done_ = true;
            return;
        }
        const detail::running_job running(this);
        task_.coroutine().resume();
    }
    job(const job&) = delete;
    job& operator=(const job&) = delete;
    ~job() {
        if (!done_ && detail::running_job::is(this)) {
            std::fputs("norv: a job was destroyed by its own task\n", stderr);
            std::abort();
        }
    }

    /** Whether the task has ended. */
    bool done() const noexcept { return done_; }

    /**
     * What the task returned, once it has ended; its exception is thrown here. To be called once.
     *
     * A task that has not ended has NORV_STATUS_BAD_STATE, as its value if that is a `status` or `result`;
     * otherwise `norv::error` is thrown, or the program ends.
     */
    T take() {
        if (!begun_.ok()) {
            return detail::failed_value<T>(begun_);
        }
        return done_ ? task_.take() : detail::failed_value<T>(status(NORV_STATUS_BAD_STATE));
    }

    /** Ends the waits of the task, with NORV_STATUS_TIMEOUT; on the loop thread. Does nothing once it has ended. */
    void stop() {
        if (done_) {
            return;
        }
        const detail::running_job running(this);
        scope_.stop();
        if (done_) {
            report();
        }
    }

    /**
     * Calls a function, `void()`, when the task ends; it may destroy the job. Not called if the task has ended
     * already. Its exception ends the loop, as one of a handler does; in a call of `stop`, it is thrown there.
     */
    void on_done(callback<void()> handler) { on_done_ = std::move(handler); }

  private:
    struct raise {
        event<callback<void()>>* wake;
        void operator()() const { wake->raise().ignore(); }
    };

    static std::coroutine_handle<> end(detail::promise_base& ended) noexcept {
        job& self = *static_cast<job*>(ended.waiting);
        self.done_ = true;
        if (callback<void()> handler =
                self.scope_.stopping() ? callback<void()>() : std::move(self.on_done_)) {
            detail::loop_share loop;  // which may otherwise end with the job
            loop.take(self.share_.get());
            detail::call_handler(loop.get(), handler);
        }
        return std::noop_coroutine();
    }

    // As the last act: the job may be destroyed there.
    void report() {
        if (callback<void()> handler = std::move(on_done_)) {
            handler();
        }
    }

    status begin(const loop& on, std::stop_token token) {
        if (on.state() == nullptr) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        share_.take(on.state());
        auto& promise = task_.coroutine().promise();
        promise.context_ = {share_.get(), &scope_, this};
        promise.waiting = this;
        promise.on_end = end;
        if (!token.stop_possible()) {
            return ok;
        }
        const status created = wake_.start(on);
        if (created.ok()) {
            stopping_.emplace(std::move(token), raise{&wake_});
        }
        return created;
    }

    detail::loop_share share_;
    detail::stop_scope scope_;
    status begun_;
    bool done_ = false;
    callback<void()> on_done_;
    task<T> task_;
    event<callback<void()>> wake_;
    std::optional<std::stop_callback<raise>> stopping_;
};

/**
 * Runs a loop until a task has ended, and returns its value. If a handler ends the loop before, the task ends
 * with it: see `job::take`.
 */
template <typename T>
T run(loop& on, task<T> awaited) {
    job<T> running(on, std::move(awaited));
    if (!running.done()) {
        running.on_done([&on] { on.exit().ignore(); });
        on.run();
    }
    return running.take();
}

namespace detail {

template <typename T>
using value_or_monostate = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

template <typename T>
value_or_monostate<T> take_value(task<T>& ended) {
    if constexpr (std::is_void_v<T>) {
        ended.take();
        return {};
    } else {
        return ended.take();
    }
}

// Tasks that run beside each other, for one coroutine that waits.
template <typename derived, typename... T>
class group {
  public:
    explicit group(task<T>&&... tasks) : tasks_(std::move(tasks)...) {}
    group(const group&) = delete;
    group& operator=(const group&) = delete;

    bool await_ready() const noexcept { return false; }

    template <typename promise>
    bool await_suspend(std::coroutine_handle<promise> waiting) {
        waiting_ = waiting;
        const task_context& outer = waiting.promise().context();
        scope_.enter(outer.scope);
        context_ = outer.within(&scope_);
        // One more than there are, so that none that ends at once resumes who has not yet suspended.
        running_ = sizeof...(T) + 1;
        start(std::index_sequence_for<T...>());
        return --running_ != 0;
    }

  protected:
    // The task with this index has ended.
    void ended(size_t) noexcept {}

    stop_scope& scope() noexcept { return scope_; }
    std::tuple<task<T>...> tasks_;
    size_t running_ = 0;

  private:
    template <size_t... index>
    void start(std::index_sequence<index...>) {
        (start_one<index>(std::get<index>(tasks_)), ...);
    }

    template <size_t index, typename U>
    void start_one(task<U>& one) {
        if (!one) {
            --running_;
            static_cast<derived*>(this)->ended(index);
            return;
        }
        auto& promise = one.coroutine().promise();
        promise.context_ = context_;
        promise.waiting = this;
        promise.on_end = [](promise_base& end) noexcept -> std::coroutine_handle<> {
            auto* const self = static_cast<derived*>(static_cast<group*>(end.waiting));
            // Still counted as running: what ended() makes the others do must not resume who waits.
            self->ended(index);
            return --self->group::running_ == 0 ? self->group::scope_.resume_next(self->group::waiting_)
                                                : std::noop_coroutine();
        };
        one.coroutine().resume();
    }

    std::coroutine_handle<> waiting_;
    stop_scope scope_;
    task_context context_;
};

template <typename... T>
class all : public group<all<T...>, T...> {
  public:
    using group<all, T...>::group;

    std::tuple<value_or_monostate<T>...> await_resume() {
        return std::apply(
            [](auto&... task) { return std::tuple<value_or_monostate<T>...>{take_value(task)...}; },
            this->tasks_);
    }
};

template <typename... T>
class any : public group<any<T...>, T...> {
  public:
    using group<any, T...>::group;
    using value = std::variant<value_or_monostate<T>...>;

    value await_resume() { return take(std::index_sequence_for<T...>()); }

    // The first one ends the others. This one still counts as running meanwhile.
    void ended(size_t index) noexcept {
        if (!first_) {
            first_ = index;
            this->scope().stop();
        }
    }

  private:
    template <size_t... index>
    value take(std::index_sequence<index...>) {
        std::optional<value> taken;
        ((index == *first_
              ? void(taken.emplace(std::in_place_index<index>, take_value(std::get<index>(this->tasks_))))
              : void()),
         ...);
        return std::move(*taken);
    }

    std::optional<size_t> first_;
};

}  // namespace detail

/**
 * Runs tasks beside each other until all have ended.
 *
 * @return when awaited: a tuple of their values, `std::monostate` for void. The exception of the first in the
 *         list that has one is thrown.
 */
template <typename... T>
auto when_all(task<T>... tasks) {
    return detail::all<T...>(std::move(tasks)...);
}

/**
 * Runs tasks beside each other until one has ended, then ends the waits of the others and waits until they have
 * ended, too.
 *
 * @return when awaited: a variant with the value of the first, whose `index()` is its position;
 *         `std::monostate` for void. The exception of the first is thrown; those of the others are dropped.
 */
template <typename... T>
requires(sizeof...(T) > 0) auto when_any(task<T>... tasks) {
    return detail::any<T...>(std::move(tasks)...);
}

}  // namespace norv
