// SPDX-License-Identifier: MIT
// The loop in C++ beside the same work through the C interface, which is "raw" here.
#include <sys/eventfd.h>
#include <unistd.h>
#include <norv/wait.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

using namespace std::chrono_literals;

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_epoll");
}

// ---- timers

// As programs start them: in a handler, on the thread that runs the loop.
template <typename function>
void measure_in_handler(benchmark::State& state, function work) {
    norv::loop loop = norv::loop::open().value();
    norv::timer handler([&] {
        for (auto _ : state) {
            work(loop);
        }
        loop.exit().ignore();
    });
    handler.start(loop, 0ms).value();
    loop.run();
    state.SetItemsProcessed(state.iterations());
}

void start_timer_in_c(benchmark::State& state) {
    norv_epoll_timer_t timer = {};
    timer.callback = [](norv_epoll_timer_t*) {};
    measure_in_handler(state, [&](norv::loop& loop) {
        succeed(norv_epoll_timer_schedule(loop.get(), &timer, 3600000, false));
        succeed(norv_epoll_timer_cancel(loop.get(), &timer));
    });
}

void start_timer(benchmark::State& state) {
    norv::timer timer([] {});
    measure_in_handler(state, [&](norv::loop& loop) {
        succeed(timer.start(loop, 1h).number());
        succeed(timer.stop().number());
    });
}

// ---- handlers

constexpr int descriptor_count = 100;

// Descriptors that are always readable.
class ready_descriptors {
  public:
    explicit ready_descriptors(int count) {
        for (int index = 0; index < count; ++index) {
            descriptors_.push_back(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK));
        }
    }
    ready_descriptors(const ready_descriptors&) = delete;
    ready_descriptors& operator=(const ready_descriptors&) = delete;
    ~ready_descriptors() {
        for (const int descriptor : descriptors_) {
            close(descriptor);
        }
    }

    const std::vector<int>& get() const { return descriptors_; }

  private:
    std::vector<int> descriptors_;
};

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
    const ready_descriptors ready(number);
    std::vector<counted> records(ready.get().size());
    norv_epoll_t loop = {};
    succeed(norv_epoll_open(&loop));
    for (size_t index = 0; index < records.size(); ++index) {
        records[index] = {{.loop = nullptr, .descriptor = ready.get()[index], .handler = count}, &state};
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
    const ready_descriptors ready(descriptor_count);
    norv::loop loop = norv::loop::open().value();
    const auto handler = [&](uint32_t) {
        if (!state.KeepRunning()) {
            loop.exit().ignore();
        }
    };
    std::deque<norv::watch<decltype(handler)>> watches;
    for (const int descriptor : ready.get()) {
        watches.emplace_back(handler).start(loop, descriptor, EPOLLIN).value();
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
    const ready_descriptors ready(1);
    norv::loop loop = norv::loop::open().value();
    norv::run(loop, wait_again(state, ready.get().front()));
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    const bench::row timers = {.name = "C++: timer start and stop", .target = 1.01};
    bench::add_contender(timers, "raw", start_timer_in_c);
    bench::add_contender(timers, "ours", start_timer);
    const bench::row handlers = {.name = "C++: handler, 100 of 100 active", .target = 1.01};
    bench::add_contender(handlers, "raw",
                         [](benchmark::State& state) { dispatch_in_c(state, descriptor_count); });
    bench::add_contender(handlers, "ours", dispatch_to_lambdas);
    const bench::row waits = {.name = "C++: co_await of a ready descriptor", .target = 1.15};
    bench::add_contender(waits, "raw", [](benchmark::State& state) { dispatch_in_c(state, 1); });
    bench::add_contender(waits, "ours", await_descriptor);
    return bench::run_rows(argc, argv);
}
