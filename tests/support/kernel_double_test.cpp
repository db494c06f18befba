// SPDX-License-Identifier: MIT
// The kernel double and the failure sweep: what every other unit test stands on.
#include "support/kernel_double.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "norv_base.h"
#include "norv_file.h"
#include "support/failure_sweep.hpp"
#include "support/fortified_calls.hpp"

namespace {

using namespace std::string_literals;
using norv::test::address_binding;
using norv::test::byte_transfer_at;
using norv::test::descriptor_control;
using norv::test::device;
using norv::test::directory_making;
using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::option_setting;
using norv::test::program_start;
using norv::test::socket_making;
using norv::test::strike;
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

TEST(KernelDouble, PathsOfTheBoardLeadIntoTheScratchTree) {
    kernel_double kernel;
    kernel.add_file("/proc/uptime", "12.5 3.0\n");
    char text[16] = {};
    uint32_t length = sizeof text;
    EXPECT_EQ(norv_read_device(text, &length, "/proc/uptime"), 0U);
    EXPECT_STREQ(text, "12.5 3.0\n");
    EXPECT_EQ(access("/dev/null", F_OK), -1);
}

TEST(KernelDouble, TheRealFilesComeBackWhenItEnds) {
    { const kernel_double kernel; }
    EXPECT_EQ(access("/dev/null", F_OK), 0);
}

TEST(KernelDouble, AnAttributeTakesEachWriteAsItsWholeValue) {
    kernel_double kernel;
    kernel.add_file("/sys/attribute", "long content");
    uint32_t length = 2;
    norv_write_device("1", &length, "/sys/attribute");
    EXPECT_EQ(kernel.content("/sys/attribute"), "1");
    EXPECT_THAT(kernel.writes("/sys/attribute"), ElementsAre("1\0"s));
}

TEST(KernelDouble, ADirectoryThatIsMadeIsFilledAsInConfigfsAndGoesWithItsFiles) {
    kernel_double kernel;
    kernel.on_make_directory("/sys/kernel/config/items",
                             [&](const std::string& path) { kernel.add_file(path + "/status", "new"); });
    EXPECT_EQ(mkdir("/sys/kernel/config/items/one", 0755), 0);
    EXPECT_EQ(kernel.content("/sys/kernel/config/items/one/status"), "new");
    EXPECT_EQ(kernel.calls("mkdir").front().as<directory_making>().mode, 0755U);
    EXPECT_EQ(rmdir("/sys/kernel/config/items/one"), 0);
    EXPECT_FALSE(kernel.exists("/sys/kernel/config/items/one"));
    EXPECT_EQ(rmdir("/sys/kernel/config/items/one"), -1);
}

TEST(KernelDouble, ADirectoryThatNobodyFillsStaysAsItIs) {
    kernel_double kernel;
    kernel.add_file("/dev/full/file");
    EXPECT_EQ(mkdir("/dev/empty", 0755), 0);
    EXPECT_EQ(rmdir("/dev/empty"), 0);
    EXPECT_EQ(rmdir("/dev/full"), -1);
    EXPECT_TRUE(kernel.exists("/dev/full/file"));
}

int format(char* text, size_t size, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(text, size, format, values);
    va_end(values);
    return length;
}

TEST(KernelDouble, FormattingFailsOnlyForATestThatNamesIt) {
    kernel_double kernel;
    char text[8];
    const std::string word = "ab";
    kernel.fail("", EIO);
    EXPECT_EQ(format(text, sizeof text, "%s", word.c_str()), 2);
    kernel.fail("vsnprintf", EOVERFLOW);
    EXPECT_EQ(format(text, sizeof text, "%s", word.c_str()), -1);
}

TEST(KernelDouble, AReactionCanRefuseAWrite) {
    kernel_double kernel;
    kernel.add_file("/sys/attribute", "old");
    kernel.on_write("/sys/attribute", [](std::string_view) { return EBUSY; });
    uint32_t length = 2;
    EXPECT_EQ(norv_write_device("1", &length, "/sys/attribute"), norv_get_status_by_errno(EBUSY));
    EXPECT_EQ(kernel.content("/sys/attribute"), "old");
}

TEST(KernelDouble, ADeviceModelAnswersItsNode) {
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

TEST(KernelDouble, ADescriptorThatADriverHandsOutIsItsModels) {
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

TEST(KernelDouble, UnmappingFailsOnlyForATestThatNamesItAndKeepsTheMapping) {
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

TEST(KernelDouble, ATerminalModelGetsTheTerminalCallsAsTheirIoctls) {
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

TEST(KernelDouble, AnInputSpeedOfZeroLeavesNoTraceInTheFlagsThatATerminalGets) {
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

TEST(KernelDouble, AFileThatIsNoTerminalAnswersSo) {
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

TEST(KernelDouble, ASocketOfAnAddedFamilyIsAnsweredByItsModel) {
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

TEST(KernelDouble, SocketsOfOtherFamiliesAreTheRealKernelsButCanFail) {
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

TEST(KernelDouble, ADescriptorsFlagsAreTheRealKernels) {
    kernel_double kernel;
    kernel.add_device("/dev/device", std::make_shared<device>());
    const int descriptor = open("/dev/device", O_RDWR);
    EXPECT_EQ(fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(kernel.calls("fcntl").at(0).as<descriptor_control>().command, F_SETFL);
    EXPECT_EQ(kernel.calls("fcntl").at(0).as<descriptor_control>().argument, O_NONBLOCK);
    close(descriptor);
}

TEST(KernelDouble, AnUnlockFailsOnlyForATestThatNamesItAndStillUnlocks) {
    kernel_double kernel;
    norv_mutex_t mutex;
    norv_mutex_init(&mutex);
    norv_mutex_lock(&mutex);
    kernel.fail("", EINVAL);
    EXPECT_EQ(norv_mutex_unlock(&mutex), 0U);
    EXPECT_EQ(norv_mutex_lock(&mutex), NORV_STATUS_BAD_STATE);
    norv_mutex_lock(&mutex);
    kernel.fail("norv_mutex_unlock", EINVAL);
    EXPECT_EQ(norv_mutex_unlock(&mutex), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(norv_mutex_lock(&mutex), 0U);
    norv_mutex_unlock(&mutex);
    norv_mutex_destroy(&mutex);
}

TEST(KernelDouble, TheTestIsToldOfEveryLockThatWasTakenAndIsGivenBack) {
    kernel_double kernel;
    norv_mutex_t mutex;
    std::vector<bool> told;
    kernel.on_lock([&](bool taken) { told.push_back(taken); });
    norv_mutex_init(&mutex);
    norv_mutex_lock(&mutex);
    EXPECT_THAT(told, ElementsAre(true));
    norv_mutex_unlock(&mutex);
    EXPECT_THAT(told, ElementsAre(true, false));
    kernel.fail("norv_mutex_lock", EINVAL);
    norv_mutex_lock(&mutex);
    EXPECT_THAT(told, ElementsAre(true, false));
    norv_mutex_destroy(&mutex);
}

std::vector<std::string> entries_of(const char* path) {
    std::vector<std::string> names;
    DIR* directory = opendir(path);
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(directory);
    return names;
}

TEST(KernelDouble, ADirectoryListsItsEntriesInTheOrderInWhichTheyWereMade) {
    kernel_double kernel;
    kernel.add_file("/sys/bus/usb/zebra");
    kernel.add_file("/sys/bus/usb/apple/file");
    kernel.add_link("/sys/bus/usb/monkey", "../usb");
    kernel.add_file("/sys/bus/usb/apple/later");
    EXPECT_THAT(entries_of("/sys/bus/usb"), ElementsAre("zebra", "apple", "monkey"));
}

TEST(KernelDouble, AnOpenDirectoryIsWatchedAndCanFail) {
    kernel_double kernel;
    kernel.add_file("/sys/bus/file");
    kernel.fail("opendir", EACCES);
    EXPECT_EQ(opendir("/sys/bus"), nullptr);
    DIR* directory = opendir("/sys/bus");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    kernel.fail("readdir", EIO);
    EXPECT_EQ(readdir(directory), nullptr);
    EXPECT_EQ(errno, EIO);
    closedir(directory);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(KernelDouble, ALinkIsToldApartFromWhatItLeadsTo) {
    kernel_double kernel;
    kernel.add_file("/sys/target");
    kernel.add_link("/sys/link", "target");
    struct stat found = {};
    EXPECT_EQ(lstat("/sys/link", &found), 0);
    EXPECT_TRUE(S_ISLNK(found.st_mode));
    EXPECT_EQ(stat("/sys/link", &found), 0);
    EXPECT_TRUE(S_ISREG(found.st_mode));
}

TEST(KernelDouble, AReadAtAnOffsetLeavesTheFilePositionAlone) {
    kernel_double kernel;
    kernel.add_file("/proc/text", "abcdef");
    const int descriptor = open("/proc/text", O_RDONLY);
    char text[3] = {};
    EXPECT_EQ(pread(descriptor, text, 2, 3), 2);
    EXPECT_STREQ(text, "de");
    EXPECT_EQ(read(descriptor, text, 2), 2);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(kernel.calls("pread").at(0).as<byte_transfer_at>().offset, 3);
    close(descriptor);
}

TEST(KernelDouble, AScanOfADirectoryFindsTheEntriesOfTheScratchTree) {
    kernel_double kernel;
    kernel.add_file("/dev/mtd1");
    kernel.add_file("/dev/mtd0");
    dirent** entries = nullptr;
    const auto is_node = [](const dirent* entry) { return entry->d_name[0] == 'm' ? 1 : 0; };
    ASSERT_EQ(scandir("/dev", &entries, is_node, alphasort), 2);
    EXPECT_STREQ(entries[0]->d_name, "mtd0");
    EXPECT_STREQ(entries[1]->d_name, "mtd1");
    EXPECT_EQ(kernel.allocations(), 3U);
    norv_free(entries[0]);
    norv_free(entries[1]);
    norv_free(entries);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(scandir("/dev", &entries, is_node, alphasort), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(KernelDouble, TheTestsOwnMemoryNeitherFailsNorIsWatched) {
    kernel_double kernel;
    for (const char* call : {"malloc", "calloc"}) {
        kernel.fail(call, ENOMEM);
        void* memory = call[0] == 'm' ? malloc(8) : calloc(1, 8);
        EXPECT_NE(memory, nullptr);
        EXPECT_EQ(kernel.allocations(), 0U);
        free(memory);
        EXPECT_FALSE(kernel.struck());
    }
}

TEST(KernelDouble, AWriteAtAnOffsetLeavesTheFilePositionAlone) {
    kernel_double kernel;
    kernel.add_file("/proc/text", "abcdef");
    const int descriptor = open("/proc/text", O_RDWR);
    EXPECT_EQ(pwrite(descriptor, "XY", 2, 3), 2);
    EXPECT_EQ(write(descriptor, "-", 1), 1);
    EXPECT_EQ(kernel.content("/proc/text"), "-bcXYf");
    EXPECT_EQ(kernel.calls("pwrite").at(0).as<byte_transfer_at>().offset, 3);
    EXPECT_EQ(kernel.calls("pwrite").at(0).as<byte_transfer_at>().bytes, "XY");
    close(descriptor);
}

TEST(KernelDouble, AModelIsWrittenAtTheOffset) {
    kernel_double kernel;
    const auto model = std::make_shared<offset_device>();
    kernel.add_device("/dev/offset", model);
    const int descriptor = open("/dev/offset", O_RDWR);
    EXPECT_EQ(pwrite(descriptor, "xy", 2, 40), 2);
    EXPECT_EQ(model->written_at, 40);
    close(descriptor);
}

TEST(KernelDouble, AStreamReadsTheScratchTreeLineByLine) {
    kernel_double kernel;
    kernel.add_file("/sys/uevent", "A=1\nB=2\n");
    FILE* stream = fopen("/sys/uevent", "re");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    char* line = nullptr;
    size_t size = 0;
    EXPECT_EQ(getline(&line, &size, stream), 4);
    EXPECT_STREQ(line, "A=1\n");
    EXPECT_EQ(kernel.allocations(), 1U);
    kernel.fail("getline", EIO);
    EXPECT_EQ(getline(&line, &size, stream), -1);
    norv_free(line);
    kernel.fail("fclose", EIO);
    EXPECT_EQ(fclose(stream), EOF);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.fail("fopen", EACCES);
    EXPECT_EQ(fopen("/sys/uevent", "re"), nullptr);
}

TEST(KernelDouble, LinksAndRealPathsAreToldAsTheBoardHasThem) {
    kernel_double kernel;
    kernel.add_directory("/sys/devices/uio0");
    kernel.add_link("/sys/class/uio/uio0", "/sys/devices/uio0");
    char target[64] = {};
    EXPECT_EQ(readlink("/sys/class/uio/uio0", target, sizeof target), 17);
    EXPECT_STREQ(target, "/sys/devices/uio0");
    char* resolved = realpath("/sys/class/uio/uio0", nullptr);
    EXPECT_STREQ(resolved, "/sys/devices/uio0");
    EXPECT_EQ(kernel.allocations(), 1U);
    norv_free(resolved);
    EXPECT_EQ(readlink("/sys/class/uio/uio1", target, sizeof target), -1);
    EXPECT_EQ(realpath("/sys/class/uio/uio1", nullptr), nullptr);
}

TEST(KernelDouble, TheSizeOfAnUnmappingIsJournalled) {
    kernel_double kernel;
    kernel.add_device("/dev/register", std::make_shared<register_device>());
    const int descriptor = open("/dev/register", O_RDWR);
    void* memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
    EXPECT_EQ(munmap(memory, 4096), 0);
    EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, 4096U);
    close(descriptor);
}

TEST(KernelDouble, TheClockStandsWhereTheTestSetsIt) {
    timespec time = {};
    {
        kernel_double kernel;
        kernel.set_clock(1, 250);
        EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
        EXPECT_EQ(time.tv_sec, 1);
        EXPECT_EQ(time.tv_nsec, 250);
    }
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
    EXPECT_GT(time.tv_sec, 1);
}

TEST(KernelDouble, TheClockFailsOnlyForATestThatNamesIt) {
    kernel_double kernel;
    timespec time = {};
    kernel.fail("", EINVAL);
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
    kernel.fail("clock_gettime", EINVAL);
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), -1);
}

TEST(KernelDouble, AThreadSettingAnswersWhatTheTestSaysAndDoesNothing) {
    kernel_double kernel;
    kernel.answer("pthread_setname_np", EPERM);
    EXPECT_EQ(pthread_setname_np(pthread_self(), "renamed"), EPERM);
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    EXPECT_STRNE(name, "renamed");
}

TEST(KernelDouble, EveryCallOnAStreamCanFail) {
    kernel_double kernel;
    kernel.add_file("/proc/loadavg", "0.5\n");
    FILE* stream = fopen("/proc/loadavg", "re");
    ASSERT_NE(stream, nullptr);
    char text[16] = "";
    kernel.fail("fgets", EIO);
    EXPECT_EQ(fgets(text, sizeof text, stream), nullptr);
    kernel.fail("fseek", EIO);
    EXPECT_EQ(fseek(stream, 0, SEEK_SET), -1);
    kernel.fail("fflush", EIO);
    EXPECT_EQ(fflush(stream), EOF);
    EXPECT_STREQ(fgets(text, sizeof text, stream), "0.5\n");
    fclose(stream);
}

TEST(KernelDouble, AStreamOfTheTestProgramItselfNeverFails) {
    kernel_double kernel;
    FILE* stream = tmpfile();
    ASSERT_NE(stream, nullptr);
    kernel.fail("fflush", EIO);
    EXPECT_EQ(fflush(stream), 0);
    EXPECT_EQ(fflush(nullptr), 0);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_FALSE(kernel.struck());
}

TEST(KernelDouble, TheUptimeCanBeSet) {
    kernel_double kernel;
    struct sysinfo information = {};
    EXPECT_EQ(sysinfo(&information), 0);
    EXPECT_GT(information.uptime, 0);
    kernel.set_uptime(123456);
    EXPECT_EQ(sysinfo(&information), 0);
    EXPECT_EQ(information.uptime, 123456);
    kernel.fail("sysinfo", EFAULT);
    EXPECT_EQ(sysinfo(&information), -1);
}

TEST(KernelDouble, AProgramsStreamCountsAsADescriptorUntilItIsClosed) {
    const kernel_double kernel;
    FILE* stream = popen("exit 3", "r");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.calls("popen").at(0).as<program_start>().command, "exit 3");
    EXPECT_EQ(WEXITSTATUS(pclose(stream)), 3);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(KernelDouble, ThePlannedCallFailsAndNoOther) {
    kernel_double kernel;
    kernel.add_file("/dev/a");
    kernel.fail({.call = "open", .nth = 2, .error = EMFILE});
    const int first = open("/dev/a", O_RDONLY);
    EXPECT_GT(first, 0);
    EXPECT_EQ(open("/dev/a", O_RDONLY), -1);
    EXPECT_EQ(errno, EMFILE);
    const int third = open("/dev/a", O_RDONLY);
    EXPECT_GT(third, 0);
    close(first);
    close(third);
    ASSERT_TRUE(kernel.struck());
    EXPECT_EQ(kernel.struck()->name, "open");
    EXPECT_EQ(kernel.struck()->path, "/dev/a");
}

TEST(KernelDouble, AFailingCloseStillGivesTheDescriptorBack) {
    kernel_double kernel;
    kernel.add_file("/dev/a");
    const int descriptor = open("/dev/a", O_RDONLY);
    kernel.fail("close", EINTR);
    EXPECT_EQ(close(descriptor), -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(KernelDouble, AnErrnoCanBeMappedToAnyStatus) {
    kernel_double kernel;
    kernel.map_errno(EIO, 0);
    EXPECT_EQ(norv_get_status_by_errno(EIO), 0U);
    EXPECT_EQ(norv_get_status_by_errno(ENOMEM), NORV_STATUS_NO_MEMORY);
}

// ---- fortified calls, which pass the size of the caller's buffer

struct fortified_call {
    std::string name;                           // its ordinary name, by which the double knows it
    std::function<bool(size_t room)> succeeds;  // makes the call with a buffer of this size
};

int fortified_format(char* text, size_t size, size_t room, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = __vsnprintf_chk(text, size, 1, room, format, values);
    va_end(values);
    return length;
}

class FortifiedCalls : public testing::Test {
  public:
    FortifiedCalls() {
        kernel_.add_file("/proc/text", "abcdef");
        kernel_.add_link("/proc/link", "/proc/text");
        descriptor_ = open("/proc/text", O_RDONLY);
        stream_ = fopen("/proc/text", "re");
        kernel_.forget_calls();
    }
    ~FortifiedCalls() override {
        fclose(stream_);
        close(descriptor_);
    }
    FortifiedCalls(const FortifiedCalls&) = delete;
    FortifiedCalls& operator=(const FortifiedCalls&) = delete;

  protected:
    kernel_double kernel_;
    int descriptor_ = -1;
    FILE* stream_ = nullptr;
    char buffer_[PATH_MAX] = "";
    pollfd request_ = {};
    const std::vector<fortified_call> calls_ = {
        {"read", [&](size_t room) { return __read_chk(descriptor_, buffer_, 2, room) == 2; }},
        {"pread", [&](size_t room) { return __pread_chk(descriptor_, buffer_, 2, 3, room) == 2; }},
        {"poll", [&](size_t room) { return __poll_chk(&request_, 1, 0, room) == 1; }},
        {"readlink", [&](size_t room) { return __readlink_chk("/proc/link", buffer_, 80, room) == 10; }},
        {"realpath", [&](size_t room) { return __realpath_chk("/proc/link", buffer_, room) == buffer_; }},
        {"fgets", [&](size_t room) { return __fgets_chk(buffer_, room, 3, stream_) == buffer_; }},
        {"fread", [&](size_t room) { return __fread_chk(buffer_, room, 1, 2, stream_) == 2; }},
        {"vsnprintf", [&](size_t room) { return fortified_format(buffer_, 4, room, "%s", "abc") == 3; }},
    };
};

TEST_F(FortifiedCalls, DoTheirWork) {
    request_ = {descriptor_, POLLIN, 0};
    for (const fortified_call& call : calls_) {
        EXPECT_TRUE(call.succeeds(sizeof buffer_)) << call.name;
    }
}

TEST_F(FortifiedCalls, FailWhereTheDoubleIsToldToFailTheOrdinaryCall) {
    for (const fortified_call& call : calls_) {
        kernel_.fail(call.name, EIO);
        EXPECT_FALSE(call.succeeds(sizeof buffer_)) << call.name;
        EXPECT_TRUE(kernel_.struck()) << call.name;
    }
}

TEST_F(FortifiedCalls, EndTheProgramWhereTheBufferIsTooSmall) {
    for (const fortified_call& call : calls_) {
        EXPECT_DEATH(call.succeeds(1), "buffer overflow detected") << call.name;
    }
}

TEST_F(FortifiedCalls, OpenAndReceiveReachTheModels) {
    kernel_.add_socket_family(AF_CAN, [](int, int) { return std::make_shared<plain_socket>(); });
    const int file = __open_2("/proc/text", O_RDONLY);
    const int receiver = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, 1);
    EXPECT_EQ(kernel_.open_flags("/proc/text"), std::vector{O_RDONLY});
    EXPECT_EQ(__recv_chk(receiver, buffer_, 4, sizeof buffer_, 0), 4);
    EXPECT_STREQ(buffer_, "mess");
    EXPECT_DEATH(__recv_chk(receiver, buffer_, 4, 3, 0), "buffer overflow detected");
    EXPECT_DEATH(__open_2("/proc/new", O_CREAT), "buffer overflow detected");
    close(receiver);
    close(file);
}

// What the double reports is a failure of the test, so these look at the failures themselves.

TEST(KernelDouble, ALeakedDescriptorIsReported) {
    EXPECT_NONFATAL_FAILURE(
        {
            kernel_double kernel;
            kernel.accept_leaked_descriptors(2);
            eventfd(0, 0);
        },
        "descriptors left open");
}

TEST(KernelDouble, LeakedMemoryIsReported) {
    EXPECT_NONFATAL_FAILURE(
        {
            const kernel_double kernel;
            static_cast<void>(norv_zalloc(8));
        },
        "memory left allocated");
}

TEST(KernelDouble, ALeakedMappingIsReported) {
    const auto model = std::make_shared<register_device>();
    EXPECT_NONFATAL_FAILURE(
        {
            kernel_double kernel;
            kernel.add_device("/dev/register", model);
            const int descriptor = open("/dev/register", O_RDWR);
            mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
            close(descriptor);
        },
        "mappings left behind");
}

TEST(KernelDouble, ClosingADescriptorTwiceIsReported) {
    const kernel_double kernel;
    const int descriptor = eventfd(0, 0);
    close(descriptor);
    EXPECT_NONFATAL_FAILURE(close(descriptor), "is not open");
}

// ---- the sweep

uint32_t open_and_write() {
    int32_t descriptor = -1;
    uint32_t status = norv_open_device(O_WRONLY, &descriptor, "/sys/a");
    if (status == 0) {
        status = norv_write_string(descriptor, 2, "1");
        close(descriptor);
    }
    return status;
}

TEST(FailureSweep, MakesEveryCallFailOnceForEachErrno) {
    norv::test::sweep_options options;
    options.errors = {EIO, ENOSPC};
    const int struck =
        failure_sweep([](kernel_double& kernel) { kernel.add_file("/sys/a"); }, open_and_write, options);
    EXPECT_EQ(struck, 2 * 3 + 1);  // open, write, close; and one short write
}

TEST(FailureSweep, ReportsAFailureThatTheScenarioSwallows) {
    EXPECT_NONFATAL_FAILURE(
        {
            norv::test::sweep_options options;
            options.errors = {EIO};
            options.short_counts = false;
            options.expect = [](const strike& struck) {
                return struck.name == "write" ? 1U : norv::test::status_of_fault(struck);
            };
            failure_sweep([](kernel_double& kernel) { kernel.add_file("/sys/a"); }, open_and_write, options);
        },
        "write /sys/a");
}

TEST(FailureSweep, AScenarioThatCallsNothingIsNoTest) {
    EXPECT_NONFATAL_FAILURE(failure_sweep([](kernel_double&) {}, [] { return 0U; }), "nothing was tested");
}

}  // namespace
