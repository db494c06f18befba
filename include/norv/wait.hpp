// SPDX-License-Identifier: MIT
/**
 * @file norv/wait.hpp
 * What a task can wait for: a time, a descriptor, a value from another thread, another task within a limit.
 *
 * All waits return NORV_STATUS_TIMEOUT when the task is asked to stop.
 */
#pragma once

#include <cerrno>
#include <mutex>
#include <optional>
#include <utility>

#include "norv/task.hpp"

namespace norv {

namespace detail {

// A coroutine that waits: who resumes it, and with which status.
class suspended : private stop_node {
  public:
    // Begins to wait; false if the coroutine is to stop already.
    template <typename promise>
    bool begin(std::coroutine_handle<promise> waiting) noexcept {
        stop_scope* const scope = waiting.promise().context().scope;
        if (scope->stopped()) {
            status_ = status(NORV_STATUS_TIMEOUT);
            return false;
        }
        waiting_ = waiting;
        job_ = waiting.promise().context().job;
        return true;
    }

    // From now on the wait ends by `stop` when its scope is stopped.
    template <typename promise>
    void join(std::coroutine_handle<promise> waiting, void (*stop)(suspended*)) noexcept {
        stop_waiting_ = stop;
        link(waiting.promise().context().scope, [](stop_node* node) {
            auto* const self = static_cast<suspended*>(node);
            self->stop_waiting_(self);
        });
    }

    bool waiting() const noexcept { return static_cast<bool>(waiting_); }

    // The last act of whoever calls it: the coroutine may destroy everything here.
    void resume(status with) {
        status_ = with;
        unlink();
        const running_job running(job_);
        std::exchange(waiting_, {}).resume();
    }

    // Ends the wait of a coroutine that has not been suspended.
    void refuse(status with) noexcept {
        status_ = with;
        waiting_ = {};
    }

    status ended_with() const noexcept { return status_; }

  private:
    std::coroutine_handle<> waiting_;
    const void* job_ = nullptr;
    void (*stop_waiting_)(suspended*) = nullptr;
    status status_;
};

// The wait for a time.
class time_wait : private norv_epoll_timer_t, private suspended {
  public:
    explicit time_wait(int64_t ms) : norv_epoll_timer_t{}, ms_(ms) {}
    time_wait(const time_wait&) = delete;
    time_wait& operator=(const time_wait&) = delete;
    ~time_wait() {
        if (state_ != nullptr) {
            norv_epoll_timer_cancel(state_, this);
        }
    }

    bool await_ready() const noexcept { return false; }
    template <typename promise>
    bool await_suspend(std::coroutine_handle<promise> waiting) {
        if (!begin(waiting)) {
            return false;
        }
        state_ = waiting.promise().context().loop;
        callback = [](norv_epoll_timer_t* timer) { static_cast<time_wait*>(timer)->expire(); };
        if (const status scheduled = schedule(deadline_.begin(ms_)); !scheduled.ok()) {
            refuse(scheduled);
            return false;
        }
        join(waiting, [](suspended* wait) { static_cast<time_wait*>(wait)->stop(); });
        return true;
    }
    status await_resume() const noexcept { return ended_with(); }

  private:
    status schedule(uint32_t part) { return status(norv_epoll_timer_schedule(state_, this, part, false)); }
    void expire() {
        if (const uint32_t next = deadline_.next(); next != 0) {
            schedule(next).ignore();
        } else {
            resume(ok);
        }
    }
    void stop() {
        norv_epoll_timer_cancel(state_, this);
        resume(status(NORV_STATUS_TIMEOUT));
    }

    loop_state* state_ = nullptr;
    int64_t ms_;
    deadline deadline_;
};

}  // namespace detail

/** Waits for a time of any length; co_await returns a `status`. */
template <typename representation, typename unit>
auto sleep(std::chrono::duration<representation, unit> time) {
    return detail::time_wait(detail::milliseconds_of(time));
}

/** `co_await norv::stop_requested()` returns whether the task has been asked to stop. */
class stop_requested {
  public:
    bool await_ready() const noexcept { return false; }
    template <typename promise>
    bool await_suspend(std::coroutine_handle<promise> asking) noexcept {
        stopped_ = asking.promise().context().scope->stopped();
        return false;
    }
    bool await_resume() const noexcept { return stopped_; }

