// SPDX-License-Identifier: MIT
// The hot-plug parser.
#include "norv_uevent_parse.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "hotplug/mutex_ends.hpp"
#include "hotplug/uevent_parse_recorder.hpp"
#include "hotplug/uevent_socket.hpp"
#include "hotplug/usb_bus.hpp"
#include "norv/file.hpp"
#include "norv_base.h"
#include "norv_uevent.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::address_binding;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::kernel_double;
using norv::test::lines;
using norv::test::no_standard_input;
using norv::test::option_setting;
using norv::test::reception;
using norv::test::recorder;
using norv::test::socket_making;
using norv::test::strike;
using norv::test::uevent_message;
using norv::test::uevent_socket;
using norv::test::usb_bus;
using norv::test::video_node;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr uint32_t usb = NORV_UEVENT_FILTER_USB;
constexpr uint32_t display = NORV_UEVENT_FILTER_DISPLAY;

std::string device_message(const std::string& action, const std::string& devpath) {
    return uevent_message(action, devpath,
                          {"SUBSYSTEM=usb", "MAJOR=189", "MINOR=2", "DEVNAME=bus/usb/001/003",
                           "DEVTYPE=usb_device", "PRODUCT=46d/825/12"});
}

std::string node_message(const std::string& action, const std::string& devpath, const std::string& subsystem,
                         const std::string& devname) {
    return uevent_message(action, devpath,
                          {"SUBSYSTEM=" + subsystem, "MAJOR=81", "MINOR=5", "DEVNAME=" + devname});
}

// A kernel with a uevent socket and an empty USB bus.
class UeventParse : public testing::Test {
  protected:
    uint32_t open(uint32_t filter = usb, uint32_t buffer_size = 4096) {
        return parser.open(filter, buffer_size);
    }
    void poll() { EXPECT_EQ(norv_uevent_parse_poll(&parser.context), 0U); }
    // Receives one message in a poll of its own.
    void receive(const std::string& message) {
        socket.send(message);
        poll();
    }
    const norv_uevent_device_t& device(size_t index) { return *parser.devices().at(index); }
    std::vector<std::string> syspaths() { return parser.syspaths(); }

    kernel_double kernel;
    uevent_socket socket{kernel};
    usb_bus bus{kernel};
    recorder parser;
};

class OpenUeventParse : public UeventParse {
  protected:
    OpenUeventParse() { EXPECT_EQ(open(), 0U); }
};

// ---- open and close

TEST_F(UeventParse, TheSocketIsSetUpAsForUeventMessages) {
    ASSERT_EQ(open(), 0U);
    const auto sockets = kernel.calls<socket_making>("socket");
    ASSERT_THAT(sockets, SizeIs(1));
    EXPECT_EQ(sockets[0].type, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC);
    EXPECT_EQ(sockets[0].protocol, NETLINK_KOBJECT_UEVENT);
    const auto options = kernel.calls<option_setting>("setsockopt");
    ASSERT_THAT(options, SizeIs(1));
    EXPECT_EQ(options[0].name, SO_RCVBUFFORCE);
    int32_t size = 0;
    ASSERT_EQ(options[0].value.size(), sizeof size);
    memcpy(&size, options[0].value.data(), sizeof size);
    EXPECT_EQ(size, 65536);
    const auto binds = kernel.calls<address_binding>("bind");
    ASSERT_THAT(binds, SizeIs(1));
    sockaddr_nl address;
    ASSERT_EQ(binds[0].address.size(), sizeof address);
    memcpy(&address, binds[0].address.data(), sizeof address);
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pid, 0U);
    EXPECT_EQ(address.nl_groups, 0xFFFFFFFFU);
}

TEST_F(UeventParse, TheContextIsStoredBeforeTheHandlerIsCalled) {
    bus.add_root_hub();
    norv_uevent_parse_t* seen = nullptr;
    parser.on_change = [&](const norv_uevent_device_t*) { seen = parser.context; };
    ASSERT_EQ(open(), 0U);
    EXPECT_NE(seen, nullptr);
    EXPECT_EQ(seen, parser.context);
}

