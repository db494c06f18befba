// SPDX-License-Identifier: MIT
// The hot-plug parser in long runs and with bad input: plugging and unplugging compared with a model of the
// rules, storms of messages, and messages and files that no kernel writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "hotplug/uevent_parse_model.hpp"
#include "hotplug/uevent_parse_recorder.hpp"
#include "hotplug/uevent_socket.hpp"
#include "hotplug/usb_bus.hpp"
#include "norv_uevent_parse.h"

namespace {

using norv::test::kernel_double;
using norv::test::recorder;
using norv::test::uevent_message;
using norv::test::uevent_parse_model;
using norv::test::uevent_socket;
using norv::test::usb_bus;
using norv::test::video_node;

// Random numbers that are the same in every run and on every machine.
class dice {
  public:
    size_t below(size_t limit) { return numbers_() % limit; }
    template <typename list>
    const auto& pick(const list& of) {
        return of[below(of.size())];
    }

  private:
    std::mt19937 numbers_{20'231'107};
};

// Both directions of every list agree with its count, and every text ends.
void expect_sound(recorder& parser) {
    const norv_uevent_link_t& head = parser.list()->devices;
    uint32_t backwards = 0;
    for (const norv_uevent_link_t* link = head.prev; link != &head; link = link->prev) {
        ++backwards;
    }
    EXPECT_EQ(backwards, parser.list()->count);
    EXPECT_EQ(parser.devices().size(), parser.list()->count);
    for (const norv_uevent_device_t* device : parser.devices()) {
        for (const auto* text : {&device->syspath, &device->subsystem, &device->devnode, &device->devtype,
                                 &device->product, &device->product_name}) {
            EXPECT_LT(strnlen(*text, sizeof *text), sizeof *text);
        }
        EXPECT_LE(device->child_count, 1U);
    }
}

// ---- plugging and unplugging

class UeventParseCycles : public testing::Test {
  protected:
    UeventParseCycles() {
        kernel.add_device("/dev/video0", std::make_shared<video_node>(true));
        kernel.add_device("/dev/video1", std::make_shared<video_node>(false));
        EXPECT_EQ(parser.open(NORV_UEVENT_FILTER_USB, 4096), 0U);
    }
    void poll() {
        EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
        kernel.forget_calls();
    }

