// SPDX-License-Identifier: MIT
#include "patience.hpp"

#include <vector>

#include "failure.hpp"

namespace norv::tool {

void patience::declare(CLI::App& command, const std::string& what) {
    command.add_option("-t,--timeout", timeout_, "fail after this many milliseconds without " + what);
}

int patience::left() const {
    const uint64_t passed = norv_time_get_ms() - start_;
    if (timeout_ < 0) {
        return -1;
    }
    const auto limit = static_cast<uint64_t>(timeout_);
    return passed < limit ? static_cast<int>(limit - passed) : 0;
}

bool patience::wait(const std::string& thing, int descriptor, short events) const {
    std::vector<pollfd> descriptors{{descriptor, events, 0}};
    const wake woken = wait_for(descriptors, left());
    must(thing, woken == wake::timeout ? NORV_STATUS_TIMEOUT : NORV_STATUS_OK,
         {{NORV_STATUS_TIMEOUT, "nothing arrived in time"}});
    return woken == wake::ready;
}

}  // namespace norv::tool
