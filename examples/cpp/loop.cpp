// SPDX-License-Identifier: MIT
//
// The event loop and its descriptors:
//
//     loop epoll OUTPUT INPUT    handles the edges of a GPIO line beside a timer that drives another one
//     loop epoll_descriptor      passes results of a worker thread to the loop
//     loop linux_timer           runs a periodic job that keeps its pace
#include <chrono>
#include <mutex>
#include <thread>

#include "norv/gpio.hpp"
#include "norv/interval_timer.hpp"
#include "norv/loop.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

void show_epoll(char** arguments) {
    norv::gpio output = norv::gpio::open(number(arguments[0])).value();
    output.set_direction(norv::gpio::direction::output).value();
    norv::gpio input = norv::gpio::open(number(arguments[1])).value();
    input.set_direction(norv::gpio::direction::input).value();
    input.set_edge(norv::gpio::edge::rising).value();
    input.get_value().value();  // or the kernel reports the line once before its first edge

    bool high = false;
    int edges = 0;
    norv::loop loop = norv::loop::open().value();
    norv::watch on_edge([&](uint32_t) {
        // Reading the value arms the next edge.
        std::printf("  edge %d   level %d\n", ++edges, input.get_value().value());
        if (edges == 3) {
            loop.exit().value();
        }
    });
    norv::timer driver([&] { output.set_value(high = !high).value(); });
    on_edge.start(loop, input.descriptor(), EPOLLPRI).value();
    driver.start_periodic(loop, 20ms).value();
    loop.run();
}

void show_epoll_descriptor(char**) {
    constexpr unsigned wanted = 20;
    std::mutex mutex;
    unsigned ready = 0;
    unsigned taken = 0;
    norv::loop loop = norv::loop::open().value();

    // Loop thread: there are results.
    norv::event on_results([&] {
        std::unique_lock lock(mutex);
        const unsigned now = std::exchange(ready, 0);
        lock.unlock();
        taken += now;
        std::printf("  took %u, %u so far\n", now, taken);
        if (taken == wanted) {
            loop.exit().value();
        }
    });
    on_results.start(loop).value();

    const std::jthread worker([&] {
        for (unsigned result = 0; result < wanted; ++result) {
            std::this_thread::sleep_for(2ms);
            const std::lock_guard lock(mutex);
            ++ready;
            on_results.raise().value();
        }
    });
    loop.run();
}

norv::task<norv::status> keep_pace(norv::interval_timer& timer, norv::ticks period) {
    norv::interval_alarms alarms(timer);
    const norv::alarm_time start = norv::interval_timer::now().value();
    timer.set_alarm(start + period, period).value();
    for (int expiry = 1; expiry <= 5; ++expiry) {
        if (const norv::status alarm = co_await alarms.next(); !alarm.ok()) {
            co_return alarm;
        }
        const norv::ticks late = norv::interval_timer::now().value() - start - expiry * period;
        std::printf("  alarm %d   %lld us late\n", expiry, static_cast<long long>(late.count() / 10));
    }
    co_return norv::ok;
}

void show_linux_timer(char**) {
    norv::loop loop = norv::loop::open().value();
    norv::interval_timer timer = norv::interval_timer::open().value();
    norv::run(loop, keep_pace(timer, 20ms)).value();
}

constexpr family families[] = {{"epoll", 2, show_epoll},
                               {"epoll_descriptor", 0, show_epoll_descriptor},
                               {"linux_timer", 0, show_linux_timer}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
