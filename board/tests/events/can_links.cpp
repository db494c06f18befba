// Sets up the virtual board's CAN interfaces for a program that comes after: vxcan0 and vxcan1 on one wire,
// and, where kvaser_pci is loaded, the cards can0 and can1 at 500 kbit/s.
#include "can_links.hpp"

#include <cstdio>

namespace {

// Whether the interface is there and could be set up, or is not there.
bool start_card_if_there(const char* interface) {
    return if_nametoindex(interface) == 0 || norv::board::start_card(interface, 500000) == 0;
}

}  // namespace

int main() {
    if (norv::board::add_vxcan_pair("vxcan0", "vxcan1") != 0 || !start_card_if_there("can0") ||
        !start_card_if_there("can1")) {
        std::fprintf(stderr, "can_links: the CAN interfaces could not be set up\n");
        return 1;
    }
    return 0;
}
