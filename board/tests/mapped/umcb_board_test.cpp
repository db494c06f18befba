// SPDX-License-Identifier: MIT
// UMCB devices of a real kernel: the registers and the sources of norv-board-control, and a PCI device.
#include "norv_umcb.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "../support/pci_identity.hpp"
#include "norv_base.h"
#include "norv_epoll.h"
#include "umcb_debug.hpp"

namespace {

using norv::board::raise_source;
using norv::board::source_file;
using norv::board::umcb_driver_register;
using norv::board::umcb_flag;
using norv::board::umcb_number;
using testing::AnyOf;
using testing::ElementsAre;

constexpr uint32_t identity = 0x554D4342;
constexpr uint16_t pci_vendor = 0x1234;
constexpr uint16_t pci_device = 0x11E8;

class UmcbOnBoard : public testing::Test {
  protected:
    UmcbOnBoard() { EXPECT_EQ(norv_umcb_open_by_idx(0, -1, &device), 0U); }
    ~UmcbOnBoard() override {
        norv_umcb_irq_global_disable(&device);
        norv_umcb_close(&device);
    }

    norv_umcb_t* device = nullptr;
};

// Source 1, registered; the device is enabled, the source is not.
class UmcbSourceOnBoard : public UmcbOnBoard {
  protected:
    UmcbSourceOnBoard() {
        EXPECT_EQ(norv_umcb_irq_register(&device, 1, &source), 0U);
        EXPECT_EQ(norv_umcb_irq_global_enable(&device), 0U);
    }
    ~UmcbSourceOnBoard() override { close(source); }

