// SPDX-License-Identifier: MIT
// What all contending loops have in common.
//
// Each loop is a class with run, stop, settle (a round that does not wait, for the loops that put changes
// off) and refresh_time (for those that remember the time). Its nested records do one kind of work each:
// `watch` waits for a descriptor, `timer` and `deferred` run one callback, `remote` brings calls of another
// thread in. All but a removed `watch` must outlive the loop. What a record's callback does is one of the
// actions below, chosen at compile time, so that no contender pays for being measured.
#pragma once

#include <semaphore.h>
#include <sys/eventfd.h>
#include <norv/file.hpp>

#include <cstdint>
#include <functional>

#include "support/expect.hpp"

namespace bench {

struct loop_base {
    int64_t left = 0;             // callbacks to come before the loop stops
    std::function<void()> round;  // what `run_round` does
};

// Action: one callback less to go; the last one stops the loop.
struct count_down {
    template <class loop>
    static void act(loop& owner) {
        if (--owner.left == 0) {
            owner.stop();
        }
    }
};

// Action: does what the benchmark asked for.
struct run_round {
    template <class loop>
    static void act(loop& owner) {
        owner.round();
    }
};

// A descriptor that is always readable, or never.
class signal {
  public:
    explicit signal(bool readable)
        : file_(norv::file::adopt(eventfd(readable ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK)).value()) {}
    int descriptor() const { return file_.descriptor(); }

  private:
    norv::file file_;
};

// The waiting side of calls that bring their own answer: `derived` wakes the loop, whose thread answers.
template <class derived, class loop>
class remote_base {
  public:
    remote_base() { sem_init(&done_, 0, 0); }
    void wait_started() { call(); }
    void call() {
        static_cast<derived*>(this)->wake();
        sem_wait(&done_);
    }
    void stop() {
        last_ = true;
        call();
    }

  protected:
    void answer() {
        if (last_) {
            owner->stop();
        }
        sem_post(&done_);
    }
    loop* owner = nullptr;

  private:
    sem_t done_{};
    bool last_ = false;
};

// Does the work inside a handler of the running loop, where applications do it.
template <class loop>
void in_handler(loop& owner, const std::function<void()>& work) {
    const signal ready(true);
    typename loop::template watch<run_round> watch;
    owner.round = [&] {
        work();
        owner.stop();
        owner.round = [] {};
    };
    watch.add(owner, ready.descriptor());
    owner.run();
    watch.remove(owner);
    owner.settle();
}

}  // namespace bench
