// SPDX-License-Identifier: MIT
// Starting, stopping and moving timers while others are pending.
#include <string>
#include <vector>

#include "support/loops.hpp"
#include "support/random.hpp"

namespace {

// Between one and two hours: none fires while it is measured.
uint32_t far_away(bench::random_numbers& numbers) {
    return 3600000 + numbers.below(3600000);
}

template <class timer, class loop>
void start_all(std::vector<timer>& timers, loop& owner, bench::random_numbers& numbers) {
    owner.refresh_time();
    for (timer& each : timers) {
        each.prepare(owner);
        each.start(owner, far_away(numbers));
    }
}

template <class loop>
void start_and_stop(benchmark::State& state, uint32_t pending) {
    std::vector<typename loop::timer> timers(pending);
    typename loop::timer timer;
    loop owner;
    bench::random_numbers numbers;
    start_all(timers, owner, numbers);
    timer.prepare(owner);
    in_handler(owner, [&] {
        for (auto _ : state) {
            timer.start(owner, far_away(numbers));
            timer.stop(owner);
        }
    });
    state.SetItemsProcessed(state.iterations());
}

template <class loop>
void move_pending(benchmark::State& state, uint32_t pending) {
    std::vector<typename loop::timer> timers(pending);
    loop owner;
    bench::random_numbers numbers;
    start_all(timers, owner, numbers);
    in_handler(owner, [&] {
        for (auto _ : state) {
            timers[numbers.below(pending)].restart(owner, far_away(numbers));
        }
    });
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    using loops = bench::contenders<bench::raw_timers, bench::ours, bench::libev, bench::libuv,
                                    bench::libevent, bench::sd_loop>;
    for (const uint32_t pending : {1000u, 100000u}) {
        const std::string among = ", " + std::to_string(pending) + " pending";
        bench::add_row(
            {.name = "timer start and stop" + among, .target = pending == 1000 ? 2.0 : 2.5}, loops(),
            [pending]<class loop>(benchmark::State& state) { start_and_stop<loop>(state, pending); });
        bench::add_row(
            {.name = "timer moved" + among, .target = pending == 1000 ? 2.0 : 2.5}, loops(),
            [pending]<class loop>(benchmark::State& state) { move_pending<loop>(state, pending); });
    }
    return bench::run_rows(argc, argv);
}