    int32_t source = -1;
};

size_t open_descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// ---- finding, opening and closing

TEST_F(UmcbOnBoard, TheClassHasNoEntriesThatCountForTheHighestIndex) {
    int32_t index = 7;
    EXPECT_EQ(norv_umcb_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
}

TEST_F(UmcbOnBoard, TheDeviceOpensByName) {
    norv_umcb_t* named = nullptr;
    ASSERT_EQ(norv_umcb_open_by_name("norv-board-control", -1, &named), 0U);
    EXPECT_EQ(norv_umcb_read_32(&named, 0), identity);
    norv_umcb_close(&named);
}

TEST_F(UmcbOnBoard, AMissingDeviceIsNotFound) {
    norv_umcb_t* missing = nullptr;
    EXPECT_EQ(norv_umcb_open_by_idx(7, 0, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_umcb_open_by_name("no-such-device", 0, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_umcb_open_by_pci_id(pci_vendor, 0x0001, 0, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(missing, nullptr);
}

TEST_F(UmcbOnBoard, ClosingClosesTheDescriptor) {
    const size_t before = open_descriptors();
    norv_umcb_t* second = nullptr;
    ASSERT_EQ(norv_umcb_open_by_idx(0, -1, &second), 0U);
    EXPECT_EQ(open_descriptors(), before + 1);
    norv_umcb_close(&second);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- the mode

TEST_F(UmcbOnBoard, ANegativeModeDoesNotReachTheDriver) {
    norv_umcb_t* second = nullptr;
    const uint32_t before = umcb_number("modes");
    ASSERT_EQ(norv_umcb_open_by_idx(0, -1, &second), 0U);
    norv_umcb_close(&second);
    EXPECT_EQ(umcb_number("modes"), before);
}

TEST_F(UmcbOnBoard, TheModeReachesTheDriver) {
    norv_umcb_t* second = nullptr;
    norv_umcb_write_32(&device, 0x100, 0x12345678);
    ASSERT_EQ(norv_umcb_open_by_idx(0, 0, &second), 0U);
    EXPECT_EQ(umcb_number("mode"), 0U);
    EXPECT_EQ(norv_umcb_read_32(&second, 0x100), 0x12345678U);
    norv_umcb_close(&second);
    ASSERT_EQ(norv_umcb_open_by_name("norv-board-control", 1, &second), 0U);
    EXPECT_EQ(umcb_number("mode"), 1U);
    EXPECT_EQ(norv_umcb_read_32(&second, 0x100), 0U);
    norv_umcb_close(&second);
}

TEST_F(UmcbOnBoard, AModeThatTheDriverDoesNotHaveIsRefused) {
    const size_t before = open_descriptors();
    norv_umcb_t* second = nullptr;
    EXPECT_EQ(norv_umcb_open_by_idx(0, 99, &second), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(umcb_number("mode"), 99U);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- registers

TEST_F(UmcbOnBoard, TheProgramReadsWhatTheDriverWrites) {
    EXPECT_EQ(norv_umcb_read_32(&device, 0), identity);
    EXPECT_EQ(norv_umcb_read_32(&device, norv::board::reg_sources), 4U);
}

TEST_F(UmcbOnBoard, TheDriverReadsWhatTheProgramWrites) {
    norv_umcb_write_32(&device, 0x100, 0x12345678);
    norv_umcb_write_32(&device, 0xFFC, 0x9ABCDEF0);
    EXPECT_EQ(umcb_driver_register(0x100), 0x12345678U);
    EXPECT_EQ(umcb_driver_register(0xFFC), 0x9ABCDEF0U);
    EXPECT_EQ(static_cast<volatile uint32_t*>(norv_umcb_get_map(&device))[0x40], 0x12345678U);
}

TEST_F(UmcbOnBoard, TheBusAddsTheBaseOfItsBasedLists) {
    norv_mcb_bus_t bus = {};
    const norv_mcb_reg_value_t list[] = {{0x10, 5}, {0x20, 6}};
    const uint32_t addresses[] = {0x20, 0x10};
    std::array<uint32_t, 2> values = {};
    ASSERT_EQ(norv_umcb_open_mcb_bus(&device, &bus), 0U);
    EXPECT_EQ(bus.write_list_based(&bus, 0x200, list, 2), 0U);
    EXPECT_EQ(umcb_driver_register(0x210), 5U);
    EXPECT_EQ(umcb_driver_register(0x220), 6U);
    EXPECT_EQ(bus.read_list_based(&bus, 0x200, addresses, values.data(), 2), 0U);
    EXPECT_THAT(values, ElementsAre(6, 5));
    bus.close(&bus);
}

TEST_F(UmcbOnBoard, TheBusMovesBursts) {
    norv_mcb_bus_t bus = {};
    const uint32_t written[] = {1, 2, 3};
    std::array<uint32_t, 3> values = {};
    ASSERT_EQ(norv_umcb_open_mcb_bus(&device, &bus), 0U);
    EXPECT_EQ(bus.write_burst(&bus, 0x300, written, 3, NORV_MCB_BURST_UP), 0U);
    EXPECT_EQ(umcb_driver_register(0x308), 3U);
    EXPECT_EQ(bus.read_burst(&bus, 0x308, values.data(), 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_THAT(values, ElementsAre(3, 2, 1));
    bus.close(&bus);
}

TEST_F(UmcbOnBoard, ADeviceThatIsNotOnPciReportsItsKindAlone) {
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(info.vendor, 9U);
}

// ---- sources

TEST_F(UmcbOnBoard, EnablingAndDisablingTheDeviceReachTheDriver) {
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), 0U);
    EXPECT_TRUE(umcb_flag("enabled"));
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), 0U);
    EXPECT_FALSE(umcb_flag("enabled"));
}

TEST_F(UmcbOnBoard, ASourceGetsTheTypeThatWasSetBefore) {
    int32_t level = -1;
    int32_t edge = -1;
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 1), 0U);
    EXPECT_EQ(norv_umcb_irq_register(&device, 2, &level), 0U);
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 0), 0U);
    EXPECT_EQ(norv_umcb_irq_register(&device, 3, &edge), 0U);
    EXPECT_EQ(umcb_number(source_file(2, "type")), 1U);
    EXPECT_EQ(umcb_number(source_file(3, "type")), 0U);
    close(level);
    close(edge);
}

TEST_F(UmcbOnBoard, ATypeThatTheDriverDoesNotHaveIsRefused) {
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 99), NORV_STATUS_INVALID_ARG);
}

TEST_F(UmcbOnBoard, ASourceThatTheDeviceDoesNotHaveIsRefused) {
    int32_t source = 7;
    EXPECT_EQ(norv_umcb_irq_register(&device, 4, &source), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source, 7);
}

TEST_F(UmcbSourceOnBoard, ASourceIsRegisteredUntilItsDescriptorIsClosed) {
    int32_t second = 7;
    EXPECT_TRUE(umcb_flag(source_file(1, "registered")));
    EXPECT_EQ(norv_umcb_irq_register(&device, 1, &second), norv_get_status_by_errno(EBUSY));
    EXPECT_EQ(second, 7);
    close(source);
    EXPECT_FALSE(umcb_flag(source_file(1, "registered")));
    EXPECT_EQ(norv_umcb_irq_register(&device, 1, &source), 0U);
}

TEST_F(UmcbSourceOnBoard, TheDescriptorOfASourceIsItsOwnAndClosedOnExec) {
    EXPECT_EQ(fcntl(source, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(source)),
              "anon_inode:[umcb-irq]");
}

TEST_F(UmcbSourceOnBoard, EnablingAndDisablingASourceReachTheDriver) {
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_TRUE(umcb_flag(source_file(1, "enabled")));
    EXPECT_FALSE(umcb_flag(source_file(0, "enabled")));
    EXPECT_EQ(norv_umcb_irq_disable(source), 0U);
    EXPECT_FALSE(umcb_flag(source_file(1, "enabled")));
}

TEST_F(UmcbSourceOnBoard, APendingEventIsClearedByTheWaitAndNothingElse) {
    const uint32_t before = umcb_number(source_file(1, "clears"));
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(umcb_number(source_file(1, "clears")), before);
    raise_source(1, 1);
    EXPECT_EQ(norv_umcb_irq_wait(source, 10000), 0U);
    EXPECT_EQ(umcb_number(source_file(1, "clears")), before + 1);
    EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(UmcbSourceOnBoard, AnInterruptIsDeliveredWhileTheProgramWaits) {
    const uint32_t before = norv_umcb_read_32(&device, norv::board::reg_counts + 4);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    std::thread raiser([] {
        usleep(20000);
        raise_source(1, 1);
    });
    EXPECT_EQ(norv_umcb_irq_wait(source, 10000), 0U);
    raiser.join();
    EXPECT_EQ(norv_umcb_read_32(&device, norv::board::reg_counts + 4), before + 1);
}

TEST_F(UmcbSourceOnBoard, ADisabledSourceInterruptsOnlyWhenItIsEnabledAgain) {
    raise_source(1, 1);
    EXPECT_EQ(norv_umcb_irq_wait(source, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(norv_umcb_irq_wait(source, 10000), 0U);
}

TEST_F(UmcbSourceOnBoard, ADisabledDeviceInterruptsOnlyWhenItIsEnabledAgain) {
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), 0U);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    raise_source(1, 1);
    EXPECT_EQ(norv_umcb_irq_wait(source, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), 0U);
    EXPECT_EQ(norv_umcb_irq_wait(source, 10000), 0U);
}

TEST_F(UmcbSourceOnBoard, SourcesInterruptIndependently) {
    int32_t other = -1;
    ASSERT_EQ(norv_umcb_irq_register(&device, 3, &other), 0U);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(norv_umcb_irq_enable(other), 0U);
    raise_source(3, 1);
    EXPECT_EQ(norv_umcb_irq_wait(other, 10000), 0U);
    EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
    close(other);
}

// A source's descriptor in a loop: each event is cleared by its handler.
struct served_source {
    norv_epoll_fd_t record;
    norv_epoll_t* loop;
    int32_t source;
    int events;
};

void serve(norv_epoll_fd_t* record, uint32_t events) {
    auto* served = reinterpret_cast<served_source*>(record);
    EXPECT_EQ(events, static_cast<uint32_t>(EPOLLPRI));
    EXPECT_EQ(norv_umcb_irq_clear_event(served->source), 0U);
    if (++served->events == 3) {
        norv_epoll_exit(served->loop);
    }
}

TEST_F(UmcbSourceOnBoard, TheEventLoopServesASource) {
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    served_source served = {{nullptr, source, serve}, &loop, source, 0};
    ASSERT_EQ(norv_epoll_fd_add(&loop, &served.record, EPOLLPRI), 0U);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    raise_source(1, 3);
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_EQ(served.events, 3);
    EXPECT_EQ(norv_epoll_fd_remove(&loop, &served.record), 0U);
    EXPECT_EQ(norv_epoll_close(&loop), 0U);
}

// Takes interrupts one by one, and counts them in a register of the driver.
void take_interrupts(norv_umcb_t** device, uint32_t number, int32_t source, uint32_t interrupts) {
    const uint32_t before = norv_umcb_read_32(device, norv::board::reg_counts + 4 * number);
    const uint32_t cleared = umcb_number(source_file(number, "clears"));
    ASSERT_EQ(norv_umcb_irq_enable(source), 0U);
    raise_source(number, interrupts);
    for (uint32_t taken = 1; taken <= interrupts; ++taken) {
        ASSERT_EQ(norv_umcb_irq_wait(source, 10000), 0U) << taken;
        ASSERT_GE(norv_umcb_read_32(device, norv::board::reg_counts + 4 * number), before + taken);
    }
    EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_umcb_read_32(device, norv::board::reg_counts + 4 * number), before + interrupts);
    EXPECT_EQ(umcb_number(source_file(number, "clears")), cleared + interrupts);
    EXPECT_EQ(umcb_number(source_file(number, "pending")), 0U);
}

TEST_F(UmcbSourceOnBoard, NoneOfTenThousandInterruptsIsLost) {
    take_interrupts(&device, 1, source, 10000);
}

TEST_F(UmcbSourceOnBoard, TwoThreadsEachTakeTheInterruptsOfTheirSource) {
    int32_t other = -1;
    ASSERT_EQ(norv_umcb_irq_register(&device, 3, &other), 0U);
    std::thread second([&] { take_interrupts(&device, 3, other, 2000); });
    take_interrupts(&device, 1, source, 2000);
    second.join();
    close(other);
}

// ---- a PCI device: umcb1

class UmcbPciOnBoard : public testing::Test {
  protected:
    static void SetUpTestSuite() { bound = norv_umcb_load_pci(pci_vendor, pci_device); }

