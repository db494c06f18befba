// SPDX-License-Identifier: MIT
// Sets up the virtual board's CAN interfaces for the program that follows: vxcan0 and vxcan1 on one wire,
// and, where the board has them, the cards can0 and can1 at 500 kbit/s. Interfaces that are up stay
// unchanged.
#include "can_links.hpp"

#include <cstdio>

namespace {

// True if the interface was set up, is up already, or does not exist.
bool start_card_if_there(const char* interface) {
    if (if_nametoindex(interface) == 0) {
        return true;
    }
    const int error = norv::board::start_card(interface, 500000);
    return error == 0 || error == EBUSY;
}

bool add_pair_if_missing(const char* first, const char* second) {
    const int error = norv::board::add_vxcan_pair(first, second);
    return error == 0 || error == EEXIST;
}

}  // namespace

int main() {
    if (!add_pair_if_missing("vxcan0", "vxcan1") || !start_card_if_there("can0") ||
        !start_card_if_there("can1")) {
        std::fprintf(stderr, "can_links: the CAN interfaces could not be set up\n");
        return 1;
    }
    return 0;
}
