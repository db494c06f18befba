// SPDX-License-Identifier: MIT
// The owner of the list of USB devices, and its changes in tasks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"
#include "hotplug/uevent_socket.hpp"
#include "hotplug/usb_bus.hpp"
#include "norv/uevent_parse.hpp"

namespace {

using norv::status;
using norv::task;
using norv::uevent_parse;
using norv::uevent_parse_changes;
using norv::test::kernel_double;
using norv::test::uevent_message;
using norv::test::uevent_socket;
using norv::test::usb_bus;
using norv::test::video_node;
using testing::ElementsAre;
using testing::IsEmpty;
using filter = uevent_parse::filter;

std::string device_message(const std::string& action, const std::string& devpath) {
    return uevent_message(action, devpath,
                          {"SUBSYSTEM=usb", "DEVTYPE=usb_device", "DEVNAME=bus/usb/001/003"});
}

std::string node_message(const std::string& devpath) {
    return uevent_message("add", devpath, {"SUBSYSTEM=input", "DEVNAME=input/event3"});
}

// A kernel whose bus has a root hub.
class CppUeventParse : public testing::Test {
  protected:
    CppUeventParse() { bus.add_root_hub(); }

    // Notes what a function for changes gets: "ACTION PATH", or "none".
    void note(const norv_uevent_device_t* device) {
        changes.push_back(device == nullptr ? "none"
                                            : std::to_string(device->action) + " " + device->syspath);
    }
    auto noting() {
        return [this](const norv_uevent_device_t* device) { note(device); };
    }
    static std::vector<std::string> paths_of(const uevent_parse& parser) {
        std::vector<std::string> paths;
        for (const norv_uevent_device_t& device : parser.devices().value()) {
            paths.emplace_back(device.syspath);
        }
        return paths;
    }

