// SPDX-License-Identifier: MIT
// Devices, terminals, sockets and descriptors of the kernel double.
#include "support/kernel_double.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using norv::test::address_binding;
using norv::test::descriptor_control;
using norv::test::device;
using norv::test::kernel_double;
using norv::test::option_setting;
using norv::test::socket_making;
using norv::test::unmapping;
using testing::ElementsAre;

// A device with one register, read and written by ioctl, and a page of memory.
class register_device : public device {
  public:
    int value = 0;
    int opened = 0;
    int closed = 0;
    alignas(4096) std::array<char, 4096> memory = {};

    long open(int) override { return ++opened; }
    void close() override { ++closed; }
    long ioctl(unsigned long request, void* argument) override {
        if (request != 1) {
            return -ENOTTY;
        }
        value = *static_cast<int*>(argument);
        return 0;
    }
    intptr_t map(size_t, int, int, off_t) override { return reinterpret_cast<intptr_t>(memory.data()); }
};

// A device that remembers where it was written.
class offset_device : public device {
  public:
    off_t written_at = -1;

    long write(const void*, size_t size, off_t offset) override {
        written_at = offset;
        return static_cast<long>(size);
    }
};

TEST(DoubleDevices, ADeviceModelAnswersItsNode) {
    kernel_double kernel;
    const auto model = std::make_shared<register_device>();
    kernel.add_device("/dev/register", model);
    const int descriptor = open("/dev/register", O_RDWR);
    int value = 42;
    EXPECT_EQ(ioctl(descriptor, 1, &value), 0);
    EXPECT_EQ(model->value, 42);
    EXPECT_EQ(ioctl(descriptor, 2, &value), -1);
    EXPECT_EQ(errno, ENOTTY);
    void* memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    EXPECT_EQ(memory, model->memory.data());
    EXPECT_EQ(munmap(memory, 4096), 0);
    close(descriptor);
    EXPECT_EQ(model->opened, 1);
    EXPECT_EQ(model->closed, 1);
}

TEST(DoubleDevices, AModelIsWrittenAtTheOffset) {
    kernel_double kernel;
    const auto model = std::make_shared<offset_device>();
    kernel.add_device("/dev/offset", model);
    const int descriptor = open("/dev/offset", O_RDWR);
    EXPECT_EQ(pwrite(descriptor, "xy", 2, 40), 2);
    EXPECT_EQ(model->written_at, 40);
    close(descriptor);
}

