// SPDX-License-Identifier: MIT
// The rows of the table: each is one piece of work that several contenders do, one after the other.
//
// A benchmark's name is "row|contender", and its row's target travels with it as a counter; `table.py` makes
// the table of these.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>

namespace bench {

// How a row is to be measured, and what the library is to reach in it.
struct row {
    std::string name;
    double target = 0;  // largest ratio to raw; 0: no slower than the fastest peer
    bool wall_clock = false;
    int64_t iterations = 0;  // 0: as many as the measuring time asks for
};

// The loops that take part in a row.
template <class... loops>
struct contenders {};

inline void add_contender(const row& row, const char* name, std::function<void(benchmark::State&)> work) {
    auto* added =
        benchmark::RegisterBenchmark((row.name + "|" + name).c_str(),
                                     [work = std::move(work), target = row.target](benchmark::State& state) {
                                         work(state);
                                         state.counters["target"] = target;
                                     });
    if (row.wall_clock) {
        added->UseRealTime();
    }
    if (row.iterations != 0) {
        added->Iterations(row.iterations);
    }
}

// A row over event loops: `work` is called as work.operator()<loop>(state).
template <class work_type, class... loops>
void add_row(const row& row, contenders<loops...>, work_type work) {
    (add_contender(row, loops::name,
                   [work](benchmark::State& state) { work.template operator()<loops>(state); }),
     ...);
}

// A row that compares a call of the library with the bare system calls it must make.
template <class raw_type, class ours_type>
void add_pair(const row& row, raw_type raw, ours_type ours) {
    const auto repeat = [](auto work) {
        return [work](benchmark::State& state) {
            for (auto _ : state) {
                work();
            }
            state.SetItemsProcessed(state.iterations());
        };
    };
    add_contender(row, "raw", repeat(raw));
    add_contender(row, "ours", repeat(ours));
}

inline int run_rows(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace bench
