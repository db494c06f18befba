// SPDX-License-Identifier: MIT
// Calls that a handler leaves for the end of the round.
#include <vector>

#include "support/loops.hpp"

namespace {

constexpr int64_t calls_per_round = 1000;
constexpr int64_t rounds_per_run = 10;

template <class loop>
void schedule_and_run(benchmark::State& state) {
    std::vector<typename loop::deferred> calls(calls_per_round);
    const bench::signal ready(true);
    typename loop::template watch<bench::run_round> watch;
    loop owner;
    for (auto& call : calls) {
        call.prepare(owner);
    }
    owner.round = [&] {
        for (auto& call : calls) {
            call.schedule(owner);
        }
    };
    watch.add(owner, ready.descriptor());
    for (auto _ : state) {
        owner.left = calls_per_round * rounds_per_run;
        owner.run();
    }
    state.SetItemsProcessed(state.iterations() * calls_per_round * rounds_per_run);
    owner.round = [] {};
    watch.remove(owner);
    owner.settle();
}

}  // namespace

int main(int argc, char** argv) {
    using loops = bench::contenders<bench::raw_delayed, bench::ours, bench::libev, bench::libuv,
                                    bench::libevent, bench::sd_loop>;
    bench::add_row({.name = "delayed call, 1000 a round", .target = 6.0}, loops(),
                   []<class loop>(benchmark::State& state) { schedule_and_run<loop>(state); });
    return bench::run_rows(argc, argv);
}
