// SPDX-License-Identifier: MIT
// USB devices that are plugged in and out while the parser runs on a real kernel: keyboards, a mouse on a hub
// and a sound device at ports of the emulated machine, a camera at a port that the kernel simulates; and a
// display that changes.
#include "norv_uevent_parse.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../support/attribute.hpp"
#include "hotplug/uevent_parse_model.hpp"
#include "hotplug/uevent_parse_recorder.hpp"
#include "norv/uevent.hpp"
#include "norv_base.h"
#include "norv_epoll.h"
#include "norv_file.h"
#include "support/status.hpp"
#include "usb_plug.hpp"
#include "uvc_camera.hpp"

namespace {

namespace fs = std::filesystem;
using norv::board::attribute;
using norv::test::errno_status;
using norv::test::recorder;
using norv::test::uevent_parse_model;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

constexpr uint32_t usb = NORV_UEVENT_FILTER_USB;
constexpr uint32_t buffer_size = 8192;

// The devices at the machine's ports: the first bus of its host controller is that of the slower devices.
constexpr const char* machine_bus = "/usb1/";

// The raw messages, received beside the parser: what it has to apply, and whether it has everything.
class eavesdropper {
  public:
    using texts = std::map<std::string, std::string>;

    // The messages that came since the last call.
    std::vector<texts> take() {
        std::vector<texts> messages;
        const norv::status polled = events_.poll([&](std::string_view message) {
            // A udev daemon repeats each message of the kernel to all groups. The parser ignores its messages.
            if (strcmp(message.data(), "libudev") != 0) {
                messages.push_back(texts_of(message));
            }
        });
        EXPECT_EQ(polled, norv::ok);
        return messages;
    }
    int descriptor() const { return events_.descriptor(); }

  private:
    static texts texts_of(std::string_view message) {
        texts found;
        const char* text = message.data();
        for (const char* end = text + message.size(); text < end; text += strlen(text) + 1) {
            const char* separator = strchr(text, '=');
            if (separator != nullptr) {
                found[std::string(text, separator)] = separator + 1;
            }
        }
        return found;
    }

    norv::uevent events_ = norv::uevent::open(buffer_size).value();
};

bool can_capture(const std::string& devnode) {
    return _v4l2_check_valid(devnode.c_str()) == 0;
}

class UeventParseOnBoard : public testing::Test {
  protected:
    // Polls until the devices at these paths below the host controller have their drivers, or are removed.
    void settle(const std::string& action, const std::vector<std::string>& paths) {
        constexpr uint64_t plenty = 60'000;  // ms
        const uint64_t start = norv_time_get_ms();
        std::vector<std::string> missing = paths;
        while ((!missing.empty() || is_coming()) && norv_time_get_ms() - start < plenty) {
            for (const eavesdropper::texts& message : ear.take()) {
                apply(message);
                std::erase_if(missing, [&](const std::string& path) {
                    return value(message, "ACTION") == action && value(message, "DEVTYPE") == "usb_device" &&
                           value(message, "DEVPATH").ends_with(path);
                });
            }
            EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
        }
        // The kernel serves one socket after the other: the last message may have come here first.
        EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
        EXPECT_THAT(missing, IsEmpty()) << action;
    }

    void plug_in(const std::string& driver, const std::string& id, const std::string& port,
                 const std::string& path, const std::string& more = "") {
        plug.in(driver, id, port, more);
        settle("bind", {machine_bus + path});
    }
    void plug_out(const std::string& id, const std::string& path) {
        plug.out(id);
        settle("remove", {machine_bus + path});
    }

    // Opens the parser on an empty list: without the root hubs, which would get the nodes.
    void open_without_hubs() {
        ASSERT_EQ(parser.open(0, buffer_size), 0U);
        norv_uevent_parse_set_filter(&parser.context, usb);
    }

    const norv_uevent_device_t* device(const std::string& path) {
        for (const norv_uevent_device_t* one : parser.devices()) {
            if (std::string(one->syspath).ends_with(path)) {
                return one;
            }
        }
        return nullptr;
    }
    static const norv_uevent_child_t& child_of(const norv_uevent_device_t& parent) {
        return *reinterpret_cast<const norv_uevent_child_t*>(parent.children.next);
    }

    norv::board::usb_plug plug;
    eavesdropper ear;
    recorder parser;
    uevent_parse_model model{can_capture};

