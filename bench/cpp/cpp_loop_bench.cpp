// SPDX-License-Identifier: MIT
// The loop of C++ beside the same work through the C interface: "raw" is C here.
#include <sys/eventfd.h>
#include <norv/file.hpp>
#include <norv/wait.hpp>

#include <chrono>
#include <cstdint>
#include <list>
#include <vector>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

using namespace std::chrono_literals;

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_epoll");
}

// ---- timers

void add_timers() {
    static norv_epoll_t c_loop = {};
    static norv_epoll_timer_t c_timer = {};
    succeed(norv_epoll_open(&c_loop));
    c_timer.callback = [](norv_epoll_timer_t*) {};
    static norv::loop loop = norv::loop::open().value();
    static norv::timer timer([] {});
    bench::add_pair(
        {.name = "C++: timer start and stop", .target = 1.05},
        [] {
            succeed(norv_epoll_timer_schedule(&c_loop, &c_timer, 3600000, false));
            succeed(norv_epoll_timer_cancel(&c_loop, &c_timer));
        },
        [] {
            succeed(timer.start(loop, 1h).number());
            succeed(timer.stop().number());
        });
}

// ---- handlers

constexpr int descriptor_count = 100;

// Descriptors that are always readable.
std::vector<norv::file> ready_files(int count) {
    std::vector<norv::file> files;
    for (int index = 0; index < count; ++index) {
        files.push_back(norv::file::adopt(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)).value());
    }
    return files;
}

struct counted {
    norv_epoll_fd_t registration;
    benchmark::State* state;
};

void count(norv_epoll_fd_t* record, uint32_t) {
    if (!reinterpret_cast<counted*>(record)->state->KeepRunning()) {
        norv_epoll_exit(record->loop);
    }
}

void dispatch_in_c(benchmark::State& state, int number) {
    const std::vector<norv::file> ready = ready_files(number);
    std::vector<counted> records(ready.size());
    norv_epoll_t loop = {};
    succeed(norv_epoll_open(&loop));
    for (size_t index = 0; index < records.size(); ++index) {
        records[index] = {{.loop = nullptr, .descriptor = ready[index].descriptor(), .handler = count},
                          &state};
        succeed(norv_epoll_fd_add(&loop, &records[index].registration, EPOLLIN));
    }
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    for (counted& record : records) {
        succeed(norv_epoll_fd_remove(&loop, &record.registration));
    }
    norv_epoll_close(&loop);
    state.SetItemsProcessed(state.iterations());
}

void dispatch_to_lambdas(benchmark::State& state) {
    const std::vector<norv::file> ready = ready_files(descriptor_count);
    norv::loop loop = norv::loop::open().value();
    const auto handler = [&](uint32_t) {
        if (!state.KeepRunning()) {
            loop.exit().ignore();
        }
    };
    std::list<norv::watch<decltype(handler)>> watches;
    for (const norv::file& file : ready) {
        watches.emplace_back(handler).start(loop, file.descriptor(), EPOLLIN).value();
    }
    loop.run();
    state.SetItemsProcessed(state.iterations());
}

// ---- coroutines

norv::task<> wait_again(benchmark::State& state, int descriptor) {
    norv::readiness readiness(descriptor);
    while (state.KeepRunning()) {
        (co_await readiness.wait(EPOLLIN)).value();
    }
}

void await_descriptor(benchmark::State& state) {
    const std::vector<norv::file> ready = ready_files(1);
    norv::loop loop = norv::loop::open().value();
    norv::run(loop, wait_again(state, ready.front().descriptor()));
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    add_timers();
    const bench::row handlers = {.name = "C++: handler, 100 of 100 active", .target = 1.05};
    bench::add_contender(handlers, "raw",
                         [](benchmark::State& state) { dispatch_in_c(state, descriptor_count); });
    bench::add_contender(handlers, "ours", dispatch_to_lambdas);
    const bench::row waits = {.name = "C++: co_await of a ready descriptor", .target = 1.15};
    bench::add_contender(waits, "raw", [](benchmark::State& state) { dispatch_in_c(state, 1); });
    bench::add_contender(waits, "ours", await_descriptor);
    return bench::run_rows(argc, argv);
}
