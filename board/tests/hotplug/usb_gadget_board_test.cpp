// SPDX-License-Identifier: MIT
// The USB device controller of dummy_hcd, which is connected to the board's own USB host.
#include "norv_usb_gadget.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "../support/attribute.hpp"
#include "../support/serial_gadget.hpp"

namespace {

using norv::board::comes_true;
using norv::board::gadget_controller;
using norv::board::serial_gadget;

class UsbGadgetOnBoard : public testing::Test {
  protected:
    UsbGadgetOnBoard() { EXPECT_EQ(norv_usb_gadget_open(gadget_controller, &descriptor), 0U); }
    ~UsbGadgetOnBoard() override { norv_usb_gadget_close(descriptor); }

    uint32_t state() {
        uint32_t value = 77;
        EXPECT_EQ(norv_usb_gadget_get_state(descriptor, &value), 0U);
        return value;
    }
    bool comes_to(uint32_t wanted) {
        return comes_true([=, this] { return state() == wanted; });
    }

    int32_t descriptor = -1;
};

TEST_F(UsbGadgetOnBoard, WithoutAGadgetTheControllerIsNotAttached) {
    EXPECT_EQ(state(), uint32_t{NORV_USB_GADGET_NOT_ATTACHED});
}

TEST_F(UsbGadgetOnBoard, AGadgetThatTheHostHasEnumeratedIsConfigured) {
    serial_gadget gadget;
    gadget.bind();
    EXPECT_TRUE(comes_to(NORV_USB_GADGET_CONFIGURED));
    EXPECT_TRUE(comes_true(serial_gadget::is_at_host));
}

TEST_F(UsbGadgetOnBoard, TheHostLosesAndFindsTheGadgetAgain) {
    serial_gadget gadget;
    gadget.bind();
    ASSERT_TRUE(comes_to(NORV_USB_GADGET_CONFIGURED));
    for (int cycle = 0; cycle < 10; ++cycle) {
        ASSERT_EQ(norv_usb_gadget_connect(gadget_controller, 0), 0U);
        ASSERT_TRUE(comes_to(NORV_USB_GADGET_NOT_ATTACHED)) << "cycle " << cycle;
        ASSERT_TRUE(comes_true([] { return !serial_gadget::is_at_host(); }));
        ASSERT_EQ(norv_usb_gadget_connect(gadget_controller, 1), 0U);
        ASSERT_TRUE(comes_to(NORV_USB_GADGET_CONFIGURED)) << "cycle " << cycle;
        ASSERT_TRUE(comes_true(serial_gadget::is_at_host));
    }
}

TEST_F(UsbGadgetOnBoard, AChangeOfTheStateIsReportedOnTheDescriptor) {
    serial_gadget gadget;
    state();
    gadget.bind();
    pollfd request = {descriptor, POLLPRI, 0};
    EXPECT_EQ(poll(&request, 1, 10000), 1);
    EXPECT_NE(request.revents & POLLPRI, 0);
    EXPECT_TRUE(comes_to(NORV_USB_GADGET_CONFIGURED));
}

TEST_F(UsbGadgetOnBoard, WithoutAGadgetNothingCanBeConnected) {
    EXPECT_EQ(norv_usb_gadget_connect(gadget_controller, 1), NORV_STATUS_NOT_AVAILABLE);
}

TEST_F(UsbGadgetOnBoard, IsHostWinIsTheDriversAttribute) {
    constexpr const char* parameter = "/sys/module/norv_board_usb_gadget/parameters/host_win";
    uint8_t wins = 77;
    std::ofstream(parameter) << "1" << std::flush;
    EXPECT_EQ(norv_usb_gadget_is_host_win(gadget_controller, &wins), 0U);
    EXPECT_EQ(wins, 1);
    std::ofstream(parameter) << "0" << std::flush;
    EXPECT_EQ(norv_usb_gadget_is_host_win(gadget_controller, &wins), 0U);
    EXPECT_EQ(wins, 0);
}

TEST(UsbGadgetOnBoardRefusals, AControllerThatTheKernelDoesNotHaveIsNotFound) {
    int32_t descriptor = 77;
    uint8_t wins = 77;
    EXPECT_EQ(norv_usb_gadget_open("none", &descriptor), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_usb_gadget_connect("none", 1), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_usb_gadget_is_host_win("none", &wins), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(wins, 77);
}

}  // namespace