  private:
    static std::string value(const eavesdropper::texts& message, const std::string& key) {
        const auto found = message.find(key);
        return found == message.end() ? "" : found->second;
    }

    // More messages may follow shortly.
    bool is_coming() const {
        pollfd readable = {ear.descriptor(), POLLIN, 0};
        return poll(&readable, 1, 200) == 1;
    }

    void apply(const eavesdropper::texts& message) {
        const std::string devpath = value(message, "DEVPATH");
        const std::string subsystem = value(message, "SUBSYSTEM");
        const std::string devname = value(message, "DEVNAME");
        const bool is_device = value(message, "DEVTYPE") == "usb_device";
        if (value(message, "ACTION") == "add") {
            if (is_device) {
                model.add(devpath);
            }
            if (!devname.empty() &&
                (subsystem == "input" || subsystem == "video4linux" || subsystem == "sound")) {
                model.add_node(devpath, subsystem, devname);
            }
        } else if (value(message, "ACTION") == "remove" && is_device) {
            model.remove(devpath);
        }
    }
};

// A node's numbers, from the file system.
std::pair<uint32_t, uint32_t> numbers_of(const char* devnode) {
    struct stat found = {};
    EXPECT_EQ(stat(devnode, &found), 0) << devnode;
    return {major(found.st_rdev), minor(found.st_rdev)};
}

// The USB devices that the bus lists: all entries but those of interfaces, which have a colon.
std::vector<std::string> plugged_devices() {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/sys/bus/usb/devices")) {
        if (entry.path().string().find(':') == std::string::npos) {
            found.push_back(fs::canonical(entry.path()).string());
        }
    }
    return found;
}

// Adds what one "uevent" file describes to a model, as the parser would.
void add_uevent_file(const fs::path& file, uevent_parse_model& model) {
    std::ifstream lines(file);
    std::map<std::string, std::string> found;
    for (std::string line; std::getline(lines, line);) {
        const size_t separator = line.find('=');
        found[line.substr(0, separator)] = line.substr(std::min(separator, line.size() - 1) + 1);
    }
    const std::string devpath = file.parent_path().string().substr(strlen("/sys"));
    const std::string& devname = found["DEVNAME"];
    if (found["DEVTYPE"] == "usb_device") {
        model.add(devpath);
    } else if (!devname.empty()) {
        model.add_node(devpath, devname.starts_with("video") ? "video4linux" : "", devname);
    }
}

// Adds what is plugged in to a model. The iterators keep the order of readdir(3).
void walk_root_hubs(uevent_parse_model& model) {
    for (const auto& entry : fs::directory_iterator("/sys/bus/usb/devices")) {
        if (!entry.path().filename().string().starts_with("usb")) {
            continue;
        }
        for (const auto& file : fs::recursive_directory_iterator(fs::canonical(entry.path()))) {
            if (file.path().filename() == "uevent") {
                add_uevent_file(file.path(), model);
            }
        }
    }
}

// The port of the simulated host controller.
std::string camera_port() {
    for (const auto& entry : fs::directory_iterator("/sys/bus/usb/devices")) {
        const std::string path = fs::canonical(entry.path()).string();
        const size_t place = path.find("/dummy_hcd.0/usb");
        if (place != std::string::npos && path.find(':') == std::string::npos) {
            const std::string bus = path.substr(place + strlen("/dummy_hcd.0/usb"));
            return "/usb" + bus + "/" + bus + "-1";
        }
    }
    return "no port";
}

// Makes the kernel send another message about a device.
void announce(const std::string& action, const std::string& devpath) {
    auto length = static_cast<uint32_t>(action.size());
    ASSERT_EQ(norv_write_device(const_cast<char*>(action.data()), &length, "%s/uevent", devpath.c_str()), 0U);
}

std::vector<std::string> video_nodes_below(const std::string& syspath) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/sys/class/video4linux")) {
        if (fs::canonical(entry.path()).string().starts_with(syspath)) {
            found.push_back("/dev/" + entry.path().filename().string());
        }
    }
    return found;
}

