// SPDX-License-Identifier: MIT
// libev as a contender. It leaves a descriptor that is no longer watched in the kernel's set.
#pragma once

#include <ev.h>

#include "support/loop.hpp"

namespace bench {

struct libev : loop_base {
    static constexpr const char* name = "libev";

    template <class action>
    struct watch {
        static void on_ready(struct ev_loop*, ev_io* record, int) {
            action::act(*static_cast<libev*>(record->data));
        }
        void add(libev& owner, int descriptor) {
            ev_io_init(&record, on_ready, descriptor, EV_READ);
            record.data = &owner;
            ev_io_start(owner.handle, &record);
        }
        void remove(libev& owner) { ev_io_stop(owner.handle, &record); }

        ev_io record{};
    };

    struct timer {
        static void on_expiry(struct ev_loop*, ev_timer* record, int) {
            count_down::act(*static_cast<libev*>(record->data));
        }
        void prepare(libev& owner) {
            ev_timer_init(&record, on_expiry, 0., 0.);
            record.data = &owner;
        }
        void start(libev& owner, uint32_t milliseconds) {
            ev_timer_set(&record, milliseconds * 1e-3, 0.);
            ev_timer_start(owner.handle, &record);
        }
        // What libev recommends for moving a pending timer: it changes its place in the heap.
        void restart(libev& owner, uint32_t milliseconds) {
            record.repeat = milliseconds * 1e-3;
            ev_timer_again(owner.handle, &record);
        }
        void stop(libev& owner) { ev_timer_stop(owner.handle, &record); }

        ev_timer record{};
    };

    struct deferred {
        static void on_turn(struct ev_loop*, ev_prepare* record, int) {
            count_down::act(*static_cast<libev*>(record->data));
        }
        void prepare(libev& owner) {
            ev_prepare_init(&record, on_turn);
            record.data = &owner;
        }
        void schedule(libev& owner) { ev_feed_event(owner.handle, &record, EV_CUSTOM); }

        ev_prepare record{};
    };

    struct remote : remote_base<remote, libev> {
        static void on_call(struct ev_loop*, ev_async* record, int) {
            static_cast<remote*>(record->data)->answer();
        }
        void prepare(libev& loop) {
            owner = &loop;
            ev_async_init(&record, on_call);
            record.data = this;
            ev_async_start(loop.handle, &record);
        }
        void wake() { ev_async_send(owner->handle, &record); }

        ev_async record{};
    };

    static void use_threads() {}
    libev() { expect(handle != nullptr, "ev_loop_new"); }
    ~libev() { ev_loop_destroy(handle); }
    libev(const libev&) = delete;
    libev& operator=(const libev&) = delete;

    void run() { ev_run(handle, 0); }
    void stop() { ev_break(handle, EVBREAK_ONE); }
    void settle() { ev_run(handle, EVRUN_NOWAIT); }
    void refresh_time() { ev_now_update(handle); }

    struct ev_loop* handle = ev_loop_new(static_cast<unsigned>(EVBACKEND_EPOLL) | EVFLAG_NOENV);
};

}  // namespace bench
