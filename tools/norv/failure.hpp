// SPDX-License-Identifier: MIT
// What ends a command early: a failure (exit status 1) or wrong usage (exit status 2).
//
// A failure names the thing, the status by its name, and what usually causes it:
//
//     gpio 99: INVALID_ARG: no such line; is the gpiochip driver loaded?
//
// Each group has a list of its usual causes and gives it to `must` with every call, which returns the call's value:
//
//     const causes usual{{NORV_STATUS_INVALID_ARG, "no such line; is the gpiochip driver loaded?"}};
//     norv::gpio line = must("gpio 99", norv::gpio::open(99), usual);
//     must("gpio 99", line.set_value(true), usual);
//
// A cause may be one only where a path is missing, such as the directory of a class that the kernel was built
// without. The first cause that fits counts.
#pragma once

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>

#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv_base.h"

namespace norv::tool {

constexpr int exit_success = 0;
constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

struct cause {
    uint32_t status;
    const char* text;
    const char* missing = nullptr;  // counts only where this path does not exist
};

using causes = std::initializer_list<cause>;

class failure : public std::runtime_error {
  public:
    failure(const std::string& thing, uint32_t status, causes usual = {});
    failure(const std::string& thing, const std::string& explanation);
};

// The caller asked for what cannot be done, and nothing was done.
class usage_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The status that stands for an errno, for instance in a list of causes.
inline uint32_t status_of(int error_number) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error_number));
}

// Throws a failure unless the call succeeded.
inline void must(const std::string& thing, norv::status ended, causes usual = {}) {
    if (!ended.ok()) {
        throw failure{thing, ended.number(), usual};
    }
}

// The same for a call that returns a value.
template <typename T>
T must(const std::string& thing, norv::result<T> returned, causes usual = {}) {
    must(thing, returned.status(), usual);
    return *std::move(returned);
}

}  // namespace norv::tool
