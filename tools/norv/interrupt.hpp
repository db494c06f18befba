// SPDX-License-Identifier: MIT
// Ctrl-C (and SIGTERM): the first one asks a command to end in good order, the second one kills it.
#pragma once

#include <poll.h>

#include <string>
#include <vector>

namespace norv::tool {

// Once, before the command runs.
void catch_interrupts();

bool is_interrupted();

enum class wake { ready, timeout, interrupted };

// Waits until one of the descriptors has one of its events, as poll(2) does, or Ctrl-C comes.
//
// `timeout` is in milliseconds; below 0: no limit.
wake wait_for(std::vector<pollfd>& descriptors, int timeout);

// The same; false when Ctrl-C came. Throws a failure of `thing`, whose cause is `late`, when the time is over.
bool wait_for(std::vector<pollfd>& descriptors, int timeout, const std::string& thing, const char* late);

// Sleeps; false when Ctrl-C came first.
bool sleep_for(int milliseconds);

}  // namespace norv::tool
