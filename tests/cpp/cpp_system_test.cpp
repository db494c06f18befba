// SPDX-License-Identifier: MIT
// Threads, shell commands, UUIDs, facts about the board, and the samplers of CPU and network.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/cpu_usage.hpp"
#include "norv/net_usage.hpp"
#include "norv/shell.hpp"
#include "norv/system_info.hpp"
#include "norv/thread.hpp"
#include "norv/uuid.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::cpu_usage;
using norv::net_usage;
using norv::test::kernel_double;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

// ---- threads

TEST(CppThread, TheCallsReachTheKernel) {
    kernel_double kernel;
    kernel.answer("sysconf", 4);
    kernel.answer("sched_setaffinity", 0);
    kernel.answer("pthread_setschedparam", 0);
    EXPECT_EQ(norv::this_thread::set_cpu_affinity_mask(5), norv::ok);
    EXPECT_EQ(norv::this_thread::set_cpu_affinity(3), norv::ok);
    EXPECT_THAT(kernel.calls("sched_setaffinity"), SizeIs(2));
    EXPECT_EQ(norv::this_thread::set_normal_priority(), norv::ok);
    EXPECT_EQ(norv::this_thread::set_realtime_priority(), norv::ok);
    EXPECT_THAT(kernel.calls("pthread_setschedparam"), SizeIs(2));
}

TEST(CppThread, ANameIsSet) {
    std::thread([] {
        std::array<char, 16> name{};
        EXPECT_EQ(norv::this_thread::set_name("fifteen letters"), norv::ok);
        pthread_getname_np(pthread_self(), name.data(), name.size());
        EXPECT_STREQ(name.data(), "fifteen letters");
        EXPECT_EQ(norv::this_thread::set_name("sixteen letters!"), NORV_STATUS_INVALID_ARG);
        EXPECT_NE(norv::this_thread::id(), 0U);
    }).join();
}

// ---- shell

TEST(CppShell, TheOutputIsCaptured) {
    std::array<char, 16> buffer;
    buffer.fill('#');
    EXPECT_EQ(norv::run_shell(std::string_view("echo ok; exit 3;", 15), buffer).value(), "ok");
    std::array<char, 4> four;
    EXPECT_EQ(norv::run_shell("printf 1234", four).value(), "1234") << "without room for a NUL";
    EXPECT_EQ(norv::run_shell("true", four).value(), "");
    EXPECT_EQ(norv::run_shell(std::string(4096, ' '), four).status(), NORV_STATUS_INVALID_ARG);
}

TEST(CppShell, AFailureHasTheStatus) {
    kernel_double kernel;
    kernel.fail("popen", EMFILE);
    std::array<char, 4> buffer;
    EXPECT_EQ(norv::run_shell("true", buffer).status(), norv_get_status_by_errno(EMFILE));
}

// ---- UUIDs

TEST(CppUuid, AUuidIsRead) {
    kernel_double kernel;
    kernel.add_file("/proc/sys/kernel/random/uuid", "01234567-89ab-4cde-8f01-23456789abcd\n");
    const norv::uuid id = norv::uuid::generate().value();
    EXPECT_EQ(id.text(), "01234567-89ab-4cde-8f01-23456789abcd");
    EXPECT_EQ(id, norv::uuid::generate().value());
    kernel.add_file("/proc/sys/kernel/random/uuid", "01234567");
    EXPECT_EQ(norv::uuid::generate().status(), NORV_STATUS_SHORT_READ);
}

// ---- facts about the board

TEST(CppSystemInfo, TheStateOfAUsbControllerIsRead) {
    kernel_double kernel;
    kernel.add_file("/sys/class/udc/20980000.usb/state", "configured\n");
    kernel.add_file("/sys/class/udc/20980000.usb/current_speed", "super-speed\n");
    EXPECT_EQ(norv::get_usb_periph_state("20980000.usb").value(), norv::usb_periph_state::super_speed);
    EXPECT_EQ(norv::get_usb_periph_state("none").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv::get_usb_periph_state(std::string(256, 'x')).status(), NORV_STATUS_INVALID_ARG);
}

TEST(CppSystemInfo, MemoryIsReadWholeOrNotAtAll) {
    kernel_double kernel;
    std::string text = "MemTotal: 100 kB\nMemFree: 40 kB\nMemAvailable: 60 kB\nBuffers: 5 kB\n";
    kernel.add_file("/proc/meminfo", text);
    EXPECT_EQ(norv::memory_info().status(), NORV_STATUS_PARSE_ERROR);
    kernel.add_file("/proc/meminfo", text + "Cached: 7 kB\n");
    const norv_mem_info_t info = norv::memory_info().value();
    EXPECT_EQ(info.available, 60);
    EXPECT_EQ(info.cached, 7);
}

