// SPDX-License-Identifier: MIT
// Event-loop records whose handlers and callbacks are functions of the test, and a thread that runs a loop.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <functional>
#include <thread>
#include <utility>

#include "norv_epoll.h"

namespace norv::test {

// A registered eventfd: ready from `signal` until `quiet`. The kernel reports ready descriptors in the order
// in which they became ready.
class source {
  public:
    using handler = std::function<void(uint32_t events)>;

    explicit source(handler on_event = {})
        : record{nullptr, eventfd(0, EFD_CLOEXEC), handle}, on_event_(std::move(on_event)) {}
    ~source() { close(record.descriptor); }
    source(const source&) = delete;
    source& operator=(const source&) = delete;

    void on_event(handler on_event) { on_event_ = std::move(on_event); }
    void signal() { eventfd_write(record.descriptor, 1); }
    void quiet() {
        eventfd_t count = 0;
        eventfd_read(record.descriptor, &count);
    }

    norv_epoll_fd_t record;
    int deliveries = 0;

  private:
    static void handle(norv_epoll_fd_t* record, uint32_t events) {
        auto* self = reinterpret_cast<source*>(record);
        ++self->deliveries;
        if (self->on_event_) {
            self->on_event_(events);
        }
    }

    handler on_event_;
};

class timer {
  public:
    explicit timer(std::function<void()> on_expiry = {}) : on_expiry_(std::move(on_expiry)) {
        record.callback = expire;
    }
    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;

    void on_expiry(std::function<void()> on_expiry) { on_expiry_ = std::move(on_expiry); }

    norv_epoll_timer_t record = {};
    int expiries = 0;

  private:
    static void expire(norv_epoll_timer_t* record) {
        auto* self = reinterpret_cast<timer*>(record);
        ++self->expiries;
        if (self->on_expiry_) {
            self->on_expiry_();
        }
    }

    std::function<void()> on_expiry_;
};

class delayed_call {
  public:
    explicit delayed_call(std::function<void()> on_run = {}) : on_run_(std::move(on_run)) {
        record.callback = run;
    }
    delayed_call(const delayed_call&) = delete;
    delayed_call& operator=(const delayed_call&) = delete;

    void on_run(std::function<void()> on_run) { on_run_ = std::move(on_run); }

    norv_epoll_delayed_t record = {};
    int runs = 0;

  private:
    static void run(norv_epoll_delayed_t* record) {
        auto* self = reinterpret_cast<delayed_call*>(record);
        ++self->runs;
        if (self->on_run_) {
            self->on_run_();
        }
    }

    std::function<void()> on_run_;
};

// An open loop, closed at the end of the scope.
class open_loop {
  public:
    open_loop() { opened = norv_epoll_open(&handle); }
    ~open_loop() { norv_epoll_close(&handle); }
    open_loop(const open_loop&) = delete;
    open_loop& operator=(const open_loop&) = delete;

    void run() { norv_epoll_loop_with_watchdog(&handle, nullptr, 0); }
    void exit() { norv_epoll_exit(&handle); }

    norv_epoll_t handle = {};
    uint32_t opened;
};

// A thread that runs a loop: from the end of the constructor until the destructor stops it.
class loop_thread {
  public:
    explicit loop_thread(norv_epoll_t* loop)
        : loop_(loop), thread_([loop] { norv_epoll_loop_with_watchdog(loop, nullptr, 0); }) {
        norv_epoll_wait_loop_started(loop_);
    }
    ~loop_thread() {
        norv_epoll_exit(loop_);
        thread_.join();
    }
    loop_thread(const loop_thread&) = delete;
    loop_thread& operator=(const loop_thread&) = delete;

    // As the loop's record shows it.
    uint64_t identifier() const { return loop_->loop_thread; }

  private:
    norv_epoll_t* loop_;
    std::thread thread_;
};

// Waits until another thread has posted a call that the loop did not take yet.
inline void wait_for_posted_call(const norv_epoll_t& loop) {
    pollfd posted = {loop.call_descriptor, POLLIN, 0};
    poll(&posted, 1, -1);
    // Adds nothing, but ends only when the epoll instance has taken note of the post.
    eventfd_write(loop.call_descriptor, 0);
}

}  // namespace norv::test