TEST_F(UeventParseOnBoard, OpeningFindsEveryDeviceThatIsPluggedIn) {
    ASSERT_EQ(parser.open(0, buffer_size), 0U);
    plug_in("usb-kbd", "keyboard", "1", "1-1");
    plug_in("usb-hub", "hub", "3", "1-3");
    plug_in("usb-mouse", "mouse", "3.2", "1-3/1-3.2");
    recorder opened;
    ASSERT_EQ(opened.open(usb, buffer_size), 0U);
    EXPECT_THAT(opened.syspaths(), UnorderedElementsAreArray(plugged_devices()));
    EXPECT_THAT(opened.syspaths(), Contains(EndsWith("/usb1/1-3/1-3.2")));
    for (const norv_uevent_device_t* found : opened.devices()) {
        EXPECT_EQ(found->action, NORV_UEVENT_ACTION_NONE);
        EXPECT_STREQ(found->subsystem, "usb");
        EXPECT_EQ(numbers_of(found->devnode),
                  std::make_pair(static_cast<uint32_t>(found->major), static_cast<uint32_t>(found->minor)));
    }
    plug_out("mouse", "1-3/1-3.2");
    plug_out("hub", "1-3");
    plug_out("keyboard", "1-1");
}

TEST_F(UeventParseOnBoard, OpeningFindsNodesByTheRulesInTheOrderOfTheDirectories) {
    ASSERT_EQ(parser.open(0, buffer_size), 0U);
    plug_in("usb-kbd", "keyboard", "1", "1-1");
    plug_in("usb-audio", "sound", "2", "1-2", R"(,"audiodev":"silence")");
    uevent_parse_model expected(can_capture);
    walk_root_hubs(expected);
    recorder opened;
    ASSERT_EQ(opened.open(usb, buffer_size), 0U);
    EXPECT_EQ(opened.describe(), expected.describe());
    EXPECT_THAT(opened.describe(), Contains(HasSubstr(" /dev/")));
    plug_out("sound", "1-2");
    plug_out("keyboard", "1-1");
}

TEST_F(UeventParseOnBoard, OpeningAddsTheNodeOfASerialAdapterToo) {
    ASSERT_EQ(parser.open(0, buffer_size), 0U);
    plug.add_idle_line("line");
    plug_in("usb-serial", "adapter", "1", "1-1", R"(,"chardev":"line","always-plugged":true)");
    recorder opened;
    ASSERT_EQ(opened.open(usb, buffer_size), 0U);
    EXPECT_THAT(opened.describe(), Contains(EndsWith(" /dev/ttyUSB0")));
    for (const norv_uevent_device_t* found : opened.devices()) {
        if (found->child_count != 0) {
            EXPECT_STREQ(child_of(*found).subsystem, "") << child_of(*found).devnode;
        }
    }
    plug_out("adapter", "1-1");
}

TEST_F(UeventParseOnBoard, ARequestedAddListsADeviceTwice) {
    const std::string hub = fs::canonical("/sys/bus/usb/devices/usb1").string();
    // Opening does not list what the device tree describes.
    const bool is_found = attribute(hub + "/uevent").find("OF_NAME") == std::string::npos;
    ASSERT_EQ(parser.open(usb, buffer_size), 0U);
    announce("add", hub);
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    const auto twice = parser.syspaths();
    EXPECT_EQ(std::count(twice.begin(), twice.end(), hub), is_found ? 2 : 1);
    announce("remove", hub);
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    const auto none = parser.syspaths();
    EXPECT_EQ(std::count(none.begin(), none.end(), hub), 0);
}

TEST_F(UeventParseOnBoard, AKeyboardIsAddedWithItsInputAndRemoved) {
    open_without_hubs();
    plug_in("usb-kbd", "keyboard", "1", "1-1");
    const norv_uevent_device_t* keyboard = device("/usb1/1-1");
    ASSERT_NE(keyboard, nullptr);
    EXPECT_EQ(keyboard->action, NORV_UEVENT_ACTION_ADD);
    EXPECT_STREQ(keyboard->product_name, "QEMU USB Keyboard");
    EXPECT_THAT(keyboard->product, StartsWith("627/1/"));
    EXPECT_STREQ(keyboard->devtype, "usb_device");
    EXPECT_EQ(numbers_of(keyboard->devnode),
              std::make_pair(static_cast<uint32_t>(keyboard->major), static_cast<uint32_t>(keyboard->minor)));
    ASSERT_EQ(keyboard->child_count, 1U);
    const norv_uevent_child_t& input = child_of(*keyboard);
    EXPECT_STREQ(input.subsystem, "input");
    EXPECT_THAT(input.devnode, StartsWith("/dev/input/event"));
    EXPECT_THAT(input.syspath, HasSubstr("/usb1/1-1/1-1:1.0/"));
    EXPECT_STREQ(input.parent_product_name, "QEMU USB Keyboard");
    EXPECT_EQ(numbers_of(input.devnode), std::make_pair(input.major, input.minor));
    plug_out("keyboard", "1-1");
    EXPECT_THAT(parser.syspaths(), IsEmpty());
    EXPECT_THAT(parser.reported().back(), AllOf(StartsWith("1 "), EndsWith("/usb1/1-1")));
}

