// SPDX-License-Identifier: MIT
// What the examples share: messages for failures, the choice of a family, and an end at SIGTERM and SIGINT.
#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>

#include "norv/wait.hpp"

inline void report(const char* what, norv::status failed) {
    std::fprintf(stderr, "%s: %s (%s)\n", what, failed.name(), failed.text());
}

// Returns what a function has opened or read; a failure ends the program.
template <typename T>
T must(const char* what, norv::result<T> result) {
    if (!result) {
        report(what, result.status());
        std::exit(EXIT_FAILURE);
    }
    return std::move(*result);
}

inline uint32_t number(const char* text) {
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 0));
}

// An example of a family, and how many arguments it has.
struct family {
    std::string_view name;
    int arguments;
    void (*show)(char** arguments);
};

// Runs the example that the first argument names with those that follow. A failure that the example does not handle ends it.
inline int show_family(std::span<const family> families, int count, char** arguments) try {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    for (const family& one : families) {
        if (count > 1 && one.name == arguments[1] && count - 2 == one.arguments) {
            one.show(arguments + 2);
            return EXIT_SUCCESS;
        }
    }
    std::fprintf(stderr, "usage: %s FAMILY ARGUMENTS; the source has what they are\n", arguments[0]);
    return 2;
} catch (const norv::error& failed) {
    report(arguments[1], failed.status());
    return EXIT_FAILURE;
}

// As long as this object exists, SIGTERM and SIGINT do not end the program, but a task that waits for them. To be made
// before any thread is started.
class termination {
  public:
    termination() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        sigprocmask(SIG_BLOCK, &signals, &before_);
        descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    termination(const termination&) = delete;
    termination& operator=(const termination&) = delete;
    ~termination() {
        signalfd_siginfo signal;
        while (read(descriptor_, &signal, sizeof signal) > 0) {
        }
        close(descriptor_);
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }

    norv::task<norv::status> requested() {
        norv::readiness signals(descriptor_);
        const norv::result<uint32_t> ready = co_await signals.wait(EPOLLIN);
        co_return ready.status();
    }

  private:
    sigset_t before_;
    int descriptor_;
};