TEST(DoubleDevices, ADescriptorThatADriverHandsOutIsAnsweredByItsModel) {
    kernel_double kernel;
    const auto model = std::make_shared<register_device>();
    const int descriptor = kernel.hand_out("register of the driver", model);
    int value = 42;
    EXPECT_EQ(ioctl(descriptor, 1, &value), 0);
    EXPECT_EQ(model->value, 42);
    EXPECT_EQ(kernel.calls("ioctl").back().path, "register of the driver");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(descriptor);
    EXPECT_EQ(model->closed, 1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(DoubleDevices, UnmappingFailsOnlyWhenNamedAndKeepsTheMapping) {
    kernel_double kernel;
    const int descriptor = kernel.hand_out("register", std::make_shared<register_device>());
    void* memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
    kernel.fail("munmap", EINVAL);
    EXPECT_EQ(munmap(memory, 4096), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(kernel.mappings(), 1U);
    kernel.fail("", EINVAL);
    EXPECT_EQ(munmap(memory, 4096), 0);
    EXPECT_EQ(kernel.mappings(), 0U);
    EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, 4096U);
    close(descriptor);
}

TEST(DoubleDevices, TheSizeOfAnUnmappingIsJournalled) {
    kernel_double kernel;
    kernel.add_device("/dev/register", std::make_shared<register_device>());
    const int descriptor = open("/dev/register", O_RDWR);
    void* memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
    EXPECT_EQ(munmap(memory, 4096), 0);
    EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, 4096U);
    close(descriptor);
}

// A terminal whose settings can be read and written.
class terminal : public device {
  public:
    termios settings = {};
    std::vector<unsigned long> requests;

    long ioctl(unsigned long request, void* argument) override {
        requests.push_back(request);
        if (request == TCGETS) {
            *static_cast<termios*>(argument) = settings;
        } else if (request == TCSETSW) {
            settings = *static_cast<const termios*>(argument);
        } else {
            return request == TCFLSH && argument == reinterpret_cast<void*>(TCOFLUSH) ? 0 : -ENOTTY;
        }
        return 0;
    }
};

TEST(DoubleDevices, ATerminalModelGetsTheTerminalCallsAsTheirIoctls) {
    kernel_double kernel;
    const auto model = std::make_shared<terminal>();
    kernel.add_device("/dev/ttyS9", model);
    const int descriptor = open("/dev/ttyS9", O_RDWR);
    EXPECT_EQ(isatty(descriptor), 1);
    termios settings = {};
    settings.c_cflag = CLOCAL;
    EXPECT_EQ(tcsetattr(descriptor, TCSADRAIN, &settings), 0);
    settings = {};
    EXPECT_EQ(tcgetattr(descriptor, &settings), 0);
    EXPECT_EQ(settings.c_cflag, static_cast<tcflag_t>(CLOCAL));
    EXPECT_EQ(tcflush(descriptor, TCOFLUSH), 0);
    EXPECT_THAT(model->requests, ElementsAre(TCGETS, TCSETSW, TCGETS, TCFLSH));
    close(descriptor);
}

TEST(DoubleDevices, AnInputSpeedOfZeroIsNotInTheFlagsThatATerminalGets) {
    kernel_double kernel;
    const auto model = std::make_shared<terminal>();
    kernel.add_device("/dev/ttyS9", model);
    const int descriptor = open("/dev/ttyS9", O_RDWR);
    termios settings = {};
    cfsetispeed(&settings, B0);
    EXPECT_EQ(tcsetattr(descriptor, TCSADRAIN, &settings), 0);
    EXPECT_EQ(model->settings.c_iflag, 0U);
    close(descriptor);
}

TEST(DoubleDevices, AFileThatIsNotATerminalSaysSo) {
    kernel_double kernel;
    kernel.add_file("/dev/file");
    kernel.add_device("/dev/device", std::make_shared<device>());
    for (const char* path : {"/dev/file", "/dev/device"}) {
        const int descriptor = open(path, O_RDWR);
        EXPECT_EQ(isatty(descriptor), 0);
        EXPECT_EQ(errno, ENOTTY);
        close(descriptor);
    }
}

// A socket that takes one address and one option.
class plain_socket : public device {
  public:
    long bind(const void*, size_t size) override { return size == 2 ? 0 : -EADDRINUSE; }
    long set_option(int level, int name, const void*, size_t) override {
        return level == 1 && name == 2 ? 0 : -ENOPROTOOPT;
    }
    long receive(void* buffer, size_t size, int) override {
        return static_cast<long>("message"s.copy(static_cast<char*>(buffer), size));
    }
};

TEST(DoubleDevices, ASocketOfAnAddedFamilyIsAnsweredByItsModel) {
    kernel_double kernel;
    kernel.add_socket_family(AF_CAN, [](int, int) { return std::make_shared<plain_socket>(); });
    const int descriptor = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, 1);
    sockaddr address = {};
    EXPECT_EQ(bind(descriptor, &address, 2), 0);
    EXPECT_EQ(bind(descriptor, &address, 3), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(setsockopt(descriptor, 1, 2, "value", 5), 0);
    EXPECT_EQ(setsockopt(descriptor, 1, 3, "value", 5), -1);
    EXPECT_EQ(errno, ENOPROTOOPT);
    char message[4] = {};
    EXPECT_EQ(recv(descriptor, message, sizeof message, 0), 4);
    EXPECT_EQ(std::string(message, 4), "mess");
    close(descriptor);
    EXPECT_EQ(kernel.calls("socket").at(0).as<socket_making>().type, SOCK_RAW | SOCK_CLOEXEC);
    EXPECT_EQ(kernel.calls("bind").at(0).as<address_binding>().address.size(), 2U);
    EXPECT_EQ(kernel.calls("setsockopt").at(0).as<option_setting>().value, "value");
}

TEST(DoubleDevices, SocketsOfOtherFamiliesAreTheRealKernelsButCanFail) {
    kernel_double kernel;
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    const sockaddr_un unnamed = {AF_UNIX, ""};
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&unnamed), sizeof(sa_family_t)), 0);
    const int yes = 1;
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes), 0);
    EXPECT_EQ(recv(descriptor, nullptr, 0, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
    kernel.fail("bind", EACCES);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&unnamed), sizeof(sa_family_t)), -1);
    EXPECT_EQ(errno, EACCES);
    close(descriptor);
}

TEST(DoubleDevices, ADescriptorsFlagsAreTheRealKernels) {
    kernel_double kernel;
    kernel.add_device("/dev/device", std::make_shared<device>());
    const int descriptor = open("/dev/device", O_RDWR);
    EXPECT_EQ(fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(kernel.calls("fcntl").at(0).as<descriptor_control>().command, F_SETFL);
    EXPECT_EQ(kernel.calls("fcntl").at(0).as<descriptor_control>().argument, O_NONBLOCK);
    close(descriptor);
}

}  // namespace