  private:
    bool stopped_ = false;
};

/**
 * A descriptor for which tasks wait: at most one to read it (EPOLLIN, EPOLLPRI), and one to write it (EPOLLOUT).
 * It stays registered from one wait to the next, so a task that waits again and again costs what a handler
 * costs; it is removed when it is ready and no task waits.
 *
 * The descriptor must stay open for as long as this object exists. A regular file, which is always ready,
 * cannot be waited for: EPERM. A task that waits when this object ends keeps waiting until it is stopped.
 */
class readiness : private norv_epoll_fd_t {
  public:
    explicit readiness(int32_t file_descriptor) noexcept : norv_epoll_fd_t() {
        descriptor = file_descriptor;
        handler = [](norv_epoll_fd_t* record, uint32_t events) {
            static_cast<readiness*>(record)->handle(events);
        };
    }
    readiness(const readiness&) = delete;
    readiness& operator=(const readiness&) = delete;
    ~readiness() {
        for (waiter* const waiting : waiters_) {
            if (waiting != nullptr) {
                waiting->of_ = nullptr;
            }
        }
        remove();
    }

    /**
     * Repeats an operation until it is over: at once, and then whenever one of these events has come.
     *
     * @param events    EPOLLIN, EPOLLPRI, or both; or EPOLLOUT
     * @param repeated  has `bool step(uint32_t events)`, which returns whether it is over, first called with 0;
     *                  and `finish(status)`, called with the status of the wait, whose value `co_await` returns
     */
    template <typename operation>
    auto repeat(uint32_t events, operation repeated) {
        return awaiter<operation>(*this, events, std::move(repeated));
    }

    /**
     * Waits for one of these events; EPOLLERR and EPOLLHUP always end the wait, too.
     *
     * @param events  as for `repeat`
     * @return when awaited: a `result<uint32_t>`, the events that came. NORV_STATUS_BAD_STATE: another task waits
     */
    auto wait(uint32_t events) { return repeat(events, single_wait{}); }

    /** Waits as above; `co_await` returns what a function makes of the `result<uint32_t>`. */
    template <typename function>
    auto wait(uint32_t events, function finish) {
        return repeat(events, mapped_wait<function>{{}, std::move(finish)});
    }

  private:
    struct single_wait {
        uint32_t came = 0;
        bool step(uint32_t events) noexcept {
            came = events;
            return events != 0;
        }
        result<uint32_t> finish(status waited) const noexcept {
            return waited.ok() ? result<uint32_t>(came) : result<uint32_t>(waited);
        }
    };
    template <typename function>
    struct mapped_wait : single_wait {
        function map;
        auto finish(status waited) { return map(single_wait::finish(waited)); }
    };

    // One of the two that may wait.
    class waiter : protected detail::suspended {
      public:
        waiter(readiness& of, uint32_t events, bool (*step)(waiter*, uint32_t)) noexcept
            : of_(&of), events_(events), step_(step) {}
        waiter(const waiter&) = delete;
        waiter& operator=(const waiter&) = delete;
        ~waiter() { leave(); }

        template <typename promise>
        bool await_suspend(std::coroutine_handle<promise> waiting) {
            if (!begin(waiting)) {
                return false;
            }
            if (const status armed = of_->arm(waiting.promise().context().loop, this); !armed.ok()) {
                refuse(armed);
                return false;
            }
            join(waiting,
                 [](suspended* wait) { static_cast<waiter*>(wait)->end(status(NORV_STATUS_TIMEOUT)); });
            return true;
        }

      private:
        friend class readiness;

        size_t place() const noexcept { return (events_ & EPOLLOUT) != 0 ? 1 : 0; }
        void leave() noexcept {
            if (of_ != nullptr && of_->waiters_[place()] == this) {
                of_->waiters_[place()] = nullptr;
            }
        }
        void end(status with) {
            leave();
            resume(with);
        }
        // Whether these events end the wait.
        bool is_over(uint32_t events) {
            const uint32_t mine = events & (events_ | EPOLLERR | EPOLLHUP);
            return mine != 0 && step_(this, mine);
        }

        readiness* of_;  // null: gone
        uint32_t events_;
        bool (*step_)(waiter* self, uint32_t events);
    };