    kernel_double kernel;
    uevent_socket socket{kernel};
    usb_bus bus{kernel};
    std::vector<std::string> changes;
};

class CppOpenUeventParse : public CppUeventParse {
  protected:
    uevent_parse parser = uevent_parse::open(filter::usb, 4096).value();
};

// ---- opening and closing

TEST_F(CppUeventParse, WhatIsPluggedInIsReportedAndListed) {
    bus.add_device("usb1/1-1", "002", "Camera");
    uevent_parse parser = uevent_parse::open(filter::usb, noting(), 4096).value();
    EXPECT_THAT(changes, ElementsAre("-1 /sys/devices/pci0/usb1", "-1 /sys/devices/pci0/usb1/1-1"));
    EXPECT_THAT(paths_of(parser), ElementsAre("/sys/devices/pci0/usb1", "/sys/devices/pci0/usb1/1-1"));
    const uevent_parse::device_list devices = parser.devices().value();
    EXPECT_EQ(devices.size(), 2U);
    EXPECT_FALSE(devices.empty());
    auto last = devices.begin();
    EXPECT_EQ(uevent_parse::action_of(*last++), uevent_parse::action::none);
    EXPECT_STREQ(last->product_name, "Camera");
    EXPECT_EQ(++last, devices.end());
}

// In the loop of paths_of, the list is the value of a temporary result.
static_assert(std::is_same_v<decltype(std::declval<const uevent_parse>().devices().value()),
                             uevent_parse::device_list>);

TEST_F(CppUeventParse, AListIsClosedWithItsOwner) {
    {
        const uevent_parse parser = uevent_parse::open(filter::usb).value();
        EXPECT_GT(parser.descriptor(), 0);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(CppUeventParse, AFailedOpenHasTheStatus) {
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(uevent_parse::open(filter::usb).status(), norv_get_status_by_errno(EMFILE));
}

TEST_F(CppUeventParse, AnExceptionDuringOpenIsThrownAndClosesTheList) {
    const auto failing = [](const norv_uevent_device_t*) { throw std::runtime_error("in open"); };
    EXPECT_THROW(static_cast<void>(uevent_parse::open(filter::usb, failing)), std::runtime_error);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

// ---- changes

TEST_F(CppOpenUeventParse, EachChangeIsReported) {
    socket.send(device_message("add", "/devices/pci0/usb1/1-2"));
    socket.send(node_message("/devices/pci0/usb1/1-2/input"));
    socket.send(device_message("remove", "/devices/pci0/usb1/1-2"));
    EXPECT_EQ(parser.poll(noting()), norv::ok);
    EXPECT_THAT(changes, ElementsAre("0 /sys/devices/pci0/usb1/1-2", "-1 /sys/devices/pci0/usb1",
                                     "1 /sys/devices/pci0/usb1", "1 /sys/devices/pci0/usb1/1-2"));
    EXPECT_TRUE(parser.devices().value().empty());
}

TEST_F(CppOpenUeventParse, APollWithoutAFunctionAppliesTheChanges) {
    socket.send(device_message("add", "/devices/other"));
    EXPECT_EQ(parser.poll(), norv::ok);
    EXPECT_THAT(paths_of(parser), ElementsAre("/sys/devices/pci0/usb1", "/sys/devices/other"));
}

// quirk 113
TEST_F(CppOpenUeventParse, ANodeWithoutADeviceIsReportedAsNull) {
    socket.send(node_message("/devices/elsewhere/input"));
    EXPECT_EQ(parser.poll(noting()), norv::ok);
    EXPECT_THAT(changes, ElementsAre("none"));
}

TEST_F(CppOpenUeventParse, ADeviceHasItsNode) {
    EXPECT_TRUE(uevent_parse::children_of(*parser.devices().value().begin()).empty());
    socket.send(node_message("/devices/pci0/usb1/input"));
    EXPECT_EQ(parser.poll(), norv::ok);
    const uevent_parse::child_list nodes = uevent_parse::children_of(*parser.devices().value().begin());
    ASSERT_EQ(nodes.size(), 1U);
    EXPECT_STREQ(nodes.begin()->devnode, "/dev/input/event3");
}

TEST_F(CppOpenUeventParse, TheFilterIsReplaced) {
    const std::string connector = uevent_message("change", "/devices/drm/card0",
                                                 {"SUBSYSTEM=drm", "DEVTYPE=drm_minor", "CONNECTOR=31"});
    socket.send(connector);
    EXPECT_EQ(parser.poll(noting()), norv::ok);
    EXPECT_EQ(parser.set_filter(filter::usb | filter::display), norv::ok);
    socket.send(connector);
    EXPECT_EQ(parser.poll(noting()), norv::ok);
    EXPECT_THAT(changes, ElementsAre("2 /sys/devices/drm/card0"));
    EXPECT_EQ(parser.set_filter(filter::none), norv::ok);
    socket.send(device_message("add", "/devices/other"));
    EXPECT_EQ(parser.poll(noting()), norv::ok);
    EXPECT_EQ(changes.size(), 1U);
}

TEST_F(CppOpenUeventParse, AnExceptionOfTheFunctionIsThrownAfterThePoll) {
    socket.send(device_message("add", "/devices/one"));
    socket.send(device_message("add", "/devices/two"));
    const auto failing = [this](const norv_uevent_device_t* device) {
        note(device);
        throw std::runtime_error("from the function");
    };
    EXPECT_THROW(parser.poll(failing).ignore(), std::runtime_error);
    EXPECT_THAT(changes, ElementsAre("0 /sys/devices/one"));
    EXPECT_EQ(parser.devices().value().size(), 3U);
}

TEST_F(CppOpenUeventParse, AFunctionMayPollAnotherList) {
    uevent_parse other = uevent_parse::open(filter::usb, 4096).value();
    const auto polling_other = [&](const norv_uevent_device_t* device) {
        note(device);
        if (changes.size() == 1) {
            socket.send(device_message("add", "/devices/two"));
            EXPECT_EQ(other.poll(noting()), norv::ok);
            socket.send(device_message("add", "/devices/three"));
        }
    };
    socket.send(device_message("add", "/devices/one"));
    EXPECT_EQ(parser.poll(polling_other), norv::ok);
    EXPECT_THAT(changes, ElementsAre("0 /sys/devices/one", "0 /sys/devices/two", "0 /sys/devices/three"));
}

TEST_F(CppOpenUeventParse, ThroughTheHandleNoFunctionIsCalled) {
    norv_uevent_parse_t* handle = parser.get();
    socket.send(device_message("add", "/devices/one"));
    EXPECT_EQ(norv_uevent_parse_poll(&handle), NORV_STATUS_OK);
    EXPECT_EQ(parser.devices().value().size(), 2U);
}

TEST_F(CppUeventParse, AVideoNodeIsChecked) {
    kernel.add_device("/dev/video0", std::make_shared<video_node>(true));
    kernel.add_device("/dev/video1", std::make_shared<video_node>(false));
    EXPECT_EQ(uevent_parse::check_video_node("/dev/video0"), norv::ok);
    EXPECT_EQ(uevent_parse::check_video_node("/dev/video1"), norv_get_status_by_errno(UINT32_MAX));
    EXPECT_EQ(uevent_parse::check_video_node("/dev/video2"), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(uevent_parse::check_video_node(std::string(4096, 'v')), NORV_STATUS_INVALID_ARG);
}

// ---- moving

TEST_F(CppOpenUeventParse, AListThatWasMovedFromIsAnInvalidArgument) {
    uevent_parse other = std::move(parser);
    kernel.forget_calls();
    EXPECT_EQ(parser.poll(noting()), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(parser.set_filter(filter::all), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(parser.devices().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(parser.descriptor(), -1);
    EXPECT_EQ(parser.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    socket.send(node_message("/devices/elsewhere/input"));
    EXPECT_EQ(other.poll(noting()), norv::ok);
    EXPECT_THAT(changes, ElementsAre("none"));
}

TEST_F(CppOpenUeventParse, MovingIntoAnOpenListClosesIt) {
    parser = uevent_parse::open(filter::none).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_TRUE(parser.devices().value().empty());
}

// ---- changes in tasks

class CppUeventParseChanges : public CppOpenUeventParse {
  protected:
    task<status> one() { co_return co_await watched.poll(noting()); }
    task<status> failing() {
        co_return co_await watched.poll(
            [](const norv_uevent_device_t*) { throw std::runtime_error("in a task"); });
    }

    void send(const std::string& message) {
        socket.send(message);
        eventfd_write(parser.descriptor(), 1);
    }
    void lower() {
        eventfd_t count = 0;
        eventfd_read(parser.descriptor(), &count);
    }

    norv::loop loop = norv::loop::open().value();
    uevent_parse_changes watched{parser};
};

TEST_F(CppUeventParseChanges, ATaskWaitsForChanges) {
    for (const char* const path : {"/devices/one", "/devices/two"}) {
        EXPECT_EQ(norv::test::run_until_ready(loop, one(), [&] { send(device_message("add", path)); }),
                  norv::ok);
        lower();
    }
    EXPECT_THAT(changes, ElementsAre("0 /sys/devices/one", "0 /sys/devices/two"));
}

TEST_F(CppUeventParseChanges, AWaitOutlastsMessagesThatChangeNothing) {
    const norv::job<status> waiting(loop, one());
    send(uevent_message("add", "/devices/one", {"SUBSYSTEM=net"}));
    norv::test::run_a_while(loop);
    EXPECT_FALSE(waiting.done());
    EXPECT_EQ(socket.waiting(), 0U);
}

TEST_F(CppUeventParseChanges, AnExceptionOfTheFunctionIsThrownInTheTask) {
    EXPECT_THROW(
        norv::test::run_until_ready(loop, failing(), [this] { send(device_message("add", "/devices/one")); })
            .ignore(),
        std::runtime_error);
}

TEST_F(CppUeventParseChanges, AStoppedTaskAppliesNothing) {
    EXPECT_EQ(
        norv::test::stop_before_ready(loop, one(), [this] { send(device_message("add", "/devices/one")); }),
        NORV_STATUS_TIMEOUT);
    EXPECT_EQ(socket.waiting(), 1U);
}

TEST_F(CppUeventParseChanges, ATaskThatWasStoppedBeforeAppliesNothing) {
    socket.send(device_message("add", "/devices/one"));
    EXPECT_EQ(norv::test::stopped_before_waiting(loop, one()), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(socket.waiting(), 1U);
}

TEST_F(CppUeventParseChanges, ATaskThatEndsWhileItWaitsLeavesNothing) {
    norv::test::end_before_ready(loop, one(), [this] { send(device_message("add", "/devices/one")); });
    EXPECT_EQ(socket.waiting(), 1U);
}

// ---- failures

TEST(CppUeventParseSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            uevent_socket(kernel).send(device_message("add", "/devices/one"));
            usb_bus(kernel).add_root_hub();
        },
        [] {
            norv::result<uevent_parse> parser = uevent_parse::open(filter::usb, 4096);
            if (!parser) {
                return parser.status().number();
            }
            uevent_parse moved = *std::move(parser);
            const status polled = moved.poll();
            return (polled.ok() ? moved.devices().status() : polled).number();
        });
}

}  // namespace
