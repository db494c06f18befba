// SPDX-License-Identifier: MIT
// The failure sweep for what tasks wait for: whatever fails while a task waits, nothing of it stays registered, and
// nothing leaks.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>

#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"

namespace norv::test {

// The number of descriptors that the kernel watches for a loop, as /proc shows it; the kernel double is not asked.
inline size_t watched_descriptors(const loop& of) {
    const std::string path = "/proc/self/fdinfo/" + std::to_string(of.get()->epoll_descriptor);
    const long shown = syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string text(4096, '\0');
    const long size = syscall(SYS_read, shown, text.data(), text.size());
    syscall(SYS_close, shown);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    size_t count = 0;
    for (size_t found = text.find("tfd:"); found != std::string::npos; found = text.find("tfd:", found + 1)) {
        ++count;
    }
    return count;
}

// The number of descriptors that the last wait has left registered, while they were open.
inline size_t left_registered = 0;

// Starts a task that waits, makes ready what it waits for, and ends it whether or not the failure has left it
// waiting. Returns its status.
template <typename starting, typename readying>
status wait_once(loop& on, starting start, readying make_ready) {
    const size_t before = watched_descriptors(on);
    status ended = status(NORV_STATUS_TIMEOUT);
    {
        timer lost([&on] { on.exit().ignore(); });
        job<status> running(on, start());
        make_ready();
        if (!running.done()) {
            running.on_done([&on] { on.exit().ignore(); });
            lost.start(on, std::chrono::milliseconds(20)).ignore();
            on.run();
        }
        if (running.done()) {
            ended = running.take();
        }
    }
    left_registered = watched_descriptors(on) - before;
    return ended;
}

// Sweeps `scenario(loop)`, which calls `wait_once`; `clean_up` undoes what the test itself has built. A descriptor whose
// removal was made to fail is still registered: no kernel does that.
inline void wait_sweep(
    const std::function<void(kernel_double&)>& build_board, const std::function<status(loop&)>& scenario,
    const std::function<void()>& clean_up = [] {}) {
    bool timers_left = false;
    uint32_t returned = 0;
    failure_sweep(build_board,
                  [&] {
                      left_registered = 0;
                      timers_left = false;
                      const auto scenario_on = [&](loop& on) {
                          const status ended = scenario(on);
                          timers_left = on.get()->timers.top != nullptr || on.get()->delayed.top != nullptr;
                          return ended;
                      };
                      result<loop> on = loop::open();
                      returned = (on ? scenario_on(*on) : on.status()).number();
                      clean_up();
                      return returned;
                  },
                  {.expect = [&](const strike& struck) {
                      EXPECT_LE(left_registered, struck.name == "epoll_ctl" ? 1U : 0U);
                      EXPECT_FALSE(timers_left);
                      return returned;
                  }});
    EXPECT_EQ(left_registered, 0U) << "without a failure";
}

}  // namespace norv::test