    template <typename operation>
    class awaiter : public waiter {
      public:
        awaiter(readiness& of, uint32_t events, operation repeated)
            : waiter(of, events,
                     [](waiter* self, uint32_t came) {
                         return static_cast<awaiter*>(self)->operation_.step(came);
                     }),
              operation_(std::move(repeated)) {}

        bool await_ready() { return operation_.step(0); }
        auto await_resume() { return operation_.finish(this->ended_with()); }

      private:
        operation operation_;
    };

    uint32_t wanted() const noexcept {
        uint32_t events = 0;
        for (const waiter* const waiting : waiters_) {
            events |= waiting != nullptr ? waiting->events_ : 0;
        }
        return events;
    }

    // Resumes one waiter, as the last act: it may destroy everything here. The other one, whose turn is next, is
    // ready in the next round, too.
    void handle(uint32_t events) {
        for (waiter* const waiting : {waiters_[turn_], waiters_[1 - turn_]}) {
            if (waiting != nullptr && waiting->is_over(events)) {
                turn_ = waiting == waiters_[0] ? 1 : 0;
                waiting->end(ok);
                return;
            }
        }
        forget(events);
    }

    // Gives up what came and no task waits for: it would come again and again.
    void forget(uint32_t events) {
        const uint32_t still = wanted();
        if (still == 0) {
            remove();
        } else if ((events & ~(still | EPOLLERR | EPOLLHUP)) != 0) {
            change(share_.get(), still).ignore();
        }
    }

    status arm(detail::loop_state* state, waiter* waiting) {
        waiter*& place = waiters_[waiting->place()];
        if (place != nullptr) {
            return status(NORV_STATUS_BAD_STATE);
        }
        if (share_.get() != state) {
            remove();
            share_.take(state);
        }
        const uint32_t events = wanted() | waiting->events_;
        if ((events & ~armed_) != 0) {
            if (const status changed = change(state, events); !changed.ok()) {
                return changed;
            }
        }
        place = waiting;
        return ok;
    }

    status change(detail::loop_state* state, uint32_t events) {
        const status changed(armed_ == 0 ? norv_epoll_fd_add(state, this, events)
                                         : norv_epoll_fd_modify(state, this, events));
        if (changed.ok()) {
            armed_ = events;
        }
        return changed;
    }

    void remove() {
        if (std::exchange(armed_, 0U) != 0 && norv_epoll_fd_remove(share_.get(), this) != NORV_STATUS_OK) {
            norv_epoll_fd_ignore_once(share_.get(), this);
        }
    }

    detail::loop_share share_;
    uint32_t armed_ = 0;
    waiter* waiters_[2] = {};
    size_t turn_ = 0;
};

/**
 * A value that another thread gives to a task.
 *
 *     norv::completion<int> answer(loop);
 *     std::thread worker([&] { answer.set(42); });
 *     norv::result<int> given = co_await answer;
 *
 * Whoever sets it must have done so before the object ends.
 */
template <typename T>
class completion {
  public:
    explicit completion(const loop& on) : event_([this] { arrive(); }), created_(event_.start(on)) {}
    completion(const completion&) = delete;
    completion& operator=(const completion&) = delete;
    ~completion() {
        if (waiter_ != nullptr) {
            waiter_->of_ = nullptr;
        }
    }

    /** Gives the value; on any thread, once. */
    status set(T value) {
        {
            const std::lock_guard lock(mutex_);
            value_.emplace(std::move(value));
        }
        return event_.raise();
    }

    /** Waits for the value; one task at a time. `co_await` returns a `result<T>`. */
    auto operator co_await() { return awaiter(*this); }

  private:
    class awaiter : private detail::suspended {
      public:
        explicit awaiter(completion& of) : of_(&of) {}
        awaiter(const awaiter&) = delete;
        awaiter& operator=(const awaiter&) = delete;
        ~awaiter() { leave(); }

