// SPDX-License-Identifier: MIT
// Handing ready descriptors to their handlers.
#include <sys/resource.h>

#include <string>
#include <vector>

#include "support/loops.hpp"

namespace {

struct shape {
    int64_t descriptors;
    int64_t active;
};

constexpr shape shapes[] = {{100, 1},     {100, 100}, {1000, 1},    {1000, 100},
                            {1000, 1000}, {10000, 1}, {10000, 1000}};
constexpr int64_t events_per_run = 2048;

template <class loop>
void dispatch(benchmark::State& state, shape shape) {
    std::vector<bench::signal> signals;
    std::vector<typename loop::template watch<bench::count_down>> watches(
        static_cast<size_t>(shape.descriptors));
    loop owner;
    const int64_t distance = shape.descriptors / shape.active;
    for (size_t index = 0; index < watches.size(); ++index) {
        signals.emplace_back(static_cast<int64_t>(index) % distance == 0);
        watches[index].add(owner, signals.back().descriptor());
    }
    // The first run belongs to the loops that put registration off.
    owner.left = 1;
    owner.run();
    int64_t dispatched = 0;
    for (auto _ : state) {
        owner.left = events_per_run;
        owner.run();
        dispatched += events_per_run - owner.left;  // some loops finish their round
    }
    state.SetItemsProcessed(dispatched);
    for (auto& watch : watches) {
        watch.remove(owner);
    }
    owner.settle();
}

void allow_many_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    using loops = bench::contenders<bench::raw_dispatch, bench::ours, bench::libev, bench::libuv,
                                    bench::libevent, bench::sd_loop>;
    allow_many_descriptors();
    for (const shape shape : shapes) {
        bench::add_row({.name = "dispatch, " + std::to_string(shape.active) + " of " +
                                std::to_string(shape.descriptors) + " active",
                        .target = 1.02},
                       loops(),
                       [shape]<class loop>(benchmark::State& state) { dispatch<loop>(state, shape); });
    }
    return bench::run_rows(argc, argv);
}
