// SPDX-License-Identifier: MIT
// The raw contenders: for each kind of work the loop that one would write by hand if nothing else mattered.
#pragma once

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <vector>

#include "support/four_way_heap.hpp"
#include "support/loop.hpp"

namespace bench {

class epoll_set {
  public:
    epoll_set() : descriptor_(epoll_create1(EPOLL_CLOEXEC)) { expect(descriptor_ > 0, "epoll_create1"); }
    ~epoll_set() { close(descriptor_); }
    epoll_set(const epoll_set&) = delete;
    epoll_set& operator=(const epoll_set&) = delete;

    void add(int descriptor, void* record) const {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = record;
        expect(epoll_ctl(descriptor_, EPOLL_CTL_ADD, descriptor, &event) == 0, "EPOLL_CTL_ADD");
    }
    void remove(int descriptor) const {
        expect(epoll_ctl(descriptor_, EPOLL_CTL_DEL, descriptor, nullptr) == 0, "EPOLL_CTL_DEL");
    }
    int wait(int timeout) { return epoll_wait(descriptor_, ready, ready_size, timeout); }

    static constexpr int ready_size = 256;
    epoll_event ready[ready_size];

  private:
    int descriptor_;
};

struct raw_base : loop_base {
    static constexpr const char* name = "raw";
    void stop() { stopped = true; }
    void settle() {}
    void refresh_time() {}

    bool stopped = false;
};

// Dispatch: epoll_wait, and one direct call for each event.
struct raw_dispatch : raw_base {
    template <class action>
    struct watch {
        void add(raw_dispatch& loop, int file) {
            owner = &loop;
            descriptor = file;
            loop.set.add(file, this);
        }
        void remove(raw_dispatch& loop) const { loop.set.remove(descriptor); }

        raw_dispatch* owner = nullptr;
        int descriptor = -1;
    };

    template <class action>
    [[gnu::noinline]] static void handle(watch<action>* record) {
        action::act(*record->owner);
    }

    void run() {
        stopped = false;
        while (!stopped) {
            const int count = set.wait(-1);
            for (int index = 0; index < count; ++index) {
                handle(static_cast<watch<count_down>*>(set.ready[index].data.ptr));
            }
        }
    }

    epoll_set set;
};

// Timers: the time of expiry counts from the call, so every start reads the clock, as the library's must.
struct raw_timers : raw_base {
    struct timer {
        void prepare(raw_timers&) {}
        void start(raw_timers& loop, uint32_t milliseconds) { loop.heap.insert(this, now() + milliseconds); }
        void restart(raw_timers& loop, uint32_t milliseconds) {
            loop.heap.change(this, now() + milliseconds);
        }
        void stop(raw_timers& loop) { loop.heap.remove(this); }

        size_t index = 0;
    };

    static uint64_t now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<uint64_t>(time.tv_sec) * 1000 + static_cast<uint64_t>(time.tv_nsec) / 1000000;
    }

    [[gnu::noinline]] static void handle(raw_timers* loop) { count_down::act(*loop); }

    int time_to_first() const {
        return static_cast<int>(std::max<int64_t>(0, static_cast<int64_t>(heap.first_key() - now())));
    }

    void run() {
        stopped = false;
        while (!stopped) {
            set.wait(time_to_first());
            const uint64_t time = now();
            while (!stopped && !heap.empty() && heap.first_key() <= time) {
                heap.remove(heap.first());
                handle(this);
            }
        }
    }

    epoll_set set;
    four_way_heap<timer> heap;
};

// Timers need no loop around them to be started and stopped.
inline void in_handler(raw_timers&, const std::function<void()>& work) {
    work();
}

// Delayed calls: an array of functions, run at the end of the round.
struct raw_delayed : raw_base {
    template <class action>
    struct watch {
        void add(raw_delayed& loop, int file) {
            descriptor = file;
            loop.set.add(file, this);
        }
        void remove(raw_delayed& loop) const { loop.set.remove(descriptor); }

        int descriptor = -1;
    };

    struct deferred {
        void prepare(raw_delayed&) {}
        void schedule(raw_delayed& loop) { loop.calls[loop.scheduled++] = &count_down::act<raw_delayed>; }
    };

    void run() {
        stopped = false;
        while (!stopped) {
            if (set.wait(-1) > 0) {
                round();
            }
            for (size_t index = 0; index < scheduled; ++index) {
                calls[index](*this);
            }
            scheduled = 0;
        }
    }

    epoll_set set;
    size_t scheduled = 0;
    std::vector<void (*)(raw_delayed&)> calls = std::vector<void (*)(raw_delayed&)>(100000);
};

// Calls of another thread: an eventfd wakes the loop, a semaphore the caller.
struct raw_calls : raw_base {
    struct remote : remote_base<remote, raw_calls> {
        void prepare(raw_calls& loop) {
            owner = &loop;
            loop.called = this;
        }
        void wake() { expect(eventfd_write(owner->waker.descriptor(), 1) == 0, "eventfd_write"); }
        void take() {
            eventfd_t value = 0;
            eventfd_read(owner->waker.descriptor(), &value);
            answer();
        }
    };

    static void use_threads() {}
    raw_calls() { set.add(waker.descriptor(), this); }

    void run() {
        stopped = false;
        while (!stopped) {
            if (set.wait(-1) > 0) {
                called->take();
            }
        }
    }

    epoll_set set;
    signal waker{false};
    remote* called = nullptr;
};

}  // namespace bench
