// SPDX-License-Identifier: MIT
// UIO devices on the PCI bus of a real kernel: QEMU's educational device, bound to uio_pci_mmap.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "../support/attribute.hpp"
#include "../support/pci_identity.hpp"
#include "norv_base.h"
#include "norv_uio.h"

namespace {

using testing::AnyOf;

constexpr uint16_t vendor = 0x1234;
constexpr uint16_t edu = 0x11E8;

// The device's registers.
constexpr uint32_t reg_identity = 0x00;
constexpr uint32_t reg_liveness = 0x04;  // reads as the complement of what was written
constexpr uint32_t reg_factorial = 0x08;
constexpr uint32_t reg_status = 0x20;  // bit 0: computing
constexpr uint32_t reg_interrupt_status = 0x24;
constexpr uint32_t reg_raise = 0x60;
constexpr uint32_t reg_acknowledge = 0x64;

// The PCI address of the device: the name of its directory in sysfs.
std::string slot_name() {
    for (const auto& device : std::filesystem::directory_iterator("/sys/bus/pci/devices")) {
        if (norv::board::attribute(device.path() / "vendor") == "0x1234" &&
            norv::board::attribute(device.path() / "device") == "0x11e8") {
            return device.path().filename();
        }
    }
    return "";
}

// The Interrupt Disable bit, read from the configuration space.
bool interrupt_disabled() {
    std::ifstream config("/sys/bus/pci/devices/" + slot_name() + "/config", std::ios::binary);
    config.seekg(5);
    return (config.get() & 0x04) != 0;
}

class UioPciOnBoard : public testing::Test {
  protected:
    static void SetUpTestSuite() { bound = norv_uio_load_pci(vendor, edu); }

    UioPciOnBoard() { EXPECT_EQ(norv_uio_open_by_pci_id(vendor, edu, &device), 0U); }
    ~UioPciOnBoard() override {
        norv_uio_write_32(&device, reg_acknowledge, 0xFFFFFFFF);
        norv_uio_disable_irq(&device);
        norv_uio_close(&device);
    }

    void acknowledge() {
        norv_uio_write_32(&device, reg_acknowledge, norv_uio_read_32(&device, reg_interrupt_status));
    }

    static inline uint32_t bound = UINT32_MAX;
    norv_uio_t* device = nullptr;
};

TEST_F(UioPciOnBoard, BindingMakesTheKernelsDriverServeTheDevice) {
    EXPECT_EQ(bound, 0U);
    EXPECT_EQ(std::filesystem::read_symlink("/sys/bus/pci/devices/" + slot_name() + "/driver").filename(),
              "uio_pci_mmap");
}

TEST_F(UioPciOnBoard, AddingAnIdentityAgainReturnsTheKernelsAnswer) {
    const uint32_t answer = norv::board::status_of_adding_again("uio_pci_mmap", "1234 11e8", 9);
    EXPECT_THAT(answer, AnyOf(0U, norv_get_status_by_errno(EEXIST)));
    EXPECT_EQ(norv_uio_load_pci(vendor, edu), answer);
}

TEST_F(UioPciOnBoard, AnIdentityThatNoDeviceHasIsNotFound) {
    norv_uio_t* missing = nullptr;
    EXPECT_EQ(norv_uio_open_by_pci_id(vendor, 0x0001, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_uio_open_by_pci_id(0x0001, edu, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(missing, nullptr);
}

TEST_F(UioPciOnBoard, TheInfoHoldsIdentityAndSlot) {
    norv_uio_info_t info = {};
    char slot[32];
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    EXPECT_EQ(info.vendor, vendor);
    EXPECT_EQ(info.device, edu);
    snprintf(slot, sizeof slot, "%04x:%02x:%02x.%d", info.domain, info.bus, info.slot,
             static_cast<int>(info.function));
    EXPECT_EQ(slot, slot_name());
}

TEST_F(UioPciOnBoard, TheRegistersAreTheDevices) {
    EXPECT_EQ(norv_uio_read_32(&device, reg_identity), 0x010000EDU);
    norv_uio_write_32(&device, reg_liveness, 0x12345678);
    EXPECT_EQ(norv_uio_read_32(&device, reg_liveness), ~0x12345678U);
    norv_uio_write_32(&device, reg_factorial, 10);
    while ((norv_uio_read_32(&device, reg_status) & 1U) != 0) {
    }
    EXPECT_EQ(norv_uio_read_32(&device, reg_factorial), 3628800U);
}

TEST_F(UioPciOnBoard, DisablingAndEnablingShowInTheConfigurationSpace) {
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
    EXPECT_TRUE(interrupt_disabled());
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_FALSE(interrupt_disabled());
}

TEST_F(UioPciOnBoard, AnInterruptIsWaitedForAndMaskedByTheDriver) {
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    norv_uio_write_32(&device, reg_raise, 0x5);
    EXPECT_EQ(norv_uio_wait_irq(&device, 10000), 0U);
    EXPECT_EQ(norv_uio_read_32(&device, reg_interrupt_status), 0x5U);
    EXPECT_TRUE(interrupt_disabled());
}

TEST_F(UioPciOnBoard, ADisabledInterruptComesOnlyWhenItIsEnabledAgain) {
    norv_uio_disable_irq(&device);
    norv_uio_write_32(&device, reg_raise, 1);
    EXPECT_EQ(norv_uio_wait_irq(&device, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&device, 10000), 0U);
}

TEST_F(UioPciOnBoard, NoneOfTenThousandInterruptsIsLost) {
    for (uint32_t number = 1; number <= 10000; ++number) {
        norv_uio_write_32(&device, reg_raise, number);
        ASSERT_EQ(norv_uio_enable_irq(&device), 0U);
        ASSERT_EQ(norv_uio_wait_irq(&device, 10000), 0U) << number;
        ASSERT_EQ(norv_uio_read_32(&device, reg_interrupt_status), number);
        acknowledge();
    }
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(UioPciOnBoard, ClosingClosesBothDescriptors) {
    const auto open_descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = open_descriptors();
    norv_uio_t* second = nullptr;
    ASSERT_EQ(norv_uio_open_by_pci_id(vendor, edu, &second), 0U);
    EXPECT_EQ(open_descriptors(), before + 2);
    norv_uio_close(&second);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(UioPciOnBoard, ADeviceOfAnotherKindHasTheOtherTable) {
    norv_uio_t* plain = nullptr;
    norv_uio_info_t info = {};
    ASSERT_EQ(norv_uio_open_by_name("norv-board-regs", &plain), 0U);
    EXPECT_EQ(norv_uio_get_generic_ops()->get_info(&plain, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(norv_uio_get_pci_ops()->get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    norv_uio_close(&plain);
}

}  // namespace