    kernel_double kernel;
    uevent_socket socket{kernel};
    recorder parser;
    dice random;
};

struct node {
    std::string path;  // below its device
    std::string subsystem;
    std::string devname;
};

// Two root hubs with five ports each, and at port 2 a hub with five ports. The path of port 1 is a prefix of
// that of port 10.
std::vector<std::string> ports() {
    std::vector<std::string> paths;
    for (const std::string bus : {"1", "2"}) {
        const std::string root = "/devices/pci0/usb" + bus;
        paths.push_back(root);
        for (const std::string port : {"1", "2", "3", "4", "10"}) {
            paths.push_back(root + "/" + bus + "-" + port);
            paths.push_back(root + "/" + bus + "-2/" + bus + "-2." + port);
        }
    }
    return paths;
}

const std::vector<node> kinds = {{"/1:1.0/input/input3/event3", "input", "input/event3"},
                                 {"/1:1.0/video4linux/video0", "video4linux", "video0"},
                                 {"/1:1.0/video4linux/video1", "video4linux", "video1"},
                                 {"/1:1.2/sound/card1/controlC1", "sound", "snd/controlC1"}};

std::string device_message(const std::string& action, const std::string& path) {
    return uevent_message(action, path, {"SUBSYSTEM=usb", "DEVTYPE=usb_device", "DEVNAME=bus/usb/001/002"});
}

TEST_F(UeventParseCycles, EachOf100000ChangesTheListByTheRules) {
    const std::vector<std::string> paths = ports();
    uevent_parse_model expected([](const std::string& devnode) { return devnode == "/dev/video0"; });
    for (int cycle = 0; cycle < 100'000; ++cycle) {
        const std::string& plugged = random.pick(paths);
        socket.send(device_message("add", plugged));
        expected.add(plugged);
        for (size_t nodes = random.below(4); nodes > 0; --nodes) {
            const node& added = random.pick(kinds);
            socket.send(uevent_message("add", plugged + added.path,
                                       {"SUBSYSTEM=" + added.subsystem, "DEVNAME=" + added.devname}));
            expected.add_node(plugged + added.path, added.subsystem, added.devname);
        }
        const std::string& unplugged = random.below(2) == 0 ? plugged : random.pick(paths);
        socket.send(device_message("remove", unplugged));
        expected.remove(unplugged);
        poll();
        ASSERT_EQ(parser.reported(), expected.reported) << "cycle " << cycle;
        ASSERT_EQ(parser.list()->count, expected.devices.size()) << "cycle " << cycle;
        if (cycle % 10 == 0) {
            ASSERT_EQ(parser.describe(), expected.describe()) << "cycle " << cycle;
        }
        parser.calls.clear();
        expected.reported.clear();
    }
}

// ---- storms

TEST_F(UeventParseCycles, AStormOf10000MessagesIsAppliedWholeAndInOrder) {
    std::vector<std::string> sent;
    for (int number = 0; number < 10'000; ++number) {
        const std::string path = "/devices/" + std::to_string(number) + "/";
        socket.send(device_message("add", path));
        sent.push_back("/sys" + path);
    }
    poll();
    EXPECT_EQ(parser.syspaths(), sent);
    expect_sound(parser);
}

TEST_F(UeventParseCycles, AfterLostMessagesTheListHoldsWhatArrived) {
    std::vector<std::string> arrived;
    for (int number = 0; number < 10'000; ++number) {
        const std::string path = "/devices/" + std::to_string(number) + "/";
        const bool is_lost = number % 500 >= 250;
        if (number % 500 == 250) {
            socket.fail_receive(ENOBUFS);
        }
        if (!is_lost) {
            socket.send(device_message("add", path));
            arrived.push_back("/sys" + path);
        }
    }
    while (socket.waiting() > 0) {
        poll();
    }
    EXPECT_EQ(parser.syspaths(), arrived);
    expect_sound(parser);
}

// ---- bad input

// Changes a text in a way that no kernel would.
std::string corrupted(std::string text, dice& random) {
    const size_t place = random.below(text.size() + 1);
    switch (random.below(7)) {
        case 0:
            return text.substr(0, place);
        case 1:
            return text.insert(place, 1, '\0');
        case 2:
            return text.insert(place, "99999999999999999999");
        case 3:
            return text.insert(place, random.below(2000), 'x');
        case 4:
            std::erase(text, '\0');
            return text;
        case 5:
            return text.substr(place) + text.substr(0, place);
        default:
            text[place % text.size()] = static_cast<char>(random.below(256));
            return text;
    }
}

TEST_F(UeventParseCycles, CorruptMessagesNeverCorruptTheList) {
    const std::vector<std::string> paths = ports();
    for (int round = 0; round < 30'000; ++round) {
        const node& kind = random.pick(kinds);
        const std::string& path = random.pick(paths);
        const std::string messages[] = {
            device_message("add", path), device_message("remove", path),
            uevent_message("add", path + kind.path,
                           {"SUBSYSTEM=" + kind.subsystem, "MAJOR=13", "DEVNAME=" + kind.devname})};
        std::string message = messages[random.below(3)];
        for (size_t times = random.below(3) + 1; times > 0 && !message.empty(); --times) {
            message = corrupted(message, random);
        }
        socket.send(message);
        poll();
        if (round % 100 == 0) {
            expect_sound(parser);
        }
    }
    expect_sound(parser);
}

TEST(UeventFileCycles, CorruptFilesNeverCorruptTheList) {
    kernel_double kernel;
    const uevent_socket socket(kernel);
    usb_bus bus(kernel);
    dice random;
    bus.add_bus_entry("usb1", "usb1");
    for (int round = 0; round < 500; ++round) {
        std::string content = norv::test::lines(
            {"MAJOR=189", "MINOR=1", "DEVNAME=bus/usb/001/002", "DEVTYPE=usb_device", "PRODUCT=46d/825/12"});
        for (size_t times = random.below(4); times > 0 && !content.empty(); --times) {
            content = corrupted(content, random);
        }
        bus.add_uevent("usb1", content);
        bus.add_uevent("usb1/1-1", content);
        recorder parser;
        ASSERT_EQ(parser.open(NORV_UEVENT_FILTER_USB, static_cast<uint32_t>(random.below(4096))), 0U);
        expect_sound(parser);
    }
}

}  // namespace
