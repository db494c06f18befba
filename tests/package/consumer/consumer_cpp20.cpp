// SPDX-License-Identifier: MIT
// A user's program over the C++20 headers: an owner, the loop on a thread of its own, and a coroutine.
#include <chrono>
#include <cstdio>
#include <norv.hpp>

namespace {

norv::task<norv::result<norv::uuid>> generate_later() {
    if (const norv::status slept = co_await norv::sleep(std::chrono::milliseconds(1)); !slept.ok()) {
        co_return slept;
    }
    co_return norv::uuid::generate();
}

}  // namespace

int main() {
    norv::result<norv::loop_thread> thread = norv::loop_thread::start();
    if (!thread) {
        std::printf("C++20: %s\n", thread.status().text());
        return 1;
    }
    const norv::result<uint64_t> there = thread->run_on_loop([] { return norv::this_thread::id(); });
    norv::result<norv::loop> loop = norv::loop::open();
    if (!there || *there == norv::this_thread::id() || !loop) {
        return 1;
    }
    const norv::result<norv::uuid> id = norv::run(*loop, generate_later());
    std::printf("C++20: %s, %zu\n", id.status().name(), id ? id->text().size() : 0);
    return id && thread->stop().ok() ? 0 : 1;
}