TEST(CppSystemInfo, TheUptimeIsReadInSeconds) {
    kernel_double kernel;
    kernel.set_uptime(3600);
    EXPECT_EQ(norv::uptime().value(), 1h);
    kernel.fail("sysinfo", EFAULT);
    EXPECT_EQ(norv::uptime().status(), norv_get_status_by_errno(EFAULT));
}

TEST(CppSystemInfo, TheSizeOfACardIsRead) {
    kernel_double kernel;
    kernel.add_file("/sys/class/block/mmcblk1/size", "15625000\n");
    EXPECT_EQ(norv::mmc_megabytes(1).value(), 8000U);
    EXPECT_EQ(norv::mmc_megabytes(0).status(), NORV_STATUS_NOT_FOUND);
}

// ---- CPU load

void add_stat(kernel_double& kernel, const std::string& times) {
    kernel.add_file("/proc/stat", "cpu  " + times + "\n");
}

TEST(CppCpuUsage, ASamplerIsClosedWithItsOwner) {
    kernel_double kernel;
    EXPECT_EQ(cpu_usage::open().status(), NORV_STATUS_NOT_FOUND);
    {
        add_stat(kernel, "100 100 100 400 50 50 50 50 50 50");
        cpu_usage cpu = cpu_usage::open().value();
        EXPECT_EQ(cpu.usage(), 6000U);
        add_stat(kernel, "150 150 100 500 50 50 50 50 50 50");
        EXPECT_EQ(cpu.update(), norv::ok);
        EXPECT_EQ(cpu.usage(), 5000U);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 95: an owner is always opened with zeros.
TEST(CppCpuUsage, ASamplerThatIsMovedIntoStartsAgain) {
    kernel_double kernel;
    add_stat(kernel, "100 100 100 400 50 50 50 50 50 50");
    cpu_usage cpu = cpu_usage::open().value();
    cpu = cpu_usage::open().value();
    EXPECT_EQ(cpu.usage(), 6000U);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST(CppCpuUsage, ASamplerThatWasMovedFromIsAnInvalidArgument) {
    kernel_double kernel;
    add_stat(kernel, "100 100 100 400 50 50 50 50 50 50");
    cpu_usage cpu = cpu_usage::open().value();
    const cpu_usage other = std::move(cpu);
    EXPECT_EQ(cpu.update(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(cpu.usage(), 0U);
    EXPECT_EQ(cpu.get(), nullptr);
    EXPECT_EQ(other.usage(), 6000U);
}

TEST(CppCpuUsageSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) { add_stat(kernel, "100 100 100 400 50 50 50 50 50 50"); },
        [] {
            norv::result<cpu_usage> cpu = cpu_usage::open();
            return cpu ? cpu->update().number() : cpu.status().number();
        });
}

// ---- rates of a network interface

void add_interface(kernel_double& kernel, uint64_t received, uint64_t transmitted) {
    kernel.add_file("/proc/net/dev", "heading\nheading\n  eth0: " + std::to_string(received) +
                                         " 2 3 4 5 6 7 8 " + std::to_string(transmitted) +
                                         " 10 11 12 13 14 15 16\n");
}

TEST(CppNetUsage, ASamplerIsClosedWithItsOwner) {
    kernel_double kernel;
    {
        kernel.set_clock(10, 0);
        add_interface(kernel, 1000, 2000);
        net_usage net = net_usage::open(std::string_view("eth01", 4)).value();
        kernel.set_clock(11, 0);
        add_interface(kernel, 126000, 252000);
        EXPECT_EQ(net.update(), norv::ok);
        EXPECT_EQ(net.rx_rate(), 1000U);
        EXPECT_EQ(net.tx_rate(), 2000U);
        net = net_usage::open("eth0").value();
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(CppNetUsage, ANameThatIsTooLongIsRefused) {
    kernel_double kernel;
    add_interface(kernel, 1000, 2000);
    EXPECT_EQ(net_usage::open(std::string(32, 'x')).status(), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(net_usage::open(std::string(256, 'x')).status(), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(net_usage::open(std::string_view("eth\0", 4)).status(), NORV_STATUS_INVALID_ARG);
}

TEST(CppNetUsage, ASamplerThatWasMovedFromIsAnInvalidArgument) {
    kernel_double kernel;
    add_interface(kernel, 1000, 2000);
    net_usage net = net_usage::open("eth0").value();
    const net_usage other = std::move(net);
    EXPECT_EQ(net.update(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(net.rx_rate() + net.tx_rate(), 0U);
    EXPECT_EQ(net.get(), nullptr);
}

TEST(CppNetUsageSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep([](kernel_double& kernel) { add_interface(kernel, 1000, 2000); },
                            [] {
                                norv::result<net_usage> net = net_usage::open("eth0");
                                return net ? net->update().number() : net.status().number();
                            });
}

}  // namespace
