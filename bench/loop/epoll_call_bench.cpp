// SPDX-License-Identifier: MIT
// A call that another thread has the loop run, there and back.
#include <sched.h>

#include <thread>
#include <vector>

#include "support/loops.hpp"

namespace {

std::vector<int> usable_processors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof set, &set);
    std::vector<int> processors;
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(processor, &set)) {
            processors.push_back(processor);
        }
    }
    return processors;
}

void move_to(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    bench::expect(sched_setaffinity(0, sizeof set, &set) == 0, "sched_setaffinity");
}

template <class loop>
void call_and_return(benchmark::State& state, int caller_processor, int loop_processor) {
    loop::use_threads();
    typename loop::remote remote;
    loop owner;
    remote.prepare(owner);
    std::thread runner([&] {
        move_to(loop_processor);
        owner.run();
    });
    move_to(caller_processor);
    remote.wait_started();
    for (auto _ : state) {
        remote.call();
    }
    state.SetItemsProcessed(state.iterations());
    remote.stop();
    runner.join();
}

}  // namespace

int main(int argc, char** argv) {
    using loops = bench::contenders<bench::raw_calls, bench::ours, bench::libev, bench::libuv,
                                    bench::libevent, bench::sd_loop>;
    const std::vector<int> processors = usable_processors();
    const auto add_row = [](const char* name, int caller, int runner) {
        bench::add_row(
            {.name = name, .target = 1.25, .wall_clock = true}, loops(),
            [=]<class loop>(benchmark::State& state) { call_and_return<loop>(state, caller, runner); });
    };
    add_row("call from another thread, one processor", processors[0], processors[0]);
    if (processors.size() > 1) {
        add_row("call from another thread, two processors", processors[0], processors[1]);
    }
    return bench::run_rows(argc, argv);
}
