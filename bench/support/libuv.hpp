// SPDX-License-Identifier: MIT
// libuv as a contender. It has no delayed calls; a check handle that stops itself comes nearest.
#pragma once

#include <uv.h>

#include "support/loop.hpp"

namespace bench {

struct libuv : loop_base {
    static constexpr const char* name = "libuv";

    template <class action>
    struct watch {
        static void on_ready(uv_poll_t* record, int, int) { action::act(*static_cast<libuv*>(record->data)); }
        void add(libuv& owner, int descriptor) {
            expect(uv_poll_init(&owner.handle, &record, descriptor) == 0, "uv_poll_init");
            record.data = &owner;
            uv_poll_start(&record, UV_READABLE, on_ready);
        }
        void remove(libuv&) {
            uv_poll_stop(&record);
            uv_close(reinterpret_cast<uv_handle_t*>(&record), nullptr);
        }

        uv_poll_t record{};
    };

    struct timer {
        static void on_expiry(uv_timer_t* record) { count_down::act(*static_cast<libuv*>(record->data)); }
        void prepare(libuv& owner) {
            uv_timer_init(&owner.handle, &record);
            record.data = &owner;
        }
        void start(libuv&, uint32_t milliseconds) { uv_timer_start(&record, on_expiry, milliseconds, 0); }
        void restart(libuv& owner, uint32_t milliseconds) { start(owner, milliseconds); }
        void stop(libuv&) { uv_timer_stop(&record); }

        uv_timer_t record{};
    };

    struct deferred {
        static void on_turn(uv_check_t* record) {
            uv_check_stop(record);
            count_down::act(*static_cast<libuv*>(record->data));
        }
        void prepare(libuv& owner) {
            uv_check_init(&owner.handle, &record);
            record.data = &owner;
        }
        void schedule(libuv&) { uv_check_start(&record, on_turn); }

        uv_check_t record{};
    };

    struct remote : remote_base<remote, libuv> {
        static void on_call(uv_async_t* record) { static_cast<remote*>(record->data)->answer(); }
        void prepare(libuv& loop) {
            owner = &loop;
            uv_async_init(&loop.handle, &record, on_call);
            record.data = this;
        }
        void wake() { uv_async_send(&record); }

        uv_async_t record{};
    };

    static void use_threads() {}
    libuv() { expect(uv_loop_init(&handle) == 0, "uv_loop_init"); }
    static void close_handle(uv_handle_t* record, void*) {
        if (uv_is_closing(record) == 0) {
            uv_close(record, nullptr);
        }
    }
    ~libuv() {
        uv_walk(&handle, close_handle, nullptr);
        uv_run(&handle, UV_RUN_DEFAULT);
        uv_loop_close(&handle);
    }
    libuv(const libuv&) = delete;
    libuv& operator=(const libuv&) = delete;

    void run() { uv_run(&handle, UV_RUN_DEFAULT); }
    void stop() { uv_stop(&handle); }
    void settle() { uv_run(&handle, UV_RUN_NOWAIT); }
    void refresh_time() { uv_update_time(&handle); }

    uv_loop_t handle{};
};

}  // namespace bench
