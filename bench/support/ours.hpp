// SPDX-License-Identifier: MIT
// This library as a contender.
#pragma once

#include <norv_epoll.h>

#include "support/loop.hpp"

namespace bench {

struct ours : loop_base {
    static constexpr const char* name = "ours";

    template <class action>
    struct watch {
        static void on_ready(norv_epoll_fd_t* record, uint32_t) {
            action::act(*reinterpret_cast<watch*>(record)->owner);
        }
        void add(ours& loop, int descriptor) {
            owner = &loop;
            record.descriptor = descriptor;
            record.handler = on_ready;
            expect(norv_epoll_fd_add(&loop.handle, &record, EPOLLIN) == NORV_STATUS_OK, "norv_epoll_fd_add");
        }
        void remove(ours& loop) { norv_epoll_fd_remove(&loop.handle, &record); }

        norv_epoll_fd_t record{};
        ours* owner = nullptr;
    };

    struct timer {
        static void on_expiry(norv_epoll_timer_t* record) {
            count_down::act(*reinterpret_cast<timer*>(record)->owner);
        }
        void prepare(ours& loop) {
            owner = &loop;
            record.callback = on_expiry;
        }
        void start(ours& loop, uint32_t milliseconds) {
            norv_epoll_timer_schedule(&loop.handle, &record, milliseconds, false);
        }
        void restart(ours& loop, uint32_t milliseconds) { start(loop, milliseconds); }
        void stop(ours& loop) { norv_epoll_timer_cancel(&loop.handle, &record); }

        norv_epoll_timer_t record{};
        ours* owner = nullptr;
    };

    struct deferred {
        static void on_turn(norv_epoll_delayed_t* record) {
            count_down::act(*reinterpret_cast<deferred*>(record)->owner);
        }
        void prepare(ours& loop) {
            owner = &loop;
            record.callback = on_turn;
        }
        void schedule(ours& loop) { norv_epoll_delayed_schedule(&loop.handle, &record, 0); }

        norv_epoll_delayed_t record{};
        ours* owner = nullptr;
    };

    struct remote {
        static uint32_t do_nothing(norv_epoll_t*, uint64_t, uint64_t) { return NORV_STATUS_OK; }
        void prepare(ours& loop) { owner = &loop; }
        void wait_started() { norv_epoll_wait_loop_started(&owner->handle); }
        void call() { norv_epoll_call_sync(&owner->handle, do_nothing, 0, 0); }
        void stop() { owner->stop(); }

        ours* owner = nullptr;
    };

    static void use_threads() {}
    ours() { expect(norv_epoll_open(&handle) == NORV_STATUS_OK, "norv_epoll_open"); }
    ~ours() { norv_epoll_close(&handle); }
    ours(const ours&) = delete;
    ours& operator=(const ours&) = delete;

    void run() { norv_epoll_loop_with_watchdog(&handle, nullptr, 0); }
    void stop() { norv_epoll_exit(&handle); }
    void settle() {}
    void refresh_time() {}

    norv_epoll_t handle{};
};

}  // namespace bench