        bool await_ready() const noexcept { return false; }
        template <typename promise>
        bool await_suspend(std::coroutine_handle<promise> waiting) {
            if (!begin(waiting)) {
                return false;
            }
            if (!of_->created_.ok() || of_->waiter_ != nullptr || of_->has_value()) {
                refuse(of_->waiter_ != nullptr ? status(NORV_STATUS_BAD_STATE) : of_->created_);
                return false;
            }
            of_->waiter_ = this;
            join(waiting,
                 [](suspended* wait) { static_cast<awaiter*>(wait)->end(status(NORV_STATUS_TIMEOUT)); });
            return true;
        }
        result<T> await_resume() {
            if (!ended_with().ok()) {
                return ended_with();
            }
            const std::lock_guard lock(of_->mutex_);
            return std::move(*std::exchange(of_->value_, std::nullopt));
        }

      private:
        friend class completion;

        void leave() noexcept {
            if (of_ != nullptr && of_->waiter_ == this) {
                of_->waiter_ = nullptr;
            }
        }
        void end(status with) {
            leave();
            resume(with);
        }

        completion* of_;  // null: gone
    };

    bool has_value() {
        const std::lock_guard lock(mutex_);
        return value_.has_value();
    }

    void arrive() {
        if (waiter_ != nullptr && has_value()) {
            waiter_->end(ok);
        }
    }

    std::mutex mutex_;
    std::optional<T> value_;
    awaiter* waiter_ = nullptr;
    event<callback<void()>> event_;
    status created_;
};

namespace detail {

// A task within a limit.
template <typename T>
class limited : private norv_epoll_timer_t {
  public:
    using value = outcome_t<T>;

    limited(int64_t ms, task<T>&& within) : norv_epoll_timer_t{}, ms_(ms), task_(std::move(within)) {}
    limited(const limited&) = delete;
    limited& operator=(const limited&) = delete;
    ~limited() {
        if (state_ != nullptr) {
            norv_epoll_timer_cancel(state_, this);
        }
    }

    bool await_ready() const noexcept { return !task_; }
    template <typename promise>
    bool await_suspend(std::coroutine_handle<promise> waiting) {
        const task_context& outer = waiting.promise().context();
        scope_.enter(outer.scope);
        callback = [](norv_epoll_timer_t* timer) { static_cast<limited*>(timer)->expire(); };
        state_ = outer.loop;
        scheduled_ = schedule(deadline_.begin(ms_));
        if (!scheduled_.ok()) {
            return false;
        }
        auto& mine = task_.coroutine().promise();
        mine.context_ = outer.within(&scope_);
        mine.waiting = this;
        mine.on_end = [](promise_base& ended) noexcept -> std::coroutine_handle<> {
            auto* const self = static_cast<limited*>(ended.waiting);
            return self->waiting_ ? self->scope_.resume_next(self->waiting_) : std::noop_coroutine();
        };
        task_.coroutine().resume();
        if (task_.coroutine().done()) {
            return false;
        }
        waiting_ = waiting;
        return true;
    }
    value await_resume() {
        if (!scheduled_.ok()) {
            return scheduled_;
        }
        if constexpr (std::is_same_v<T, value>) {
            return task_.take();
        } else if constexpr (std::is_void_v<T>) {
            task_.take();
            return status(expired_ ? NORV_STATUS_TIMEOUT : NORV_STATUS_OK);
        } else {
            T taken = task_.take();
            return expired_ ? value(status(NORV_STATUS_TIMEOUT)) : value(std::move(taken));
        }
    }

  private:
    status schedule(uint32_t part) { return status(norv_epoll_timer_schedule(state_, this, part, false)); }
    void expire() {
        if (const uint32_t next = deadline_.next(); next != 0) {
            schedule(next).ignore();
            return;
        }
        expired_ = true;
        const running_job running(task_.coroutine().promise().context().job);
        scope_.stop();
    }

    int64_t ms_;
    task<T> task_;
    std::coroutine_handle<> waiting_;
    loop_state* state_ = nullptr;
    deadline deadline_;
    stop_scope scope_;
    status scheduled_;
    bool expired_ = false;
};

}  // namespace detail

/**
 * Runs a task, and ends its waits when the time is over.
 *
 * @return when awaited: what the task returned if that is a `status` or `result`; otherwise a `result<T>` of it,
 *         or a `status` for void, with NORV_STATUS_TIMEOUT when the time was over
 */
template <typename representation, typename unit, typename T>
auto with_timeout(std::chrono::duration<representation, unit> time, task<T> within) {
    return detail::limited<T>(detail::milliseconds_of(time), std::move(within));
}

}  // namespace norv
