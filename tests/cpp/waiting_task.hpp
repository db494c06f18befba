// SPDX-License-Identifier: MIT
// What tests of awaitables do with a task that waits.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "norv/wait.hpp"

namespace norv::test {

// Runs whole rounds of a loop: what is registered and ready is handled, also where a round takes longer than
// the time that a timer waits.
inline void run_a_while(loop& on) {
    int rounds = 0;
    timer end([&] {
        if (++rounds == 3) {
            EXPECT_TRUE(on.exit().ok());
        }
    });
    ASSERT_TRUE(end.start_periodic(on, std::chrono::milliseconds(1)).ok());
    on.run();
}

// Runs a task that waits, and makes ready what it waits for only then.
template <typename function>
status run_until_ready(loop& on, task<status> waiting, function make_ready) {
    job<status> running(on, std::move(waiting));
    EXPECT_FALSE(running.done());
    run_a_while(on);
    EXPECT_FALSE(running.done());
    if (!running.done()) {
        running.on_done([&on] { EXPECT_TRUE(on.exit().ok()); });
        make_ready();
        on.run();
    }
    return running.take();
}

// Stops a task that waits, and makes ready what it waited for afterwards: nothing must take it.
template <typename function>
status stop_before_ready(loop& on, task<status> waiting, function make_ready) {
    job<status> running(on, std::move(waiting));
    EXPECT_FALSE(running.done());
    running.stop();
    EXPECT_TRUE(running.done());
    make_ready();
    run_a_while(on);
    return running.take();
}

// Destroys a task that waits, and makes ready what it waited for afterwards: nothing must take it.
template <typename function>
void end_before_ready(loop& on, task<status> waiting, function make_ready) {
    {
        const job<status> running(on, std::move(waiting));
        EXPECT_FALSE(running.done());
    }
    make_ready();
    run_a_while(on);
}

inline task<status> after_a_stop(task<status> waiting) {
    (co_await sleep(std::chrono::hours(1))).ignore();
    co_return co_await std::move(waiting);
}

// What a task returns that is stopped before it waits.
inline status stopped_before_waiting(loop& on, task<status> waiting) {
    return stop_before_ready(on, after_a_stop(std::move(waiting)), [] {});
}

}  // namespace norv::test
