// SPDX-License-Identifier: MIT
// libevent as a contender.
#pragma once

#include <event2/event.h>
#include <event2/event_struct.h>
#include <event2/thread.h>

#include "support/loop.hpp"

namespace bench {

struct libevent : loop_base {
    static constexpr const char* name = "libevent";

    template <class action>
    struct watch {
        static void on_ready(evutil_socket_t, short, void* owner) {
            action::act(*static_cast<libevent*>(owner));
        }
        void add(libevent& owner, int descriptor) {
            event_assign(&record, owner.base, descriptor, EV_READ | EV_PERSIST, on_ready, &owner);
            expect(event_add(&record, nullptr) == 0, "event_add");
        }
        void remove(libevent&) { event_del(&record); }

        event record{};
    };

    static void on_turn(evutil_socket_t, short, void* owner) {
        count_down::act(*static_cast<libevent*>(owner));
    }

    struct timer {
        void prepare(libevent& owner) { evtimer_assign(&record, owner.base, on_turn, &owner); }
        void start(libevent&, uint32_t milliseconds) {
            const timeval delay = {static_cast<time_t>(milliseconds / 1000),
                                   static_cast<suseconds_t>(milliseconds % 1000) * 1000};
            evtimer_add(&record, &delay);
        }
        void restart(libevent& owner, uint32_t milliseconds) { start(owner, milliseconds); }
        void stop(libevent&) { evtimer_del(&record); }

        event record{};
    };

    struct deferred {
        void prepare(libevent& owner) { evtimer_assign(&record, owner.base, on_turn, &owner); }
        void schedule(libevent&) { event_active(&record, EV_TIMEOUT, 0); }

        event record{};
    };

    struct remote : remote_base<remote, libevent> {
        static void on_call(evutil_socket_t, short, void* called) { static_cast<remote*>(called)->answer(); }
        void prepare(libevent& loop) {
            owner = &loop;
            event_assign(&record, loop.base, -1, EV_PERSIST, on_call, this);
        }
        void wake() { event_active(&record, EV_READ, 0); }

        event record{};
    };

    // Makes every base opened from now on lock, so only the program that needs it asks for it.
    static void use_threads() { evthread_use_pthreads(); }
    libevent() { expect(base != nullptr, "event_base_new"); }
    ~libevent() { event_base_free(base); }
    libevent(const libevent&) = delete;
    libevent& operator=(const libevent&) = delete;

    void run() { event_base_loop(base, EVLOOP_NO_EXIT_ON_EMPTY); }
    void stop() { event_base_loopbreak(base); }
    void settle() {}
    void refresh_time() {}

    event_base* base = event_base_new();
};

}  // namespace bench