TEST_F(UeventParseOnBoard, ASoundDeviceKeepsTheFirstOfItsNodes) {
    open_without_hubs();
    plug_in("usb-audio", "sound", "2", "1-2", R"(,"audiodev":"silence")");
    const norv_uevent_device_t* sound = device("/usb1/1-2");
    ASSERT_NE(sound, nullptr);
    ASSERT_EQ(sound->child_count, 1U);
    EXPECT_STREQ(child_of(*sound).subsystem, "sound");
    EXPECT_THAT(child_of(*sound).devnode, StartsWith("/dev/snd/"));
    plug_out("sound", "1-2");
    EXPECT_THAT(parser.syspaths(), IsEmpty());
}

TEST_F(UeventParseOnBoard, UnpluggingADeviceOnAHubRemovesTheHubToo) {
    open_without_hubs();
    plug_in("usb-hub", "hub", "3", "1-3");
    plug_in("usb-kbd", "keyboard", "1", "1-1");
    plug_in("usb-mouse", "mouse", "3.1", "1-3/1-3.1");
    plug_out("mouse", "1-3/1-3.1");
    EXPECT_THAT(parser.syspaths(), ElementsAre(EndsWith("/usb1/1-1")));
    plug_out("hub", "1-3");
    plug_out("keyboard", "1-1");
    EXPECT_THAT(parser.syspaths(), IsEmpty());
}

TEST_F(UeventParseOnBoard, ACameraKeepsItsCaptureNodeAndNotItsMetadataNode) {
    const std::string port = camera_port();
    open_without_hubs();
    {
        const norv::board::uvc_camera camera;
        settle("bind", {port});
        const norv_uevent_device_t* record = device(port);
        ASSERT_NE(record, nullptr);
        EXPECT_STREQ(record->product_name, norv::board::uvc_camera::product_name);
        ASSERT_EQ(record->child_count, 1U);
        const norv_uevent_child_t& picture = child_of(*record);
        EXPECT_STREQ(picture.subsystem, "video4linux");
        EXPECT_EQ(_v4l2_check_valid(picture.devnode), 0U);
        EXPECT_EQ(numbers_of(picture.devnode), std::make_pair(picture.major, picture.minor));
        const std::vector<std::string> nodes = video_nodes_below(record->syspath);
        EXPECT_THAT(nodes, SizeIs(2));
        for (const std::string& node : nodes) {
            if (node != picture.devnode) {
                EXPECT_EQ(_v4l2_check_valid(node.c_str()), errno_status(-1)) << node;
            }
        }
        EXPECT_EQ(parser.describe(), model.describe());
    }
    settle("remove", {port});
    EXPECT_THAT(parser.syspaths(), IsEmpty());
    EXPECT_EQ(parser.reported(), model.reported);
}

TEST_F(UeventParseOnBoard, TheEventLoopServesTheParser) {
    struct watcher {
        norv_epoll_fd_t record;
        norv_uevent_parse_t** context;
    };
    open_without_hubs();
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    parser.on_change = [&](const norv_uevent_device_t*) { norv_epoll_exit(&loop); };
    watcher watching = {{nullptr, norv_uevent_parse_get_fd(&parser.context),
                         [](norv_epoll_fd_t* record, uint32_t) {
                             norv_uevent_parse_poll(reinterpret_cast<watcher*>(record)->context);
                         }},
                        &parser.context};
    ASSERT_EQ(norv_epoll_fd_add(&loop, &watching.record, EPOLLIN), 0U);
    plug.in("usb-kbd", "keyboard", "1");
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_THAT(parser.syspaths(), ElementsAre(EndsWith("/usb1/1-1")));
    norv_epoll_fd_remove(&loop, &watching.record);
    norv_epoll_close(&loop);
    parser.on_change = [](const norv_uevent_device_t*) {};
    settle("bind", {"/usb1/1-1"});
    plug_out("keyboard", "1-1");
}