TEST_F(UeventParse, WithoutMemoryForTheContextTheVariableIsNull) {
    kernel.fail("norv_zalloc", ENOMEM);
    parser.context = reinterpret_cast<norv_uevent_parse_t*>(1);
    EXPECT_EQ(open(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_THAT(kernel.calls("socket"), IsEmpty());
}

TEST_F(UeventParse, WithoutMemoryForTheBufferEverythingIsReleased) {
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(open(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(UeventParse, WithoutMemoryForTheListEverythingIsReleased) {
    kernel.fail({.call = "norv_zalloc", .nth = 2, .error = ENOMEM});
    EXPECT_EQ(open(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(UeventParse, AFailedMutexInitIsReportedAndEverythingReleased) {
    kernel.fail("norv_mutex_init", ENOMEM);
    EXPECT_EQ(open(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(UeventParse, ASocketFailureIsReturnedAndTheContextClosed) {
    kernel.fail("socket", EMFILE);
    EXPECT_EQ(open(), errno_status(EMFILE));
    EXPECT_EQ(parser.context, nullptr);
}

TEST_F(UeventParse, ABindFailureIsReturnedAndTheContextClosed) {
    kernel.fail("bind", EACCES);
    EXPECT_EQ(open(), errno_status(EACCES));
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 1
TEST_F(UeventParse, ASocketFailureThatMapsToZeroOpensWithoutASocket) {
    bus.add_root_hub();
    kernel.fail("socket", EMFILE);
    kernel.map_errno(EMFILE, 0);
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(norv_uevent_parse_get_fd(&parser.context), -1);
    EXPECT_THAT(syspaths(), SizeIs(1));
    poll();
}

TEST_F(UeventParse, ANullPointerIsAnInvalidArgument) {
    const norv_uevent_parse_settings_t settings = {};
    EXPECT_EQ(norv_uevent_parse_open(nullptr, &settings), NORV_STATUS_INVALID_ARG);
    parser.context = reinterpret_cast<norv_uevent_parse_t*>(1);
    EXPECT_EQ(norv_uevent_parse_open(&parser.context, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(UeventParse, WithoutAContextEveryCallIsRefused) {
    const norv_uevent_device_list_t* list = nullptr;
    norv_uevent_parse_t* none = nullptr;
    for (norv_uevent_parse_t** context : {&none, static_cast<norv_uevent_parse_t**>(nullptr)}) {
        norv_uevent_parse_close(context);
        EXPECT_EQ(norv_uevent_parse_poll(context), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uevent_parse_set_filter(context, usb), nullptr);
        EXPECT_EQ(norv_uevent_parse_get_device(context, &list), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uevent_parse_get_fd(context), -1);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenUeventParse, ClosingReleasesEverythingAndMakesTheVariableNull) {
    receive(device_message("add", "/devices/pci0/usb1/1-1"));
    receive(
        node_message("add", "/devices/pci0/usb1/1-1/1-1:1.0/input/input3/event3", "input", "input/event3"));
    EXPECT_EQ(device(0).child_count, 1U);
    const size_t calls = parser.calls.size();
    kernel.forget_calls();
    norv_uevent_parse_close(&parser.context);
    EXPECT_EQ(parser.context, nullptr);
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
    EXPECT_THAT(parser.calls, SizeIs(calls));
}

// quirk 3
TEST(UeventParseWithoutStandardInput, ASocketWithTheDescriptor0IsNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    const uevent_socket socket(kernel);
    recorder parser;
    ASSERT_EQ(parser.open(0, 64), 0U);
    ASSERT_EQ(norv_uevent_parse_get_fd(&parser.context), 0);
    norv_uevent_parse_close(&parser.context);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(OpenUeventParse, ASecondCloseDoesNothing) {
    norv_uevent_parse_close(&parser.context);
    kernel.forget_calls();
    norv_uevent_parse_close(&parser.context);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenUeventParse, AListThatCannotBeLockedIsReleasedNevertheless) {
    receive(device_message("add", "/devices/pci0/usb1/1-1"));
    kernel.fail("norv_mutex_lock", EINVAL);
    norv_uevent_parse_close(&parser.context);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(OpenUeventParse, TheDescriptorIsTheSockets) {
    const int descriptor = norv_uevent_parse_get_fd(&parser.context);
    EXPECT_GT(descriptor, 0);
    EXPECT_EQ(descriptor, kernel.calls("socket").at(0).result);
}

TEST_F(OpenUeventParse, TheListIsEmptyAtFirst) {
    const norv_uevent_device_list_t* list = nullptr;
    EXPECT_EQ(norv_uevent_parse_get_device(&parser.context, &list), 0U);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count, 0U);
    EXPECT_EQ(list->devices.next, &list->devices);
    EXPECT_EQ(list->devices.prev, &list->devices);
}

TEST_F(OpenUeventParse, AListThatCannotBeLockedIsNotReturned) {
    const norv_uevent_device_list_t* list = nullptr;
    EXPECT_EQ(norv_uevent_parse_get_device(&parser.context, nullptr), NORV_STATUS_INVALID_ARG);
    kernel.fail("norv_mutex_lock", EINVAL);
    EXPECT_EQ(norv_uevent_parse_get_device(&parser.context, &list), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(list, nullptr);
}

// ---- messages

TEST_F(OpenUeventParse, EachKeyOfAMessageIsStoredInItsField) {
    receive(uevent_message("add", "/devices/pci0/usb1/1-1",
                           {"SUBSYSTEM=usb", "MAJOR=189", "MINOR=2", "CONNECTOR=7", "DEVNAME=bus/usb/001/003",
                            "DEVTYPE=usb_device", "PRODUCT=46d/825/12"}));
    ASSERT_THAT(parser.devices(), SizeIs(1));
    EXPECT_EQ(device(0).action, NORV_UEVENT_ACTION_ADD);
    EXPECT_EQ(device(0).major, 189);
    EXPECT_EQ(device(0).minor, 2);
    EXPECT_EQ(device(0).connector, 7);
    EXPECT_STREQ(device(0).syspath, "/sys/devices/pci0/usb1/1-1");
    EXPECT_STREQ(device(0).subsystem, "usb");
    EXPECT_STREQ(device(0).devnode, "/dev/bus/usb/001/003");
    EXPECT_STREQ(device(0).devtype, "usb_device");
    EXPECT_STREQ(device(0).product, "46d/825/12");
    EXPECT_STREQ(device(0).product_name, "");
    EXPECT_EQ(device(0).child_count, 0U);
    EXPECT_EQ(device(0).children.next, &device(0).children);
    EXPECT_EQ(device(0).children.prev, &device(0).children);
}

TEST_F(OpenUeventParse, FieldsWithoutAKeyAreMinusOneOrEmpty) {
    receive("ACTION=add\0DEVTYPE=usb_device\0"s);
    ASSERT_THAT(parser.devices(), SizeIs(1));
    EXPECT_EQ(device(0).major, -1);
    EXPECT_EQ(device(0).minor, -1);
    EXPECT_EQ(device(0).connector, -1);
    EXPECT_STREQ(device(0).syspath, "/sys");
    EXPECT_STREQ(device(0).devnode, "/dev/");
    EXPECT_STREQ(device(0).subsystem, "");
    EXPECT_STREQ(device(0).product, "");
}

TEST_F(OpenUeventParse, TheHeaderLineIsIgnored) {
    receive("remove@/devices/x\0ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/y\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/y"));
}

TEST_F(OpenUeventParse, TextsWithoutAKnownKeyAreIgnored) {
    receive(
        "AAA=first\0ACTION=add\0DEV=x\0DEVNAM=x\0DEVPAT\0devpath=/lower\0 "
        "DEVPATH=/space\0DEVTYPE=usb_device\0"
        "DEVPATH=/devices/y\0DEVPATHS=/longer\0ZZZ=last\0=\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/y"));
}

TEST_F(OpenUeventParse, TheLastOfARepeatedKeyCounts) {
    receive("ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x\0DEVPATH=/devices/y\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/y"));
}

TEST_F(OpenUeventParse, AnEmptyTextEndsTheMessage) {
    receive("ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x\0\0DEVPATH=/devices/y\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/x"));
}

TEST_F(OpenUeventParse, AMessageThatBeginsWithANulIsIgnored) {
    receive("\0ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x\0"s);
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(OpenUeventParse, AMessageOfAUdevDaemonIsIgnored) {
    receive("libudev\0\xfe\xed\xca\xfe\x28\0\0\0\x28\0\0\0\0ACTION=add\0DEVTYPE=usb_device\0"s);
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(OpenUeventParse, AMessageWithoutAFinalNulIsParsedToItsEnd) {
    receive("ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/x"));
}

TEST_F(OpenUeventParse, TheRestOfALongerMessageIsNotParsedWithTheNextOne) {
    const std::string shorter = "ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x"s;
    socket.send(std::string(shorter.size() + 1, '\0') + "A\0DEVPATH=/devices/left\0"s);
    receive(shorter);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/x"));
}

TEST_F(OpenUeventParse, AMessageWithoutSeparatorsIsIgnored) {
    receive(std::string(4096, 'A'));
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(UeventParse, AMessageAsLongAsTheBufferIsParsedWhole) {
    const std::string message = "ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x"s;
    ASSERT_EQ(open(usb, static_cast<uint32_t>(message.size())), 0U);
    receive(message);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/x"));
}

TEST_F(UeventParse, ALongerMessageIsTruncated) {
    const std::string kept = "ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/x"s;
    ASSERT_EQ(open(usb, static_cast<uint32_t>(kept.size())), 0U);
    receive(kept + "yz\0MAJOR=1\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/x"));
    EXPECT_EQ(device(0).major, -1);
}

TEST_F(UeventParse, ABufferOfNoBytesReceivesNothing) {
    ASSERT_EQ(open(usb, 0), 0U);
    receive(device_message("add", "/devices/x"));
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(OpenUeventParse, AMessageIsReceivedWithTheWholeBufferAndNoFlags) {
    poll();
    ASSERT_THAT(kernel.calls("recv"), SizeIs(1));
    EXPECT_EQ(kernel.calls("recv")[0].as<reception>().size, 4096U);
    EXPECT_EQ(kernel.calls("recv")[0].as<reception>().flags, 0);
}

TEST_F(OpenUeventParse, OnePollAppliesEveryMessageThatWaits) {
    socket.send(device_message("add", "/devices/a"));
    socket.send(device_message("add", "/devices/b"));
    socket.send(device_message("add", "/devices/c"));
    poll();
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a", "/sys/devices/b", "/sys/devices/c"));
}

// quirk 119
TEST_F(OpenUeventParse, AReceiveErrorEndsThePollSilentlyAndTheNextContinues) {
    for (const int error : {EAGAIN, ENOBUFS, EIO, EINTR}) {
        socket.send(device_message("add", "/devices/a"));
        socket.fail_receive(error);
        socket.send(device_message("add", "/devices/b"));
        poll();
        EXPECT_EQ(socket.waiting(), 1U);
        poll();
        EXPECT_EQ(socket.waiting(), 0U);
    }
    EXPECT_THAT(parser.devices(), SizeIs(8));
}

TEST_F(OpenUeventParse, AnEmptyMessageEndsThePoll) {
    socket.send("");
    socket.send(device_message("add", "/devices/a"));
    poll();
    EXPECT_EQ(socket.waiting(), 1U);
}

// quirk 118
TEST_F(OpenUeventParse, OnlyTheBeginningOfAnActionIsCompared) {
    receive(device_message("additional", "/devices/a"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
    receive(device_message("removed", "/devices/a"));
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(OpenUeventParse, AnUnknownActionLeavesTheActionUnchanged) {
    receive("ACTION=add\0ACTION=bind\0DEVTYPE=usb_device\0DEVPATH=/devices/a\0"s);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
}

TEST_F(OpenUeventParse, OtherActionsChangeNothing) {
    receive(device_message("add", "/devices/a"));
    parser.calls.clear();
    for (const char* action : {"bind", "unbind", "move", "online", "change", "ad", "remov", ""}) {
        receive(device_message(action, "/devices/a"));
    }
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
}

TEST_F(OpenUeventParse, NumbersAreDecimalAndEndAtTheFirstOtherCharacter) {
    receive("ACTION=add\0DEVTYPE=usb_device\0MAJOR=010x5\0MINOR=0x10\0CONNECTOR= -3 \0"s);
    EXPECT_EQ(device(0).major, 10);
    EXPECT_EQ(device(0).minor, 0);
    EXPECT_EQ(device(0).connector, -3);
}

TEST_F(OpenUeventParse, LargeNumbersAreTruncatedTo32Bits) {
    receive("ACTION=add\0DEVTYPE=usb_device\0MAJOR=2147483647\0MINOR=99999999999999999999999\0CONNECTOR=\0"s);
    EXPECT_EQ(device(0).major, INT32_MAX);
    EXPECT_EQ(device(0).minor, static_cast<int32_t>(LONG_MAX));
    EXPECT_EQ(device(0).connector, 0);
}

TEST_F(OpenUeventParse, KeysAreLookedUpInTheExportedTable) {
    const char* const kept = p_uevent_key[3];
    p_uevent_key[3] = "DEVPATHS=";
    receive("ACTION=add\0DEVTYPE=usb_device\0DEVPATH=/devices/a\0DEVPATHS=/devices/b\0"s);
    p_uevent_key[3] = kept;
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/b"));
}

// ---- devices

TEST_F(OpenUeventParse, AnAddedDeviceIsAppendedAndReported) {
    receive(device_message("add", "/devices/pci0/usb1/1-1"));
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(parser.calls[0].device, &device(0));
    EXPECT_EQ(parser.calls[0].action, NORV_UEVENT_ACTION_ADD);
    EXPECT_EQ(parser.list()->count, 1U);
}

TEST_F(OpenUeventParse, TheOldestDeviceComesFirst) {
    receive(device_message("add", "/devices/b"));
    receive(device_message("add", "/devices/a"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/b", "/sys/devices/a"));
    EXPECT_STREQ(reinterpret_cast<const norv_uevent_device_t*>(parser.list()->devices.prev)->syspath,
                 "/sys/devices/a");
}

// quirk 117
TEST_F(OpenUeventParse, ADeviceThatIsAddedTwiceIsListedTwice) {
    receive(device_message("add", "/devices/a"));
    receive(device_message("add", "/devices/a"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a", "/sys/devices/a"));
    EXPECT_EQ(parser.list()->count, 2U);
}

TEST_F(OpenUeventParse, OnlyTheExactDeviceTypeIsADevice) {
    for (const char* devtype : {"usb_devic", "usb_devices", "usb_interface", "USB_DEVICE", ""}) {
        receive(uevent_message("add", "/devices/a", {"SUBSYSTEM=usb", "DEVTYPE="s + devtype}));
    }
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(OpenUeventParse, AMessageAboutADeviceOfTheDeviceTreeListsIt) {
    receive(uevent_message("add", "/devices/a", {"OF_NAME=hub", "DEVTYPE=usb_device"}));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
}

TEST_F(OpenUeventParse, TheSubsystemOfADeviceDoesNotMatter) {
    receive(uevent_message("add", "/devices/a", {"SUBSYSTEM=other", "DEVTYPE=usb_device"}));
    EXPECT_STREQ(device(0).subsystem, "other");
}

TEST_F(OpenUeventParse, TheProductNameIsTheFirstLineOfItsFile) {
    kernel.add_file("/sys/devices/a/product", "HD Webcam C525\nsecond line\n");
    receive(device_message("add", "/devices/a"));
    EXPECT_STREQ(device(0).product_name, "HD Webcam C525");
    EXPECT_THAT(kernel.open_flags("/sys/devices/a/product"), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(OpenUeventParse, AProductNameMayLackItsNewline) {
    kernel.add_file("/sys/devices/a/product", "Webcam");
    receive(device_message("add", "/devices/a"));
    EXPECT_STREQ(device(0).product_name, "Webcam");
}

TEST_F(OpenUeventParse, AProductNameIsTruncatedAfter511Characters) {
    kernel.add_file("/sys/devices/a/product", std::string(600, 'p'));
    receive(device_message("add", "/devices/a"));
    EXPECT_EQ(device(0).product_name, std::string(511, 'p'));
}

TEST_F(OpenUeventParse, TheProductNameOfALongPathIsRead) {
    const std::string path = "/devices/" + std::string(200, 'a') + "/" + std::string(200, 'b');
    kernel.add_file("/sys" + path + "/product", "Webcam\n");
    receive(device_message("add", path));
    EXPECT_STREQ(device(0).product_name, "Webcam");
}

TEST_F(OpenUeventParse, AProductNameIsReadThroughDescriptor0Too) {
    const no_standard_input guard;
    kernel.add_file("/sys/devices/a/product", "Webcam\n");
    receive(device_message("add", "/devices/a"));
    EXPECT_STREQ(device(0).product_name, "Webcam");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(OpenUeventParse, AProductNameThatCannotBeReadIsEmpty) {
    kernel.add_directory("/sys/devices/a/product");
    receive(device_message("add", "/devices/a"));
    EXPECT_STREQ(device(0).product_name, "");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(OpenUeventParse, AnUnknownKeyIsIgnored) {
    receive(
        uevent_message("add", "/devices/a",
                       {"SUBSYSTEM=usb", "DEVTYPE=usb_device", "AAA=remove", "MMM=remove", "ZZZ=remove"}));
    EXPECT_EQ(device(0).action, NORV_UEVENT_ACTION_ADD);
}

TEST_F(OpenUeventParse, EveryTextIsTruncatedAfter511Characters) {
    const std::string text(600, 't');
    receive(
        uevent_message("add", "/" + text,
                       {"SUBSYSTEM=" + text, "DEVNAME=" + text, "DEVTYPE=usb_device", "PRODUCT=" + text}));
    ASSERT_THAT(parser.devices(), SizeIs(1));
    EXPECT_EQ(device(0).syspath, "/sys/" + text.substr(0, 506));
    EXPECT_EQ(device(0).devnode, "/dev/" + text.substr(0, 506));
    EXPECT_EQ(device(0).subsystem, text.substr(0, 511));
    EXPECT_EQ(device(0).product, text.substr(0, 511));
}

TEST_F(OpenUeventParse, AListThatCannotBeLockedStaysUnchanged) {
    receive(device_message("add", "/devices/a"));
    parser.calls.clear();
    kernel.fail("norv_mutex_lock", EINVAL);
    receive(device_message("add", "/devices/b"));
    kernel.fail("norv_mutex_lock", EINVAL);
    receive(node_message("add", "/devices/a/input", "input", "input/event0"));
    kernel.fail("norv_mutex_lock", EINVAL);
    receive(device_message("remove", "/devices/a"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
    EXPECT_EQ(device(0).child_count, 0U);
}

TEST_F(OpenUeventParse, WithoutMemoryADeviceIsNeitherListedNorReported) {
    kernel.fail("norv_zalloc", ENOMEM);
    receive(device_message("add", "/devices/a"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(UeventParse, WithoutAHandlerTheListIsMaintained) {
    bus.add_root_hub();
    const norv_uevent_parse_settings_t settings = {usb | display, 4096, nullptr, nullptr};
    ASSERT_EQ(norv_uevent_parse_open(&parser.context, &settings), 0U);
    receive(uevent_message("change", "/devices/card0", {"DEVTYPE=drm_minor"}));
    receive(node_message("add", "/devices/pci0/usb1/event0", "input", "input/event0"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1"));
    EXPECT_EQ(device(0).child_count, 1U);
    receive(device_message("remove", "/devices/pci0/usb1"));
    EXPECT_THAT(syspaths(), IsEmpty());
}

// ---- nodes

class WebcamOnOpenParser : public OpenUeventParse {
  protected:
    WebcamOnOpenParser() {
        kernel.add_file(path_in_sys + "/product", "Webcam\n");
        kernel.add_device("/dev/video0", picture);
        kernel.add_device("/dev/video1", metadata);
        receive(device_message("add", path));
        parser.calls.clear();
        kernel.forget_calls();
    }
    const norv_uevent_child_t& child() {
        return *reinterpret_cast<const norv_uevent_child_t*>(device(0).children.next);
    }

    const std::string path = "/devices/pci0/usb1/1-1";
    const std::string path_in_sys = "/sys" + path;
    std::shared_ptr<video_node> picture = std::make_shared<video_node>(true);
    std::shared_ptr<video_node> metadata = std::make_shared<video_node>(false);
};

TEST_F(WebcamOnOpenParser, ItsCaptureNodeBecomesAChild) {
    receive(node_message("add", path + "/1-1:1.0/video4linux/video0", "video4linux", "video0"));
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_EQ(child().major, 81U);
    EXPECT_EQ(child().minor, 5U);
    EXPECT_EQ(child().syspath, path_in_sys + "/1-1:1.0/video4linux/video0");
    EXPECT_STREQ(child().subsystem, "video4linux");
    EXPECT_STREQ(child().devnode, "/dev/video0");
    EXPECT_STREQ(child().parent_product_name, "Webcam");
    EXPECT_EQ(child().link.next, &device(0).children);
    EXPECT_EQ(device(0).children.prev, &child().link);
}

TEST_F(WebcamOnOpenParser, TheDeviceThatGotTheNodeIsReported) {
    receive(node_message("add", path + "/1-1:1.0/video4linux/video0", "video4linux", "video0"));
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(parser.calls[0].device, &device(0));
    EXPECT_EQ(parser.calls[0].child_count, 1U);
    EXPECT_EQ(parser.calls[0].action, NORV_UEVENT_ACTION_ADD);
}

// quirk 114
TEST_F(WebcamOnOpenParser, ItsMetadataNodeAddsNothingButIsReported) {
    receive(node_message("add", path + "/1-1:1.0/video4linux/video1", "video4linux", "video1"));
    EXPECT_EQ(device(0).child_count, 0U);
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(parser.calls[0].device, &device(0));
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(WebcamOnOpenParser, AMetadataNodeThatComesFirstLeavesRoomForTheCaptureNode) {
    receive(node_message("add", path + "/1-1:1.0/video4linux/video1", "video4linux", "video1"));
    receive(node_message("add", path + "/1-1:1.0/video4linux/video0", "video4linux", "video0"));
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_STREQ(child().devnode, "/dev/video0");
}

TEST_F(WebcamOnOpenParser, AVideoNodeThatCannotBeOpenedAddsNothingButIsReported) {
    receive(node_message("add", path + "/1-1:1.0/video4linux/video9", "video4linux", "video9"));
    EXPECT_EQ(device(0).child_count, 0U);
    EXPECT_THAT(parser.calls, SizeIs(1));
}

// quirk 110
TEST_F(WebcamOnOpenParser, OnlyTheFirstOfASoundCardAndAnInputIsKept) {
    receive(node_message("add", path + "/1-1:1.2/sound/card1/controlC1", "sound", "snd/controlC1"));
    receive(node_message("add", path + "/1-1:1.3/input/input9/event9", "input", "input/event9"));
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_STREQ(child().subsystem, "sound");
    EXPECT_STREQ(child().devnode, "/dev/snd/controlC1");
}

TEST_F(WebcamOnOpenParser, ANodeThatIsNotKeptIsNotReported) {
    receive(node_message("add", path + "/1-1:1.2/sound/card1/controlC1", "sound", "snd/controlC1"));
    parser.calls.clear();
    receive(node_message("add", path + "/1-1:1.0/video4linux/video0", "video4linux", "video0"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(kernel.open_flags("/dev/video0"), IsEmpty());
}

TEST_F(WebcamOnOpenParser, ADeviceWithoutAProductNameKeepsOnlyItsFirstNodeToo) {
    receive(device_message("add", "/devices/nameless"));
    receive(node_message("add", "/devices/nameless/event1", "input", "input/event1"));
    receive(node_message("add", "/devices/nameless/event2", "input", "input/event2"));
    EXPECT_EQ(device(1).child_count, 1U);
}

TEST_F(WebcamOnOpenParser, OnlyNodesOfTheThreeSubsystemsAreAdded) {
    for (const char* subsystem :
         {"", "inpu", "inputs", "video4linu", "video4linux2", "soun", "sounds", "hidraw"}) {
        receive(node_message("add", path + "/1-1:1.0/node", subsystem, "input/event0"));
    }
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_EQ(device(0).child_count, 0U);
}

TEST_F(WebcamOnOpenParser, ANodeWithoutANameIsNotAdded) {
    receive(uevent_message("add", path + "/1-1:1.0/input/input3", {"SUBSYSTEM=input"}));
    receive(uevent_message("add", path + "/1-1:1.0/input/input3", {"SUBSYSTEM=input", "DEVNAME="}));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_EQ(device(0).child_count, 0U);
}

TEST_F(WebcamOnOpenParser, ANameMayBeginWithAnyByte) {
    receive(uevent_message("add", path + "/event0", {"SUBSYSTEM=input", "DEVNAME=\xC3\xA9vent0"}));
    EXPECT_EQ(child().devnode, std::string("/dev/\xC3\xA9vent0"));
}

TEST_F(WebcamOnOpenParser, ANodeWithoutNumbersHasNumbersWithAllBitsSet) {
    receive(uevent_message("add", path + "/event0", {"SUBSYSTEM=input", "DEVNAME=input/event0"}));
    EXPECT_EQ(child().major, 0xFFFFFFFFU);
    EXPECT_EQ(child().minor, 0xFFFFFFFFU);
}

TEST_F(WebcamOnOpenParser, TheTextsOfANodeAreTruncatedAfter511Characters) {
    const std::string name(600, 'n');
    receive(uevent_message("add", path + "/" + name, {"SUBSYSTEM=input", "DEVNAME=" + name}));
    EXPECT_EQ(child().syspath, (path_in_sys + "/" + name).substr(0, 511));
    EXPECT_EQ(child().devnode, ("/dev/" + name).substr(0, 511));
}

// quirk 113
TEST_F(WebcamOnOpenParser, ANodeOfNoListedDeviceIsReportedWithTheListsHead) {
    receive(node_message("add", "/devices/platform/gpio-keys/input/input0/event0", "input", "input/event0"));
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_TRUE(parser.calls[0].is_head);
    EXPECT_EQ(parser.calls[0].device, static_cast<const void*>(&parser.list()->devices));
    EXPECT_EQ(device(0).child_count, 0U);
    EXPECT_EQ(parser.list()->count, 1U);
}

// quirk 109
TEST_F(WebcamOnOpenParser, ANodeIsAddedToTheFirstDeviceWhosePathIsAPrefix) {
    receive(device_message("add", path + "/1-1.4"));
    receive(node_message("add", path + "/1-1.4/1-1.4:1.0/event0", "input", "input/event0"));
    EXPECT_EQ(device(0).child_count, 1U);
    EXPECT_EQ(device(1).child_count, 0U);
}

TEST_F(WebcamOnOpenParser, ANodeIsAddedToTheDeviceIfTheHubIsListedLater) {
    receive(device_message("add", "/devices/pci0/usb1"));
    receive(node_message("add", path + "/1-1:1.0/event0", "input", "input/event0"));
    EXPECT_EQ(device(0).child_count, 1U);
    EXPECT_EQ(device(1).child_count, 0U);
}

// quirk 109
TEST_F(WebcamOnOpenParser, PrefixesAreComparedByCharacters) {
    receive(node_message("add", "/devices/pci0/usb1/1-10/1-10:1.0/event0", "input", "input/event0"));
    EXPECT_EQ(device(0).child_count, 1U);
}

TEST_F(WebcamOnOpenParser, AMessageCanBeADeviceAndItsNodeAtOnce) {
    receive(uevent_message("add", "/devices/pci1/both",
                           {"DEVTYPE=usb_device", "SUBSYSTEM=input", "DEVNAME=input/event7"}));
    ASSERT_THAT(parser.devices(), SizeIs(2));
    EXPECT_EQ(device(1).child_count, 1U);
    EXPECT_THAT(parser.calls, SizeIs(2));
}

TEST_F(WebcamOnOpenParser, WithoutMemoryANodeIsNotAddedButReported) {
    kernel.fail("norv_zalloc", ENOMEM);
    receive(node_message("add", path + "/event0", "input", "input/event0"));
    EXPECT_EQ(device(0).child_count, 0U);
    EXPECT_EQ(device(0).children.next, &device(0).children);
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(parser.calls[0].device, &device(0));
}

TEST_F(WebcamOnOpenParser, TheRemovalOfANodeChangesNothing) {
    receive(node_message("add", path + "/event0", "input", "input/event0"));
    parser.calls.clear();
    receive(node_message("remove", path + "/event0", "input", "input/event0"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_EQ(device(0).child_count, 1U);
}

TEST_F(WebcamOnOpenParser, ANodeIsReleasedWithItsDevice) {
    receive(node_message("add", path + "/event0", "input", "input/event0"));
    const size_t before = kernel.allocations();
    receive(device_message("remove", path));
    EXPECT_EQ(kernel.allocations(), before - 2);
    EXPECT_THAT(syspaths(), IsEmpty());
}

// ---- removal

// quirk 116
TEST_F(OpenUeventParse, ARemovedDeviceIsReportedWhileItIsListed) {
    receive(device_message("add", "/devices/a"));
    const norv_uevent_device_t* going = &device(0);
    parser.calls.clear();
    uint32_t count = 0;
    bool listed = false;
    parser.on_change = [&](const norv_uevent_device_t* reported) {
        count = parser.list()->count;
        listed = parser.list()->devices.next == &reported->link;
    };
    receive(device_message("remove", "/devices/a"));
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(parser.calls[0].device, going);
    EXPECT_EQ(parser.calls[0].action, NORV_UEVENT_ACTION_REMOVE);
    EXPECT_EQ(count, 1U);
    EXPECT_TRUE(listed);
    EXPECT_EQ(parser.list()->count, 0U);
    EXPECT_THAT(syspaths(), IsEmpty());
}

// quirk 115
TEST_F(OpenUeventParse, RemovingADeviceRemovesTheHubsWhosePathsItContains) {
    receive(device_message("add", "/devices/pci0/usb1"));
    receive(device_message("add", "/devices/pci0/usb1/1-1"));
    receive(device_message("add", "/devices/pci0/usb1/1-2"));
    receive(device_message("add", "/devices/pci0/usb1/1-1/1-1.4"));
    parser.calls.clear();
    receive(device_message("remove", "/devices/pci0/usb1/1-1/1-1.4"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1/1-2"));
    EXPECT_THAT(parser.reported(), ElementsAre("1 /sys/devices/pci0/usb1", "1 /sys/devices/pci0/usb1/1-1",
                                               "1 /sys/devices/pci0/usb1/1-1/1-1.4"));
    EXPECT_EQ(parser.list()->count, 1U);
}

TEST_F(OpenUeventParse, TheDevicesOnAHubAreNotRemovedWithIt) {
    receive(device_message("add", "/devices/pci0/usb1/1-1"));
    receive(device_message("add", "/devices/pci0/usb1/1-1/1-1.4"));
    receive(device_message("remove", "/devices/pci0/usb1/1-1"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1/1-1/1-1.4"));
}

// quirk 115
TEST_F(OpenUeventParse, APathMayBeContainedAnywhere) {
    receive(device_message("add", "/devices/a"));
    receive(device_message("remove", "/elsewhere/devices/abc"));
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(OpenUeventParse, EveryRecordOfTheSamePathIsRemoved) {
    receive(device_message("add", "/devices/a"));
    receive(device_message("add", "/devices/b"));
    receive(device_message("add", "/devices/a"));
    receive(device_message("remove", "/devices/a"));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/b"));
}

TEST_F(OpenUeventParse, TheRemovalOfAnUnlistedDeviceChangesNothing) {
    receive(device_message("add", "/devices/a"));
    parser.calls.clear();
    receive(device_message("remove", "/devices/b"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), SizeIs(1));
}

TEST_F(OpenUeventParse, TheRemovalOfAnInterfaceChangesNothing) {
    receive(device_message("add", "/devices/a"));
    receive(uevent_message("remove", "/devices/a/1-1:1.0", {"DEVTYPE=usb_interface"}));
    receive(uevent_message("remove", "/devices/a", {"SUBSYSTEM=usb"}));
    EXPECT_THAT(syspaths(), SizeIs(1));
}

// ---- locking

TEST_F(OpenUeventParse, TheHandlerOfAnAdditionMayGetTheList) {
    uint32_t count = 0;
    parser.on_change = [&](const norv_uevent_device_t*) {
        const norv_uevent_device_list_t* list = nullptr;
        EXPECT_EQ(norv_uevent_parse_get_device(&parser.context, &list), 0U);
        count = list->count;
    };
    receive(device_message("add", "/devices/a"));
    EXPECT_EQ(count, 1U);
    receive(node_message("add", "/devices/a/event0", "input", "input/event0"));
    receive(node_message("add", "/devices/b/event0", "input", "input/event0"));
    EXPECT_THAT(parser.calls, SizeIs(3));
}

// quirk 116
TEST_F(OpenUeventParse, TheListIsLockedDuringTheHandlerOfARemoval) {
    receive(device_message("add", "/devices/a"));
    std::atomic<bool> got_the_list = false;
    std::thread other;
    parser.on_change = [&](const norv_uevent_device_t*) {
        other = std::thread([&] {
            const norv_uevent_device_list_t* list = nullptr;
            norv_uevent_parse_get_device(&parser.context, &list);
            got_the_list = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(got_the_list);
    };
    receive(device_message("remove", "/devices/a"));
    other.join();
    EXPECT_TRUE(got_the_list);
}

TEST_F(OpenUeventParse, AnotherThreadMaySetTheFilterAndGetTheListDuringAPoll) {
    std::atomic<bool> done = false;
    std::thread other([&] {
        const norv_uevent_device_list_t* list = nullptr;
        while (!done) {
            norv_uevent_parse_set_filter(&parser.context, usb);
            norv_uevent_parse_get_device(&parser.context, &list);
        }
    });
    for (int round = 0; round < 500; ++round) {
        receive(device_message("add", "/devices/a"));
        receive(device_message("remove", "/devices/a"));
    }
    done = true;
    other.join();
    EXPECT_THAT(syspaths(), IsEmpty());
    EXPECT_THAT(parser.calls, SizeIs(1000));
}

// Checks at each locking and unlocking that the list changes only while it is locked.
class LockedUeventParse : public OpenUeventParse {
  protected:
    LockedUeventParse() {
        kernel.add_device("/dev/video0", std::make_shared<video_node>(false));
        receive(device_message("add", "/devices/a"));
        kept = snapshot();
        kernel.on_lock([this](bool taken) {
            locked = taken;
            if (taken) {
                EXPECT_EQ(snapshot(), kept) << "changed before it was locked";
            }
            kept = snapshot();
        });
        parser.on_change = [this](const norv_uevent_device_t*) { calls_with_the_lock.push_back(locked); };
    }
    ~LockedUeventParse() override {
        kernel.on_lock([](bool) {});
        parser.on_change = [](const norv_uevent_device_t*) {};
    }

    // The list after one message.
    std::vector<std::string> list_after(const std::string& message) {
        receive(message);
        EXPECT_FALSE(locked);
        EXPECT_EQ(snapshot(), kept) << "changed after it was unlocked";
        return kept;
    }

    bool locked = false;
    std::vector<std::string> kept;
    std::vector<bool> calls_with_the_lock;

  private:
    std::vector<std::string> snapshot() {
        std::vector<std::string> found = parser.describe();
        found.push_back(std::to_string(parser.list()->count));
        return found;
    }
};

TEST_F(LockedUeventParse, ADeviceIsAppendedUnderTheLockAndReportedWithoutIt) {
    EXPECT_THAT(list_after(device_message("add", "/devices/b")),
                ElementsAre("/sys/devices/a", "/sys/devices/b", "2"));
    EXPECT_THAT(calls_with_the_lock, ElementsAre(false));
}

TEST_F(LockedUeventParse, ANodeIsAppendedUnderTheLockAndReportedWithoutIt) {
    EXPECT_THAT(list_after(node_message("add", "/devices/a/event0", "input", "input/event0")),
                ElementsAre("/sys/devices/a /dev/input/event0", "1"));
    EXPECT_THAT(calls_with_the_lock, ElementsAre(false));
}

TEST_F(LockedUeventParse, ANodeThatIsNotAppendedIsReportedWithoutTheLock) {
    EXPECT_THAT(list_after(node_message("add", "/devices/a/video0", "video4linux", "video0")),
                ElementsAre("/sys/devices/a", "1"));
    EXPECT_THAT(list_after(node_message("add", "/devices/b/event0", "input", "input/event0")),
                ElementsAre("/sys/devices/a", "1"));
    EXPECT_THAT(calls_with_the_lock, ElementsAre(false, false));
}

TEST_F(LockedUeventParse, ADeviceIsRemovedAndReportedUnderTheLock) {
    EXPECT_THAT(list_after(device_message("remove", "/devices/a")), ElementsAre("0"));
    EXPECT_THAT(calls_with_the_lock, ElementsAre(true));
}

TEST_F(LockedUeventParse, AConnectorIsReportedWithoutTheLock) {
    norv_uevent_parse_set_filter(&parser.context, display);
    list_after(uevent_message("change", "/devices/card0", {"DEVTYPE=drm_minor"}));
    EXPECT_THAT(calls_with_the_lock, ElementsAre(false));
}

TEST_F(OpenUeventParse, TheListIsReturnedUnderTheLock) {
    const norv_uevent_device_list_t* list = nullptr;
    std::vector<bool> given;
    kernel.on_lock([&](bool) { given.push_back(list != nullptr); });
    EXPECT_EQ(norv_uevent_parse_get_device(&parser.context, &list), 0U);
    kernel.on_lock([](bool) {});
    EXPECT_THAT(given, ElementsAre(false, true));
}

TEST_F(OpenUeventParse, ClosingReleasesTheListUnderTheLock) {
    receive(device_message("add", "/devices/a"));
    receive(node_message("add", "/devices/a/event0", "input", "input/event0"));
    std::vector<size_t> allocations;
    kernel.on_lock([&](bool) { allocations.push_back(kernel.allocations()); });
    norv_uevent_parse_close(&parser.context);
    EXPECT_THAT(allocations, ElementsAre(4, 1)) << "context, list, device and node; the context";
}

TEST_F(UeventParse, ClosingDestroysTheLockThatOpeningInitialised) {
    kernel.fail("norv_malloc", ENOMEM);
    norv::test::mutex_ends = 0;
    EXPECT_EQ(open(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(norv::test::mutex_ends, 0);
    ASSERT_EQ(open(), 0U);
    norv_uevent_parse_close(&parser.context);
    EXPECT_EQ(norv::test::mutex_ends, 1);
}

// ---- filter and display connectors

std::string connector_message() {
    return uevent_message("change", "/devices/pci0/drm/card0",
                          {"SUBSYSTEM=drm", "HOTPLUG=1", "CONNECTOR=94", "DEVNAME=dri/card0",
                           "DEVTYPE=drm_minor", "MAJOR=226", "MINOR=0"});
}

TEST_F(UeventParse, AChangedConnectorIsReportedWithATemporaryRecord) {
    ASSERT_EQ(open(display), 0U);
    const size_t before = kernel.allocations();
    norv_uevent_device_t seen;
    parser.on_change = [&](const norv_uevent_device_t* reported) {
        seen = *reported;
        EXPECT_EQ(reported->children.next, &reported->children);
    };
    receive(connector_message());
    ASSERT_THAT(parser.calls, SizeIs(1));
    EXPECT_EQ(seen.action, NORV_UEVENT_ACTION_CHANGE);
    EXPECT_EQ(seen.connector, 94);
    EXPECT_EQ(seen.major, 226);
    EXPECT_EQ(seen.minor, 0);
    EXPECT_STREQ(seen.syspath, "/sys/devices/pci0/drm/card0");
    EXPECT_STREQ(seen.subsystem, "drm");
    EXPECT_STREQ(seen.devnode, "/dev/dri/card0");
    EXPECT_STREQ(seen.devtype, "drm_minor");
    EXPECT_EQ(kernel.allocations(), before);
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(UeventParse, AConnectorWithoutANumberIsReportedWithMinusOne) {
    ASSERT_EQ(open(display), 0U);
    int32_t connector = 0;
    parser.on_change = [&](const norv_uevent_device_t* reported) { connector = reported->connector; };
    receive(uevent_message("change", "/devices/pci0/drm/card0", {"DEVTYPE=drm_minor"}));
    EXPECT_EQ(connector, -1);
}

TEST_F(UeventParse, OnlyChangesOfDisplaysAreReported) {
    ASSERT_EQ(open(display), 0U);
    receive(uevent_message("add", "/devices/pci0/drm/card0", {"DEVTYPE=drm_minor"}));
    receive(uevent_message("remove", "/devices/pci0/drm/card0", {"DEVTYPE=drm_minor"}));
    receive(uevent_message("change", "/devices/pci0/drm/card0", {"DEVTYPE=drm_minors"}));
    receive(uevent_message("change", "/devices/pci0/drm/card0", {"DEVTYPE=drm_connector"}));
    receive(uevent_message("change", "/devices/pci0/drm/card0", {"SUBSYSTEM=drm"}));
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(UeventParse, TheDisplayFilterAloneTracksNoUsbDevice) {
    bus.add_root_hub();
    ASSERT_EQ(open(display), 0U);
    receive(device_message("add", "/devices/a"));
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(OpenUeventParse, TheUsbFilterAloneReportsNoDisplay) {
    receive(connector_message());
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(UeventParse, BothFiltersTrackBoth) {
    ASSERT_EQ(open(usb | display), 0U);
    receive(connector_message());
    receive(device_message("add", "/devices/a"));
    EXPECT_THAT(parser.calls, SizeIs(2));
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
}

TEST_F(UeventParse, FilterZeroIgnoresEveryMessageAndEnumeratesNothing) {
    bus.add_root_hub();
    ASSERT_EQ(open(0), 0U);
    receive(device_message("add", "/devices/a"));
    receive(connector_message());
    EXPECT_THAT(parser.calls, IsEmpty());
    EXPECT_THAT(syspaths(), IsEmpty());
    EXPECT_THAT(kernel.calls("opendir"), IsEmpty());
}

TEST_F(UeventParse, OtherBitsOfTheFilterAreIgnored) {
    bus.add_root_hub();
    ASSERT_EQ(open(0xFFFFFFFCU), 0U);
    receive(device_message("add", "/devices/a"));
    receive(connector_message());
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(UeventParse, AFilterIsReplacedFromTheNextMessageOn) {
    ASSERT_EQ(open(0), 0U);
    EXPECT_EQ(norv_uevent_parse_set_filter(&parser.context, usb), parser.context);
    parser.on_change = [&](const norv_uevent_device_t*) { norv_uevent_parse_set_filter(&parser.context, 0); };
    socket.send(device_message("add", "/devices/a"));
    socket.send(device_message("add", "/devices/b"));
    poll();
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/a"));
}

TEST_F(OpenUeventParse, SettingTheFilterAndGettingTheDescriptorTakeNoLock) {
    kernel.fail("norv_mutex_lock", EINVAL);
    norv_uevent_parse_set_filter(&parser.context, display);
    norv_uevent_parse_get_fd(&parser.context);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(UeventParse, SettingTheUsbFilterLaterDoesNotEnumerate) {
    bus.add_root_hub();
    ASSERT_EQ(open(0), 0U);
    norv_uevent_parse_set_filter(&parser.context, usb);
    poll();
    EXPECT_THAT(syspaths(), IsEmpty());
    EXPECT_THAT(kernel.calls("opendir"), IsEmpty());
}

TEST_F(UeventParse, WithoutMemoryAConnectorIsNotReported) {
    ASSERT_EQ(open(display), 0U);
    kernel.fail("norv_zalloc", ENOMEM);
    receive(connector_message());
    EXPECT_THAT(parser.calls, IsEmpty());
}

// ---- what is plugged in at open

TEST_F(UeventParse, OpeningFindsTheDevicesBelowEachRootHub) {
    bus.add_root_hub("usb1");
    bus.add_device("usb1/1-1", "002", "Keyboard");
    bus.add_device("usb1/1-2", "003", "Hub");
    bus.add_device("usb1/1-2/1-2.1", "004", "Webcam");
    bus.add_root_hub("usb2");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1", "/sys/devices/pci0/usb1/1-1",
                                        "/sys/devices/pci0/usb1/1-2", "/sys/devices/pci0/usb1/1-2/1-2.1",
                                        "/sys/devices/pci0/usb2"));
}

TEST_F(UeventParse, AFoundDeviceHasNoActionAndTheSubsystemUsb) {
    bus.add_root_hub();
    bus.add_uevent("usb1/1-1",
                   lines({"MAJOR=189", "MINOR=7", "DEVNAME=bus/usb/001/008", "DEVTYPE=usb_device",
                          "DRIVER=usb", "PRODUCT=46d/825/12", "TYPE=239/2/1", "BUSNUM=001", "DEVNUM=008"}));
    kernel.add_file("/sys/devices/pci0/usb1/1-1/product", "Webcam\n");
    ASSERT_EQ(open(), 0U);
    ASSERT_THAT(parser.devices(), SizeIs(2));
    EXPECT_EQ(device(1).action, NORV_UEVENT_ACTION_NONE);
    EXPECT_EQ(device(1).major, 189);
    EXPECT_EQ(device(1).minor, 7);
    EXPECT_EQ(device(1).connector, -1);
    EXPECT_STREQ(device(1).syspath, "/sys/devices/pci0/usb1/1-1");
    EXPECT_STREQ(device(1).subsystem, "usb");
    EXPECT_STREQ(device(1).devnode, "/dev/bus/usb/001/008");
    EXPECT_STREQ(device(1).devtype, "usb_device");
    EXPECT_STREQ(device(1).product, "46d/825/12");
    EXPECT_STREQ(device(1).product_name, "Webcam");
}

TEST_F(UeventParse, EachFoundDeviceAndNodeIsReportedInOrder) {
    bus.add_root_hub();
    bus.add_device("usb1/1-1", "002", "Keyboard");
    bus.add_node("usb1/1-1/1-1:1.0/input/input3/event3", "input/event3");
    ASSERT_EQ(open(), 0U);
    // The root hub is the first whose path is a prefix of the node's.
    EXPECT_THAT(parser.reported(), ElementsAre("-1 /sys/devices/pci0/usb1", "-1 /sys/devices/pci0/usb1/1-1",
                                               "-1 /sys/devices/pci0/usb1"));
}

// A device without its root hub: the hub has no "uevent" file.
class UeventParseFoundDevice : public UeventParse {
  protected:
    UeventParseFoundDevice() {
        bus.add_bus_entry("usb1", "usb1");
        bus.add_device("usb1/1-1", "002", "Thing");
    }
    std::string child_subsystem() {
        const norv_uevent_device_t& found = device(0);
        return found.child_count == 0
                   ? "none"
                   : reinterpret_cast<const norv_uevent_child_t*>(found.children.next)->subsystem;
    }
    const norv_uevent_child_t& child() {
        return *reinterpret_cast<const norv_uevent_child_t*>(device(0).children.next);
    }
};

TEST_F(UeventParseFoundDevice, AnInputNodeBecomesItsChild) {
    bus.add_node("usb1/1-1/1-1:1.0/input/input3/event3", "input/event3", "13", "67");
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_EQ(child().major, 13U);
    EXPECT_EQ(child().minor, 67U);
    EXPECT_STREQ(child().syspath, "/sys/devices/pci0/usb1/1-1/1-1:1.0/input/input3/event3");
    EXPECT_STREQ(child().subsystem, "input");
    EXPECT_STREQ(child().devnode, "/dev/input/event3");
    EXPECT_STREQ(child().parent_product_name, "Thing");
}

TEST_F(UeventParseFoundDevice, ASoundNodeBecomesItsChild) {
    bus.add_node("usb1/1-1/1-1:1.0/sound/card1/controlC1", "snd/controlC1");
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "sound");
}

TEST_F(UeventParseFoundDevice, AVideoNodeThatCapturesBecomesItsChild) {
    kernel.add_device("/dev/video0", std::make_shared<video_node>(true));
    bus.add_node("usb1/1-1/1-1:1.0/video4linux/video0", "video0");
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "video4linux");
}

TEST_F(UeventParseFoundDevice, AVideoNodeThatCannotCaptureAddsNothing) {
    kernel.add_device("/dev/video0", std::make_shared<video_node>(false));
    bus.add_node("usb1/1-1/1-1:1.0/video4linux/video0", "video0");
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "none");
}

TEST_F(UeventParseFoundDevice, ANameWithInputAndVideoIsAnInput) {
    bus.add_node("usb1/1-1/node", "video/snd/input0");
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "input");
}

TEST_F(UeventParseFoundDevice, ANameWithVideoAndSndIsAVideoNode) {
    bus.add_node("usb1/1-1/node", "snd/video0");
    kernel.add_device("/dev/snd/video0", std::make_shared<video_node>(true));
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "video4linux");
}

// quirk 111
TEST_F(UeventParseFoundDevice, AnyOtherNodeBecomesItsChildWithoutASubsystem) {
    bus.add_node("usb1/1-1/1-1:1.0/tty/ttyUSB0", "ttyUSB0", "188", "0");
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_EQ(child().major, 188U);
    EXPECT_EQ(child().minor, 0U);
    EXPECT_STREQ(child().syspath, "/sys/devices/pci0/usb1/1-1/1-1:1.0/tty/ttyUSB0");
    EXPECT_STREQ(child().subsystem, "");
    EXPECT_STREQ(child().devnode, "/dev/ttyUSB0");
    EXPECT_THAT(parser.reported(),
                ElementsAre("-1 /sys/devices/pci0/usb1/1-1", "-1 /sys/devices/pci0/usb1/1-1"));
}

// quirk 111
TEST_F(UeventParseFoundDevice, AnyOtherNodeHasTheSubsystemOfItsFile) {
    bus.add_uevent("usb1/1-1/1-1:1.0/tty/ttyUSB0", lines({"DEVNAME=ttyUSB0", "SUBSYSTEM=tty"}));
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(child_subsystem(), "tty");
}

TEST_F(UeventParseFoundDevice, ANodeThatItsFileCallsAVideoNodeMustCapture) {
    kernel.add_device("/dev/camera0", std::make_shared<video_node>(false));
    kernel.add_device("/dev/camera1", std::make_shared<video_node>(true));
    bus.add_uevent("usb1/1-1/1-1:1.0/camera0", lines({"DEVNAME=camera0", "SUBSYSTEM=video4linux"}));
    bus.add_uevent("usb1/1-1/1-1:1.0/camera1", lines({"DEVNAME=camera1", "SUBSYSTEM=video4linux"}));
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_STREQ(child().devnode, "/dev/camera1");
}

// quirk 111
TEST_F(UeventParseFoundDevice, AnyOtherNodeThatComesFirstLeavesNoRoomForAnInput) {
    bus.add_node("usb1/1-1/1-1:1.0/hidraw/hidraw0", "hidraw0");
    bus.add_node("usb1/1-1/1-1:1.0/input/input3/event3", "input/event3");
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_STREQ(child().devnode, "/dev/hidraw0");
}

TEST_F(UeventParseFoundDevice, AFileWithoutAValueForTheNameIsANodeToo) {
    bus.add_uevent("usb1/1-1/1-1:1.0/odd", lines({"XDEVNAME", "MAJOR=7"}));
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(device(0).child_count, 1U);
    EXPECT_STREQ(child().devnode, "/dev/");
    EXPECT_EQ(child().major, 7U);
}

TEST_F(UeventParse, ANodeFoundBeforeItsDeviceIsReportedWithTheListsHead) {
    bus.add_bus_entry("usb1", "usb1");
    bus.add_node("usb1/1-1/1-1:1.0/input/input3/event3", "input/event3");
    bus.add_device("usb1/1-1", "002", "Keyboard");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(parser.reported(), ElementsAre("head", "-1 /sys/devices/pci0/usb1/1-1"));
    EXPECT_EQ(device(0).child_count, 0U);
}

TEST_F(UeventParse, WithoutAUsbBusNothingIsFound) {
    kernel.remove("/sys/bus");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), IsEmpty());
}

TEST_F(UeventParse, OnlyEntriesOfTheBusWithUsbInTheirNamesAreWalked) {
    bus.add_device("usb1/1-1", "002", "Keyboard");
    bus.add_bus_entry("1-1", "usb1/1-1");
    bus.add_bus_entry("2-0:1.0", "usb1/1-1");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), IsEmpty());
    norv_uevent_parse_close(&parser.context);
    bus.add_bus_entry("my-usb-hub", "usb1/1-1");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), SizeIs(1));
}

TEST_F(UeventParse, AnEntryThatLeadsNowhereIsSkipped) {
    bus.add_bus_entry("usb1", "gone");
    bus.add_root_hub("usb2");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb2"));
}

TEST_F(UeventParse, AnEntryMayHaveALongTarget) {
    std::string way;
    while (way.size() < 1000) {
        way += "usb/../";
    }
    kernel.add_link("/sys/bus/usb/devices/usb1", "../../../bus/" + way + "../devices/pci0/usb1");
    bus.add_device("usb1", "001", "Host Controller");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1"));
}

TEST_F(UeventParse, AnEntryThatIsNotALinkLeadsToTheBusItself) {
    kernel.add_file("/sys/bus/usb/devices/usb1/uevent", lines({"DEVTYPE=usb_device", "DEVNAME=x"}));
    kernel.add_file("/sys/bus/usb/devices/1-1/uevent", lines({"DEVTYPE=usb_device", "DEVNAME=y"}));
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/usb1", "/sys/devices/1-1"));
}

TEST_F(UeventParse, AnEntryWhoseTargetCannotBeReadLeadsToTheBusItself) {
    bus.add_root_hub();
    kernel.fail("readlink", EIO);
    ASSERT_EQ(open(), 0U);
    EXPECT_TRUE(kernel.struck());
    EXPECT_THAT(syspaths(), IsEmpty()) << "the bus holds links, which are not followed";
}

TEST_F(UeventParse, ADirectoryOutsideTheDevicesIsSkipped) {
    kernel.add_link("/sys/bus/usb/devices/usb1", "../../../elsewhere/usb1");
    kernel.add_file("/sys/elsewhere/usb1/uevent", lines({"DEVTYPE=usb_device", "DEVNAME=x"}));
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(parser.calls, IsEmpty());
}

TEST_F(UeventParse, LinksInsideTheTreeAreNotFollowed) {
    bus.add_root_hub();
    bus.add_device("elsewhere/1-9", "009", "Other");
    kernel.add_link("/sys/devices/pci0/usb1/link", "../elsewhere");
    kernel.add_link("/sys/devices/pci0/usb1/1-1/uevent", "../uevent");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1"));
}

TEST_F(UeventParse, OnlyRegularFilesNamedUeventAreRead) {
    bus.add_root_hub();
    const std::string device = lines({"DEVTYPE=usb_device", "DEVNAME=x"});
    kernel.add_file("/sys/devices/pci0/usb1/a/uevents", device);
    kernel.add_file("/sys/devices/pci0/usb1/a/ueven", device);
    kernel.add_directory("/sys/devices/pci0/usb1/b/uevent");
    kernel.add_directory("/sys/devices/pci0/usb1/c");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), SizeIs(1));
}

TEST_F(UeventParse, ADirectoryNamedUeventIsWalked) {
    bus.add_bus_entry("usb1", "usb1");
    bus.add_device("usb1/uevent", "002", "Odd");
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1/uevent"));
}

class UeventFile : public UeventParse {
  protected:
    // What opening finds if this is the content of a root hub's file.
    std::vector<std::string> found(const std::string& content, uint32_t buffer_size = 4096) {
        bus.add_bus_entry("usb1", "usb1");
        bus.add_uevent("usb1", content);
        EXPECT_EQ(open(usb, buffer_size), 0U);
        return syspaths();
    }
};

TEST_F(UeventFile, WithoutADeviceNameIsNotUsed) {
    EXPECT_THAT(found("DEVTYPE=usb_device\nMAJOR=189\n"), IsEmpty());
}

// quirk 112
TEST_F(UeventFile, WithADeviceTreeNodeIsNotUsed) {
    EXPECT_THAT(found("DEVTYPE=usb_device\nDEVNAME=x\nOF_NAME=usb\n"), IsEmpty());
}

TEST_F(UeventFile, ThatIsEmptyIsNotUsed) {
    EXPECT_THAT(found(""), IsEmpty());
}

TEST_F(UeventFile, MayLackItsLastNewline) {
    EXPECT_THAT(found("DEVNAME=x\nDEVTYPE=usb_device"), SizeIs(1));
}

TEST_F(UeventFile, MayHoldEmptyLines) {
    EXPECT_THAT(found("\n\nDEVNAME=x\n\n\nMAJOR=7\n\nDEVTYPE=usb_device\n\n\n"), SizeIs(1));
    EXPECT_EQ(device(0).major, 7);
}

TEST_F(UeventFile, EndsAtANul) {
    EXPECT_THAT(found("DEVNAME=x\nDEVTYPE=usb_device\n\0MAJOR=7\n"s), SizeIs(1));
    EXPECT_EQ(device(0).major, -1);
}

TEST_F(UeventFile, LongerThanTheBufferIsTruncated) {
    const std::string kept = "DEVNAME=x\nDEVTYPE=usb_device\nMAJOR=18";
    EXPECT_THAT(found(kept + "9\nMINOR=5\n", static_cast<uint32_t>(kept.size())), SizeIs(1));
    EXPECT_EQ(device(0).major, 18);
    EXPECT_EQ(device(0).minor, -1);
}

TEST_F(UeventFile, Of70000BytesIsParsedToItsEnd) {
    std::string content = "DEVNAME=x\nDEVTYPE=usb_device\n";
    while (content.size() < 70'000) {
        content += "FILLING=" + std::string(100, 'f') + "\n";
    }
    EXPECT_THAT(found(content + "MAJOR=7\n", 100'000), SizeIs(1));
    EXPECT_EQ(device(0).major, 7);
}

TEST_F(UeventFile, OfOneLineWithoutSeparatorsIsHarmless) {
    EXPECT_THAT(found("DEVNAME=" + std::string(10'000, 'x')), IsEmpty());
}

TEST_F(UeventFile, DoesNotSetTheActionThePathOrTheSubsystem) {
    EXPECT_THAT(found("ACTION=remove\nDEVPATH=/elsewhere\nSUBSYSTEM=other\nDEVNAME=x\nDEVTYPE=usb_device\n"),
                ElementsAre("/sys/devices/pci0/usb1"));
    EXPECT_EQ(device(0).action, NORV_UEVENT_ACTION_NONE);
    EXPECT_STREQ(device(0).subsystem, "usb");
}

TEST_F(UeventFile, OfADeviceWithoutAValueForTheNameHasNoNode) {
    EXPECT_THAT(found("XDEVNAME\nDEVTYPE=usb_device\n"), SizeIs(1));
    EXPECT_STREQ(device(0).devnode, "/dev/");
}

TEST_F(UeventFile, ThatCannotBeOpenedIsSkipped) {
    kernel.fail("open", EACCES);
    EXPECT_THAT(found("DEVNAME=x\nDEVTYPE=usb_device\n"), IsEmpty());
}

TEST_F(UeventFile, ThatCannotBeReadIsSkippedAndClosed) {
    kernel.fail("read", EIO);
    EXPECT_THAT(found("DEVNAME=x\nDEVTYPE=usb_device\n"), IsEmpty());
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(UeventParse, AnUnreadableUeventFileIsNotTakenForThePreviousOne) {
    bus.add_bus_entry("usb1", "usb1");
    bus.add_uevent("usb1", "DEVTYPE=usb_device\nDEVNAME=x\n");
    bus.add_device("usb1/1-1", "002", "Keyboard");
    kernel.fail({.call = "read", .path = "/sys/devices/pci0/usb1/1-1/uevent", .error = EIO});
    ASSERT_EQ(open(), 0U);
    EXPECT_TRUE(kernel.struck());
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb1"));
}

TEST_F(UeventFile, IsReadOnceWithTheBuffersSize) {
    EXPECT_THAT(found("DEVNAME=x\nDEVTYPE=usb_device\n"), SizeIs(1));
    EXPECT_THAT(kernel.open_flags("/sys/devices/pci0/usb1/uevent"), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(UeventParse, ADirectoryThatCannotBeOpenedIsSkipped) {
    bus.add_root_hub("usb1");
    bus.add_root_hub("usb2");
    kernel.fail({.call = "opendir", .path = "/sys/devices/pci0/usb1", .error = EACCES});
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), ElementsAre("/sys/devices/pci0/usb2"));
}

// A directory of sysfs whose path has the given number of characters, made level by level: its path in the
// scratch tree may be longer than the kernel accepts.
class deep_directory {
  public:
    deep_directory(const std::string& top, size_t size) : path_(top) {
        levels_.push_back({top, norv::file::adopt(::open(top.c_str(), O_DIRECTORY | O_CLOEXEC)).value()});
        while (path_.size() < size) {
            const size_t left = size - path_.size() - 1;
            // One character must not be left: it would be the slash, without a name.
            enter(std::string(left > 201 ? 200 : left, 'd'));
        }
    }
    ~deep_directory() {
        while (levels_.size() > 1) {
            const std::string name = levels_.back().name;
            levels_.pop_back();
            unlinkat(descriptor(), name.c_str(), AT_REMOVEDIR);
        }
    }
    deep_directory(const deep_directory&) = delete;
    deep_directory& operator=(const deep_directory&) = delete;

    const std::string& path() const { return path_; }
    int descriptor() const { return levels_.back().file.descriptor(); }

  private:
    struct level {
        std::string name;
        norv::file file;
    };

    void enter(const std::string& name) {
        EXPECT_EQ(mkdirat(descriptor(), name.c_str(), 0700), 0);
        const int entered = openat(descriptor(), name.c_str(), O_DIRECTORY | O_CLOEXEC);
        levels_.push_back({name, norv::file::adopt(entered).value()});
        path_ += "/" + name;
    }

    std::string path_;
    std::vector<level> levels_;
};

TEST_F(UeventParse, APathOf4095CharactersIsWalkedAndALongerOneSkipped) {
    bus.add_root_hub();
    const deep_directory deep(bus.place("usb1"), 3900);
    const std::string fits(194, 'f');
    const std::string longer(195, 'l');
    ASSERT_EQ(mkdirat(deep.descriptor(), fits.c_str(), 0700), 0);
    ASSERT_EQ(mkdirat(deep.descriptor(), longer.c_str(), 0700), 0);
    ASSERT_EQ(open(), 0U);
    EXPECT_THAT(syspaths(), SizeIs(1));
    std::vector<std::string> walked;
    for (const auto& call : kernel.calls("opendir")) {
        walked.push_back(call.path);
    }
    EXPECT_THAT(walked, Contains(deep.path() + "/" + fits));
    EXPECT_THAT(walked, Not(Contains(StartsWith(deep.path() + "/l")))) << "truncated or not";
    unlinkat(deep.descriptor(), fits.c_str(), AT_REMOVEDIR);
    unlinkat(deep.descriptor(), longer.c_str(), AT_REMOVEDIR);
}

// ---- video nodes

class V4l2 : public testing::Test {
  protected:
    uint32_t check(bool can_capture) {
        node = std::make_shared<video_node>(can_capture);
        kernel.add_device("/dev/video0", node);
        return _v4l2_check_valid("/dev/video0");
    }
    kernel_double kernel;
    std::shared_ptr<video_node> node;
};

TEST_F(V4l2, ANodeThatCapturesIsValid) {
    EXPECT_EQ(check(true), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 120
TEST_F(V4l2, TheNodeIsOpenedNonBlockingAndWithoutCloseOnExec) {
    check(true);
    EXPECT_THAT(kernel.open_flags("/dev/video0"), ElementsAre(O_RDWR | O_NONBLOCK));
}

TEST_F(V4l2, TheFirstCaptureFormatIsRequested) {
    check(true);
    v4l2_fmtdesc expected = {};
    expected.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(memcmp(&node->asked, &expected, sizeof expected), 0);
}

// quirk 120
TEST_F(V4l2, ANodeThatCannotCaptureHasTheStatusOfMinusOne) {
    EXPECT_EQ(check(false), errno_status(-1));
    EXPECT_NE(errno_status(-1), 0U);
    EXPECT_NE(errno_status(-1), errno_status(EINVAL));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(V4l2, ANodeThatCannotCaptureIsValidIfMinusOneMapsToZero) {
    kernel.map_errno(-1, 0);
    EXPECT_EQ(check(false), 0U);
}

TEST_F(V4l2, ANodeThatCannotBeOpenedIsADeviceError) {
    EXPECT_EQ(_v4l2_check_valid("/dev/video9"), NORV_STATUS_DEVICE_ERROR);
    kernel.fail("open", EBUSY);
    EXPECT_EQ(check(true), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(V4l2, ANodeWithDescriptor0IsCheckedAndClosed) {
    const no_standard_input guard;
    EXPECT_EQ(check(true), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(V4l2, ANullPathIsAnInvalidArgument) {
    EXPECT_EQ(_v4l2_check_valid(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failures

uint32_t open_follow_and_close() {
    recorder parser;
    uint32_t status = parser.open(usb | display, 4096);
    if (status == NORV_STATUS_OK) {
        status = norv_uevent_parse_poll(&parser.context);
    }
    norv_uevent_parse_close(&parser.context);
    return status;
}

void build_busy_bus(kernel_double& kernel) {
    uevent_socket socket(kernel);
    usb_bus bus(kernel);
    bus.add_root_hub();
    bus.add_device("usb1/1-1", "002", "Keyboard");
    bus.add_node("usb1/1-1/1-1:1.0/input/input3/event3", "input/event3");
    kernel.add_device("/dev/video0", std::make_shared<video_node>(true));
    socket.send(device_message("add", "/devices/pci1/usb2/2-1"));
    socket.send(node_message("add", "/devices/pci1/usb2/2-1/video0", "video4linux", "video0"));
    socket.send(connector_message());
    socket.send(device_message("remove", "/devices/pci1/usb2/2-1"));
}

TEST(UeventParseSweep, NothingLeaksAndOnlyWhatOpenNeedsIsReported) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) -> uint32_t {
        if (struck.how == fault::kind::short_count) {
            return NORV_STATUS_OK;
        }
        // The context and the list are allocated first, with the buffer and the mutex. Later failures are ignored.
        if ((struck.name == "norv_zalloc" && struck.nth <= 2) ||
            (struck.name == "norv_malloc" && struck.nth == 1) || struck.name == "norv_mutex_init") {
            return NORV_STATUS_NO_MEMORY;
        }
        return struck.name == "socket" || struck.name == "bind" ? errno_status(struck.error) : NORV_STATUS_OK;
    };
    EXPECT_GT(norv::test::failure_sweep(build_busy_bus, open_follow_and_close, options), 100);
}

}  // namespace
