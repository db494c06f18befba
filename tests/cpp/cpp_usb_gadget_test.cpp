// SPDX-License-Identifier: MIT
// The owner of a USB device controller's state, and what is done to a controller by its name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/usb_gadget.hpp"
#include "support/standard_input.hpp"

namespace {

using norv::usb_gadget;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr char state_file[] = "/sys/class/udc/usb0/state";
constexpr char connect_file[] = "/sys/class/udc/usb0/soft_connect";
constexpr char win_file[] = "/sys/class/udc/usb0/is_host_win";

void add_controller(kernel_double& kernel) {
    kernel.add_file(state_file, "configured\n");
    kernel.add_file(connect_file);
    kernel.add_file(win_file, "1\n");
}

class CppUsbGadget : public testing::Test {
  protected:
    CppUsbGadget() { add_controller(kernel); }

    kernel_double kernel;
};

TEST_F(CppUsbGadget, TheStateIsClosedWithItsOwner) {
    {
        const norv::result<usb_gadget> gadget = usb_gadget::open("usb0");
        ASSERT_TRUE(gadget);
        EXPECT_GT(gadget->descriptor(), 0);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppUsbGadget, AFailedOpenHasTheStatus) {
    EXPECT_EQ(usb_gadget::open("none").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(usb_gadget::open("usb0\0"s).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(usb_gadget::open(std::string(4096, 'n')).status(), NORV_STATUS_INVALID_ARG);
}

TEST_F(CppUsbGadget, EachStateIsReported) {
    usb_gadget gadget = usb_gadget::open("usb0").value();
    const std::pair<const char*, usb_gadget::state> states[] = {
        {"not attached\n", usb_gadget::state::not_attached}, {"default\n", usb_gadget::state::default_state},
        {"addressed\n", usb_gadget::state::addressed},       {"configured\n", usb_gadget::state::configured},
        {"suspended\n", usb_gadget::state::other},
    };
    for (const auto& [text, state] : states) {
        kernel.add_file(state_file, text);
        EXPECT_EQ(gadget.get_state().value(), state) << text;
    }
}

TEST_F(CppUsbGadget, TheBoardIsConnectedAndDisconnected) {
    EXPECT_EQ(usb_gadget::connect("usb0"), norv::ok);
    EXPECT_EQ(usb_gadget::disconnect("usb0"), norv::ok);
    EXPECT_THAT(kernel.writes(connect_file), ElementsAre("connect\0"s, "disconnect\0"s));
    EXPECT_EQ(usb_gadget::connect("none"), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppUsbGadget, TheHostIsReported) {
    EXPECT_TRUE(usb_gadget::is_host_win("usb0").value());
    kernel.add_file(win_file, "0\n");
    EXPECT_FALSE(usb_gadget::is_host_win("usb0").value());
    EXPECT_EQ(usb_gadget::is_host_win("none").status(), NORV_STATUS_NOT_FOUND);
}

// quirk 91
TEST_F(CppUsbGadget, AStateThatWasMovedFromIsAnInvalidArgument) {
    usb_gadget gadget = usb_gadget::open("usb0").value();
    usb_gadget other = std::move(gadget);
    kernel.forget_calls();
    EXPECT_EQ(gadget.get_state().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(gadget.descriptor(), -1);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.get_state().value(), usb_gadget::state::configured);
}

TEST_F(CppUsbGadget, MovingIntoAnOpenStateClosesItOnce) {
    usb_gadget gadget = usb_gadget::open("usb0").value();
    gadget = usb_gadget::open("usb0").value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.calls("close").size(), 1U);
    usb_gadget& same = gadget;
    gadget = std::move(same);
    EXPECT_TRUE(gadget.get_state());
}

// quirk 3
TEST(CppUsbGadgetWithoutStandardInput, TheDescriptor0IsNeitherUsedNorClosed) {
    const norv::test::no_standard_input guard;
    kernel_double kernel;
    add_controller(kernel);
    EXPECT_EQ(usb_gadget::open("usb0").status(), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST(CppUsbGadgetSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(add_controller, [] {
        norv::result<usb_gadget> gadget = usb_gadget::open("usb0");
        if (!gadget) {
            return gadget.status().number();
        }
        usb_gadget moved = *std::move(gadget);
        norv::status done = moved.get_state().status();
        done = done.ok() ? usb_gadget::connect("usb0") : done;
        return (done.ok() ? usb_gadget::is_host_win("usb0").status() : done).number();
    });
}

}  // namespace
