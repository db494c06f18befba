// SPDX-License-Identifier: MIT
// Registering a descriptor and ending its registration.
#include <vector>

#include "support/loops.hpp"

namespace {

constexpr int64_t descriptors = 500;

// All are added, the kernel gets to know them, all are removed: loops that put changes off to their next
// round get that round.
template <class loop>
void add_and_remove(benchmark::State& state) {
    std::vector<bench::signal> signals;
    std::vector<typename loop::template watch<bench::count_down>> watches(descriptors);
    loop owner;
    for (int64_t index = 0; index < descriptors; ++index) {
        signals.emplace_back(false);
    }
    for (auto _ : state) {
        for (size_t index = 0; index < watches.size(); ++index) {
            watches[index].add(owner, signals[index].descriptor());
        }
        owner.settle();
        for (auto& watch : watches) {
            watch.remove(owner);
        }
        owner.settle();
    }
    state.SetItemsProcessed(state.iterations() * descriptors);
}

}  // namespace

int main(int argc, char** argv) {
    // Without libev, which leaves removed descriptors in the kernel's set.
    using loops =
        bench::contenders<bench::raw_dispatch, bench::ours, bench::libuv, bench::libevent, bench::sd_loop>;
    bench::add_row({.name = "add and remove a descriptor", .target = 1.02}, loops(),
                   []<class loop>(benchmark::State& state) { add_and_remove<loop>(state); });
    return bench::run_rows(argc, argv);
}