// Each round takes seconds on an emulated machine: `make soak` plugs and unplugs 200 devices, the daily run a
// few.
int rounds_of_four() {
    return std::getenv("NORV_LONG_SOAK") != nullptr ? 50 : 3;
}

TEST_F(UeventParseOnBoard, ManyRealPlugsAndUnplugsChangeTheListByTheRules) {
    const int rounds = rounds_of_four();
    const std::vector<std::string> drivers = {"usb-kbd", "usb-mouse", "usb-tablet", "usb-kbd"};
    open_without_hubs();
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::string> paths;
        for (size_t port = 1; port <= drivers.size(); ++port) {
            const std::string name = std::to_string(port);
            plug.in(drivers[port - 1], "device" + name, name);
            paths.push_back(machine_bus + ("1-" + name));
        }
        settle("bind", paths);
        ASSERT_EQ(parser.describe(), model.describe()) << "round " << round;
        ASSERT_THAT(parser.devices(), SizeIs(drivers.size()));
        for (size_t port = 1; port <= drivers.size(); ++port) {
            plug.out("device" + std::to_string(port));
        }
        settle("remove", paths);
        ASSERT_EQ(parser.describe(), model.describe()) << "round " << round;
        ASSERT_THAT(parser.devices(), IsEmpty());
        ASSERT_EQ(parser.reported(), model.reported) << "round " << round;
    }
}

// ---- a slow reader

TEST_F(UeventParseOnBoard, AStormThatOverrunsTheSocketDoesNotCorruptTheList) {
    const std::string hub = "/sys/bus/usb/devices/usb1";
    constexpr uint32_t storm = 10'000;
    open_without_hubs();
    for (uint32_t number = 0; number < storm; ++number) {
        announce("add", hub);
    }
    // The first poll ends at the overrun; how many messages were lost is not known.
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    const uint32_t arrived = parser.list()->count;
    EXPECT_GT(arrived, 0U);
    EXPECT_LT(arrived, storm);
    EXPECT_THAT(parser.syspaths(), AllOf(SizeIs(arrived), Each(fs::canonical(hub).string())));
    announce("remove", hub);
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    EXPECT_THAT(parser.syspaths(), IsEmpty());
    announce("add", hub);
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    EXPECT_EQ(parser.list()->count, 1U);
}

// ---- displays

TEST_F(UeventParseOnBoard, AChangedConnectorIsReported) {
    ASSERT_EQ(parser.open(NORV_UEVENT_FILTER_DISPLAY, buffer_size), 0U);
    norv_uevent_device_t seen = {};
    parser.on_change = [&](const norv_uevent_device_t* reported) { seen = *reported; };
    std::ofstream("/sys/class/norv_board_display/card9/connector") << 94 << std::flush;
    EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U);
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(seen.action, NORV_UEVENT_ACTION_CHANGE);
    EXPECT_EQ(seen.connector, 94);
    EXPECT_STREQ(seen.devtype, "drm_minor");
    EXPECT_EQ(seen.syspath, fs::canonical("/sys/class/norv_board_display/card9").string());
    EXPECT_THAT(parser.syspaths(), IsEmpty());
}

// ---- video nodes

// The node of the video test driver with this name.
std::string video_node(const std::string& name) {
    for (const auto& entry : fs::directory_iterator("/sys/class/video4linux")) {
        if (norv::board::attribute(entry.path() / "name") == name) {
            return "/dev/" + entry.path().filename().string();
        }
    }
    return "no node";
}

TEST(V4l2OnBoard, ACaptureNodeIsValidAndOthersAreNot) {
    EXPECT_EQ(_v4l2_check_valid(video_node("vivid-000-vid-cap").c_str()), 0U);
    for (const char* name : {"vivid-000-vid-out", "vivid-000-meta-cap", "vivid-000-rad-rx"}) {
        EXPECT_EQ(_v4l2_check_valid(video_node(name).c_str()), errno_status(-1)) << name;
    }
    EXPECT_EQ(_v4l2_check_valid("/dev/video99"), NORV_STATUS_DEVICE_ERROR);
}

}  // namespace
