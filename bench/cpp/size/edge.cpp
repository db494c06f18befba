// SPDX-License-Identifier: MIT
// Prints the level of GPIO line 17 at each edge, with a coroutine. `edge.c` does the same with a handler.
#include <cstdio>
#include <norv/gpio.hpp>
#include <norv/wait.hpp>

namespace {

norv::task<norv::status> print_edges(norv::gpio& line) {
    if (const norv::status set = line.set_edge(norv::gpio::edge::both); !set.ok()) {
        co_return set;
    }
    norv::gpio_edges edges(line);
    for (;;) {
        const norv::result<bool> level = co_await edges.next();
        if (!level) {
            co_return level.status();
        }
        std::printf("%d\n", *level);
    }
}

norv::status run() {
    norv::result<norv::loop> loop = norv::loop::open();
    if (!loop) {
        return loop.status();
    }
    norv::result<norv::gpio> line = norv::gpio::open(17);
    return line ? norv::run(*loop, print_edges(*line)) : line.status();
}

}  // namespace

int main() {
    const norv::status ended = run();
    std::fprintf(stderr, "%s\n", ended.text());
    return ended.ok() ? 0 : 1;
}
