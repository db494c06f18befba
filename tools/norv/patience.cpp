// SPDX-License-Identifier: MIT
#include "patience.hpp"

#include <vector>

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
    return wait_for(descriptors, left(), thing, "nothing arrived in time");
}

}  // namespace norv::tool
