// SPDX-License-Identifier: MIT
// The state of a USB device controller beside the bare read, on the virtual board's.
#include <norv_usb_gadget.h>
#include <unistd.h>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

int main(int argc, char** argv) {
    int32_t gadget = -1;
    bench::expect(norv_usb_gadget_open("dummy_udc.0", &gadget) == NORV_STATUS_OK, "norv_usb_gadget_open");
    bench::add_pair(
        {.name = "norv_usb_gadget_get_state", .target = 1.05},
        [=] {
            char text[128];
            bench::expect(pread(gadget, text, sizeof text, 0) > 0, "state");
        },
        [=] {
            uint32_t state = 0;
            bench::expect(norv_usb_gadget_get_state(gadget, &state) == NORV_STATUS_OK,
                          "norv_usb_gadget_get_state");
        });
    const int result = bench::run_rows(argc, argv);
    norv_usb_gadget_close(gadget);
    return result;
}
