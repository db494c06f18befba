// SPDX-License-Identifier: MIT
#include "interrupt.hpp"

#include <unistd.h>

#include <csignal>

#include "failure.hpp"

namespace norv::tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

// Wakes a wait that begins after the flag was looked at: what the signal writes here stays.
int wake_pipe[2] = {-1, -1};

void on_interrupt(int) {
    const int saved = errno;
    interrupted = 1;
    [[maybe_unused]] const ssize_t written = write(wake_pipe[1], "", 1);
    errno = saved;
}

// Waits that a signal interrupts continue with the time that is left.
int remaining(uint64_t end) {
    const uint64_t now = norv_time_get_ms();
    return now < end ? static_cast<int>(end - now) : 0;
}

}  // namespace

void catch_interrupts() {
    if (pipe(wake_pipe) != 0) {
        throw failure{"pipe", status_of(errno)};
    }
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool is_interrupted() {
    return interrupted != 0;
}

wake wait_for(std::vector<pollfd>& descriptors, int timeout) {
    const uint64_t end = norv_time_get_ms() + static_cast<uint64_t>(timeout < 0 ? 0 : timeout);
    int ready = 0;
    descriptors.push_back({wake_pipe[0], POLLIN, 0});
    do {
        ready = poll(descriptors.data(), descriptors.size(), timeout < 0 ? -1 : remaining(end));
    } while (ready < 0 && errno == EINTR);
    const norv::status polled{ready < 0 ? status_of(errno) : NORV_STATUS_OK};
    descriptors.pop_back();
    must("poll", polled);
    if (is_interrupted()) {
        return wake::interrupted;
    }
    return ready > 0 ? wake::ready : wake::timeout;
}

bool wait_for(std::vector<pollfd>& descriptors, int timeout, const std::string& thing, const char* late) {
    const wake woken = wait_for(descriptors, timeout);
    if (woken == wake::timeout) {
        throw failure{thing, NORV_STATUS_TIMEOUT, {{NORV_STATUS_TIMEOUT, late}}};
    }
    return woken == wake::ready;
}

bool sleep_for(int milliseconds) {
    std::vector<pollfd> none;
    return wait_for(none, milliseconds) == wake::timeout;
}

}  // namespace norv::tool
