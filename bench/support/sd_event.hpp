// SPDX-License-Identifier: MIT
// sd-event as a contender. It takes no calls of other threads; an eventfd of one's own serves instead.
#pragma once

#include <sys/eventfd.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <ctime>

#include "support/loop.hpp"

namespace bench {

// A source, and its release.
class sd_source {
  public:
    sd_source() = default;
    ~sd_source() { release(); }
    sd_source(const sd_source&) = delete;
    sd_source& operator=(const sd_source&) = delete;

    sd_event_source** out() { return &source_; }
    sd_event_source* get() const { return source_; }
    void release() { source_ = sd_event_source_disable_unref(source_); }

  private:
    sd_event_source* source_ = nullptr;
};

struct sd_loop : loop_base {
    static constexpr const char* name = "sd-event";

    template <class action>
    struct watch {
        static int on_ready(sd_event_source*, int, uint32_t, void* owner) {
            action::act(*static_cast<sd_loop*>(owner));
            return 0;
        }
        void add(sd_loop& owner, int descriptor) {
            expect(sd_event_add_io(owner.event, source.out(), descriptor, EPOLLIN, on_ready, &owner) >= 0,
                   "sd_event_add_io");
        }
        void remove(sd_loop&) { source.release(); }

        sd_source source;
    };

    struct timer {
        static int on_expiry(sd_event_source*, uint64_t, void* owner) {
            count_down::act(*static_cast<sd_loop*>(owner));
            return 0;
        }
        void prepare(sd_loop& owner) {
            expect(sd_event_add_time(owner.event, source.out(), CLOCK_MONOTONIC, UINT64_MAX, 1, on_expiry,
                                     &owner) >= 0,
                   "sd_event_add_time");
            sd_event_source_set_enabled(source.get(), SD_EVENT_OFF);
        }
        void start(sd_loop& owner, uint32_t milliseconds) {
            restart(owner, milliseconds);
            sd_event_source_set_enabled(source.get(), SD_EVENT_ONESHOT);
        }
        void restart(sd_loop&, uint32_t milliseconds) {
            sd_event_source_set_time_relative(source.get(), uint64_t{milliseconds} * 1000);
        }
        void stop(sd_loop&) { sd_event_source_set_enabled(source.get(), SD_EVENT_OFF); }

        sd_source source;
    };

    struct deferred {
        static int on_turn(sd_event_source*, void* owner) {
            count_down::act(*static_cast<sd_loop*>(owner));
            return 0;
        }
        void prepare(sd_loop& owner) {
            expect(sd_event_add_defer(owner.event, source.out(), on_turn, &owner) >= 0, "sd_event_add_defer");
            sd_event_source_set_enabled(source.get(), SD_EVENT_OFF);
        }
        void schedule(sd_loop&) { sd_event_source_set_enabled(source.get(), SD_EVENT_ONESHOT); }

        sd_source source;
    };

    struct remote : remote_base<remote, sd_loop> {
        static int on_call(sd_event_source*, int descriptor, uint32_t, void* called) {
            eventfd_t value = 0;
            eventfd_read(descriptor, &value);
            static_cast<remote*>(called)->answer();
            return 0;
        }
        void prepare(sd_loop& loop) {
            owner = &loop;
            expect(sd_event_add_io(loop.event, source.out(), waker.descriptor(), EPOLLIN, on_call, this) >= 0,
                   "sd_event_add_io");
        }
        void wake() { expect(eventfd_write(waker.descriptor(), 1) == 0, "eventfd_write"); }

        signal waker{false};
        sd_source source;
    };

    static void use_threads() {}
    sd_loop() { expect(sd_event_new(&event) >= 0, "sd_event_new"); }
    ~sd_loop() { sd_event_unref(event); }
    sd_loop(const sd_loop&) = delete;
    sd_loop& operator=(const sd_loop&) = delete;

    // sd_event_exit ends a loop for good, so the rounds are run one by one.
    void run() {
        stopped = false;
        while (!stopped) {
            sd_event_run(event, UINT64_MAX);
        }
    }
    void stop() { stopped = true; }
    void settle() {}
    void refresh_time() {}

    sd_event* event = nullptr;
    bool stopped = false;
};

}  // namespace bench