    UmcbPciOnBoard() { EXPECT_EQ(norv_umcb_open_by_idx(1, 0, &device), 0U); }
    ~UmcbPciOnBoard() override { norv_umcb_close(&device); }

    static inline uint32_t bound = UINT32_MAX;
    norv_umcb_t* device = nullptr;
};

std::string place_of_device() {
    return std::filesystem::canonical("/sys/class/umcb/umcb1/device");
}

TEST_F(UmcbPciOnBoard, BindingMakesTheDriverServeTheDevice) {
    EXPECT_EQ(bound, 0U);
    EXPECT_EQ(std::filesystem::read_symlink(place_of_device() + "/driver").filename(), "umcb_pci_generic");
}

TEST_F(UmcbPciOnBoard, AddingAnIdentityAgainReturnsTheKernelsAnswer) {
    const uint32_t answer = norv::board::status_of_adding_again("umcb_pci_generic", "1234 11e8", 9);
    EXPECT_THAT(answer, AnyOf(0U, norv_get_status_by_errno(EEXIST)));
    EXPECT_EQ(norv_umcb_load_pci(pci_vendor, pci_device), answer);
}

TEST_F(UmcbPciOnBoard, TheInfoHoldsIdentityAndSlot) {
    norv_uio_info_t info = {};
    char slot[32];
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    EXPECT_EQ(info.vendor, pci_vendor);
    EXPECT_EQ(info.device, pci_device);
    snprintf(slot, sizeof slot, "%04x:%02x:%02x.%d", info.domain, info.bus, info.slot,
             static_cast<int>(info.function));
    EXPECT_EQ(slot, std::filesystem::path(place_of_device()).filename());
}

TEST_F(UmcbPciOnBoard, TheTableOfPciDevicesReportsTheSame) {
    norv_uio_info_t info = {};
    EXPECT_EQ(norv_umcb_get_pci_ops()->get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    EXPECT_EQ(info.device, pci_device);
}

TEST_F(UmcbPciOnBoard, TheRegistersAreTheDevices) {
    EXPECT_EQ(norv_umcb_read_32(&device, 0x00), 0x010000EDU);
    norv_umcb_write_32(&device, 0x04, 0x12345678);  // reads as the complement
    EXPECT_EQ(norv_umcb_read_32(&device, 0x04), ~0x12345678U);
}

TEST_F(UmcbPciOnBoard, ADeviceWithoutSourcesRefusesTheirRequests) {
    int32_t source = 7;
    EXPECT_EQ(norv_umcb_irq_register(&device, 0, &source), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 0), NORV_STATUS_INVALID_ARG);
}

TEST_F(UmcbPciOnBoard, OpeningByIdentityFindsTheDeviceAndOpensNumber0) {
    norv_umcb_t* found = nullptr;
    norv_uio_info_t info = {};
    ASSERT_EQ(norv_umcb_open_by_pci_id(pci_vendor, pci_device, -1, &found), 0U);
    EXPECT_EQ(norv_umcb_read_32(&found, 0), identity);
    EXPECT_EQ(norv_umcb_get_info(&found, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    norv_umcb_close(&found);
}

TEST_F(UmcbPciOnBoard, OpeningByNameFindsTheDeviceAndOpensNumber0) {
    norv_umcb_t* found = nullptr;
    ASSERT_EQ(norv_umcb_open_by_name("umcb_pci_mmap", -1, &found), 0U);
    EXPECT_EQ(norv_umcb_read_32(&found, 0), identity);
    norv_umcb_close(&found);
}

}  // namespace
