// SPDX-License-Identifier: MIT
// How long a command waits for what it shows, whatever else wakes it meanwhile.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "interrupt.hpp"
#include "norv_base.h"

namespace norv::tool {

class patience {
  public:
    // Adds --timeout to the command: "fail after this many milliseconds without WHAT".
    void declare(CLI::App& command, const std::string& what);

    // Starts anew; at first, and after whatever was waited for.
    void restart() { start_ = norv_time_get_ms(); }

    // Waits until a descriptor has one of the events; false when Ctrl-C came. Throws a failure of `thing`
    // when the time is over.
    bool wait(const std::string& thing, int descriptor, short events) const;

  private:
    int left() const;

    int timeout_ = -1;
    uint64_t start_ = norv_time_get_ms();
};

}  // namespace norv::tool
