// SPDX-License-Identifier: MIT
// Firing timers that are due.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/loops.hpp"
#include "support/random.hpp"

namespace {

void sleep_for(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

enum class part { firing, starting_and_firing };

// All start within `span` milliseconds, in no order, and fire in one round when all are due.
template <class loop>
void fire(benchmark::State& state, part timed, uint32_t count, uint32_t span) {
    std::vector<typename loop::timer> timers(count);
    loop owner;
    bench::random_numbers numbers;
    for (auto& timer : timers) {
        timer.prepare(owner);
    }
    for (auto _ : state) {
        if (timed == part::firing) {
            state.PauseTiming();
        }
        owner.refresh_time();
        for (auto& timer : timers) {
            timer.start(owner, numbers.below(span));
        }
        sleep_for(span + 1);  // takes no processor time
        owner.left = count;
        if (timed == part::firing) {
            state.ResumeTiming();
        }
        owner.run();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

// One timer is due, then many are started: a queue that puts its ordering off pays for all of them when the
// first one leaves.
template <class loop>
void fire_first(benchmark::State& state, uint32_t pending) {
    std::vector<typename loop::timer> timers(pending);
    typename loop::timer first;
    loop owner;
    bench::random_numbers numbers;
    first.prepare(owner);
    for (auto& timer : timers) {
        timer.prepare(owner);
    }
    for (auto _ : state) {
        state.PauseTiming();
        owner.refresh_time();
        first.start(owner, 0);
        for (auto& timer : timers) {
            timer.start(owner, 3600000 + numbers.below(3600000));
        }
        sleep_for(2);
        owner.left = 1;
        state.ResumeTiming();
        owner.run();
        state.PauseTiming();
        for (auto& timer : timers) {
            timer.stop(owner);
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    using quick_loops =
        bench::contenders<bench::raw_timers, bench::ours, bench::libev, bench::libuv, bench::libevent>;
    using all_loops = bench::contenders<bench::raw_timers, bench::ours, bench::libev, bench::libuv,
                                        bench::libevent, bench::sd_loop>;
    for (const part timed : {part::firing, part::starting_and_firing}) {
        const std::string work = timed == part::firing ? "fire " : "start and fire ";
        bench::add_row({.name = work + "10000 timers", .target = 2.0, .iterations = 3}, all_loops(),
                       [=]<class loop>(benchmark::State& state) { fire<loop>(state, timed, 10000, 100); });
        // Without sd-event, which would take half a minute.
        bench::add_row({.name = work + "1000000 timers", .iterations = 1}, quick_loops(),
                       [=]<class loop>(benchmark::State& state) { fire<loop>(state, timed, 1000000, 1000); });
    }
    bench::add_row({.name = "first expiry after 100000 starts", .iterations = 5}, quick_loops(),
                   []<class loop>(benchmark::State& state) { fire_first<loop>(state, 100000); });
    return bench::run_rows(argc, argv);
}
