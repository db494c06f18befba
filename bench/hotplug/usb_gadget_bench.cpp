// SPDX-License-Identifier: MIT
// The state of a USB device controller beside the bare read, on the virtual board's.
#include <unistd.h>
#include <norv/usb_gadget.hpp>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

int main(int argc, char** argv) {
    const norv::usb_gadget gadget = norv::usb_gadget::open("dummy_udc.0").value();
    const int descriptor = gadget.descriptor();
    bench::add_pair(
        {.name = "norv_usb_gadget_get_state", .target = 1.05},
        [=] {
            char text[128];
            bench::expect(pread(descriptor, text, sizeof text, 0) > 0, "state");
        },
        [=] {
            uint32_t state = 0;
            bench::expect(norv_usb_gadget_get_state(descriptor, &state) == NORV_STATUS_OK,
                          "norv_usb_gadget_get_state");
        });
    return bench::run_rows(argc, argv);
}
