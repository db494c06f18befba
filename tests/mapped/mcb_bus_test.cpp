// SPDX-License-Identifier: MIT
// Register-bus records over UIO devices.
#include "norv_mcb_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "mapped/uio_devices.hpp"
#include "support/failure_sweep.hpp"

namespace {

using norv::test::add_uio;
using norv::test::kernel_double;
using norv::test::uio_node;
using testing::ElementsAre;
using testing::IsEmpty;

// A bus over uio0; register n is at address 4 n.
class McbBus : public testing::Test {
  protected:
    McbBus() {
        memset(&bus, 0xA5, sizeof bus);
        EXPECT_EQ(norv_uio_open_by_idx(0, &device), 0U);
        EXPECT_EQ(norv_uio_open_mcb_bus(&device, &bus), 0U);
        for (uint32_t number = 0; number < node->registers.size(); ++number) {
            node->registers[number] = 1000 + number;
        }
        kernel.forget_calls();
    }
    ~McbBus() override {
        bus.close(&bus);
        norv_uio_close(&device);
    }

    kernel_double kernel;
    std::shared_ptr<uio_node> node = add_uio(kernel, "uio0", "fpga-regs");
    norv_uio_t* device = nullptr;
    norv_mcb_bus_t bus;
    std::array<uint32_t, 4> values = {9, 9, 9, 9};
};

TEST_F(McbBus, OpeningFillsEveryOperationAndClearsTheFlags) {
    EXPECT_EQ(bus.flags, 0U);
    EXPECT_NE(bus.read_list_based, nullptr);
    EXPECT_NE(bus.write_list_based, nullptr);
    EXPECT_NE(bus.close, nullptr);
    EXPECT_NE(bus.context, nullptr);
}

TEST_F(McbBus, ReadReadsOneRegister) {
    EXPECT_EQ(bus.read(&bus, 0x10, &values[1]), 0U);
    EXPECT_THAT(values, ElementsAre(9, 1004, 9, 9));
}

TEST_F(McbBus, WriteWritesOneRegister) {
    EXPECT_EQ(bus.write(&bus, 0x10, 5), 0U);
    EXPECT_EQ(node->registers[3], 1003U);
    EXPECT_EQ(node->registers[4], 5U);
    EXPECT_EQ(node->registers[5], 1005U);
}

TEST_F(McbBus, ReadListReadsTheRegisterAtEachAddress) {
    const uint32_t addresses[] = {0x20, 0x00, 0x20};
    EXPECT_EQ(bus.read_list(&bus, addresses, values.data(), 3), 0U);
    EXPECT_THAT(values, ElementsAre(1008, 1000, 1008, 9));
}

TEST_F(McbBus, WriteListWritesThePairsInOrder) {
    const norv_mcb_reg_value_t list[] = {{0x20, 1}, {0x10, 2}, {0x20, 3}};
    EXPECT_EQ(bus.write_list(&bus, list, 3), 0U);
    EXPECT_EQ(node->registers[8], 3U);
    EXPECT_EQ(node->registers[4], 2U);
}

TEST_F(McbBus, AReadBurstOfMode0GoesUp) {
    EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, NORV_MCB_BURST_UP), 0U);
    EXPECT_THAT(values, ElementsAre(1064, 1065, 1066, 9));
}

TEST_F(McbBus, AReadBurstOfMode1GoesDown) {
    EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_THAT(values, ElementsAre(1064, 1063, 1062, 9));
}

TEST_F(McbBus, AReadBurstOfAnyOtherModeStaysAtOneAddress) {
    for (const int32_t mode : {2, 3, -1, INT32_MIN}) {
        values = {9, 9, 9, 9};
        EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, mode), 0U);
        EXPECT_THAT(values, ElementsAre(1064, 1064, 1064, 9)) << mode;
    }
}

TEST_F(McbBus, AWriteBurstOfMode0GoesUp) {
    const uint32_t written[] = {1, 2, 3};
    EXPECT_EQ(bus.write_burst(&bus, 0x100, written, 3, 0), 0U);
    EXPECT_EQ(node->registers[64], 1U);
    EXPECT_EQ(node->registers[65], 2U);
    EXPECT_EQ(node->registers[66], 3U);
    EXPECT_EQ(node->registers[67], 1067U);
}

TEST_F(McbBus, AWriteBurstOfMode1GoesDown) {
    const uint32_t written[] = {1, 2, 3};
    EXPECT_EQ(bus.write_burst(&bus, 0x100, written, 3, 1), 0U);
    EXPECT_EQ(node->registers[0x100 / 4], 1U);
    EXPECT_EQ(node->registers[0xFC / 4], 2U);
    EXPECT_EQ(node->registers[0xF8 / 4], 3U);
    EXPECT_EQ(node->registers[0xF4 / 4], 1061U);
}

TEST_F(McbBus, AWriteBurstOfMode2WritesEverythingToOneAddress) {
    const uint32_t written[] = {1, 2, 3};
    EXPECT_EQ(bus.write_burst(&bus, 0x100, written, 3, 2), 0U);
    EXPECT_EQ(node->registers[63], 1063U);
    EXPECT_EQ(node->registers[64], 3U);
    EXPECT_EQ(node->registers[65], 1065U);
}

TEST_F(McbBus, ACountOf0DoesNothing) {
    EXPECT_EQ(bus.read_list(&bus, nullptr, nullptr, 0), 0U);
    EXPECT_EQ(bus.write_list(&bus, nullptr, 0), 0U);
    EXPECT_EQ(bus.read_burst(&bus, 0, nullptr, 0, 0), 0U);
    EXPECT_EQ(bus.write_burst(&bus, 0, nullptr, 0, 0), 0U);
    EXPECT_EQ(bus.read_list_based(&bus, 0, nullptr, nullptr, 0), 0U);
    EXPECT_EQ(bus.write_list_based(&bus, 0, nullptr, 0), 0U);
}

TEST_F(McbBus, ACountOf0NeedsNeitherADeviceNorAnOpenBus) {
    norv_uio_close(&device);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(bus.read_list(&bus, nullptr, nullptr, 0), 0U);
        EXPECT_EQ(bus.write_list(&bus, nullptr, 0), 0U);
        EXPECT_EQ(bus.read_burst(&bus, 0, nullptr, 0, 0), 0U);
        EXPECT_EQ(bus.write_burst(&bus, 0, nullptr, 0, 0), 0U);
        bus.close(&bus);
    }
}

TEST_F(McbBus, CountsHave32Bits) {
    constexpr uint32_t count = 65537;
    std::vector<uint32_t> addresses(count, 0x10);
    std::vector<uint32_t> many(count);
    addresses.back() = 0x20;
    EXPECT_EQ(bus.read_list(&bus, addresses.data(), many.data(), count), 0U);
    EXPECT_EQ(many.back(), 1008U);
    EXPECT_EQ(bus.read_burst(&bus, 0x30, many.data(), count, NORV_MCB_BURST_FIXED), 0U);
    EXPECT_EQ(many.back(), 1012U);
    many.back() = 5;
    EXPECT_EQ(bus.write_burst(&bus, 0x30, many.data(), count, NORV_MCB_BURST_FIXED), 0U);
    EXPECT_EQ(node->registers[0x30 / 4], 5U);
    std::vector<norv_mcb_reg_value_t> list(count, {0x40, 6});
    list.back().value = 7;
    EXPECT_EQ(bus.write_list(&bus, list.data(), count), 0U);
    EXPECT_EQ(node->registers[0x40 / 4], 7U);
}

// A node with more than 64 KiB of registers.
class large_node : public uio_node {
  public:
    std::vector<uint32_t> many = std::vector<uint32_t>(0x10010 / 4);

    intptr_t map(size_t, int, int, off_t) override { return reinterpret_cast<intptr_t>(many.data()); }
};

TEST_F(McbBus, AddressesHave32Bits) {
    const auto large = std::make_shared<large_node>();
    norv::test::add_mapped_device(kernel, "uio", "uio1", "large", large);
    norv_uio_close(&device);
    EXPECT_EQ(norv_uio_open_by_idx(1, &device), 0U);
    large->many[0x10000 / 4] = 7;
    large->many[0x10004 / 4] = 8;
    EXPECT_EQ(bus.read_burst(&bus, 0x10000, values.data(), 2, NORV_MCB_BURST_UP), 0U);
    EXPECT_THAT(values, ElementsAre(7, 8, 9, 9));
    EXPECT_EQ(bus.write_burst(&bus, 0x10008, values.data(), 2, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_EQ(large->many[0x10008 / 4], 7U);
    EXPECT_EQ(large->many[0x10004 / 4], 8U);
}

TEST_F(McbBus, TheBasedSinglesAndBurstsAreTheSameOperations) {
    EXPECT_EQ(bus.read_based, bus.read);
    EXPECT_EQ(bus.write_based, bus.write);
    EXPECT_EQ(bus.read_burst_based, bus.read_burst);
    EXPECT_EQ(bus.write_burst_based, bus.write_burst);
}

// quirk 167
TEST_F(McbBus, ABasedWriteListIgnoresItsBase) {
    const norv_mcb_reg_value_t list[] = {{0x10, 5}};
    EXPECT_EQ(bus.write_list_based(&bus, 0x1000, list, 1), 0U);
    EXPECT_EQ(node->registers[4], 5U);
}

// quirk 167
TEST_F(McbBus, ABasedReadListIgnoresItsBase) {
    const uint32_t addresses[] = {0x10, 0x20};
    EXPECT_EQ(bus.read_list_based(&bus, 0x1000, addresses, values.data(), 2), 0U);
    EXPECT_THAT(values, ElementsAre(1004, 1008, 9, 9));
}

TEST_F(McbBus, NoOperationMakesASystemCall) {
    bus.write(&bus, 0, 1);
    bus.read_burst(&bus, 0, values.data(), 4, 0);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 168
TEST_F(McbBus, ClosingReleasesTheContextAndLeavesTheDeviceOpen) {
    const size_t before = kernel.allocations();
    bus.close(&bus);
    EXPECT_EQ(bus.context, nullptr);
    EXPECT_EQ(kernel.allocations(), before - 1);
    EXPECT_EQ(norv_uio_read_32(&device, 0), 1000U);
    bus.close(&bus);
    bus.close(nullptr);
}

TEST_F(McbBus, TheBusFollowsTheHandleVariable) {
    const auto other = add_uio(kernel, "uio1", "other");
    norv_uio_close(&device);
    EXPECT_EQ(norv_uio_open_by_idx(1, &device), 0U);
    EXPECT_EQ(bus.write(&bus, 0, 42), 0U);
    EXPECT_EQ(other->registers[0], 42U);
}

TEST_F(McbBus, ANullPointerIsAnInvalidArgument) {
    norv_mcb_bus_t second;
    EXPECT_EQ(norv_uio_open_mcb_bus(nullptr, &second), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uio_open_mcb_bus(&device, nullptr), NORV_STATUS_INVALID_ARG);
}

TEST_F(McbBus, WithoutMemoryTheRecordIsCleared) {
    norv_mcb_bus_t second;
    memset(&second, 0xA5, sizeof second);
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_uio_open_mcb_bus(&device, &second), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(second.flags, 0U);
    EXPECT_EQ(second.read, nullptr);
    EXPECT_EQ(second.close, nullptr);
    EXPECT_EQ(second.context, nullptr);
}

// ---- failure sweep

uint32_t use_bus() {
    norv_uio_t* device = nullptr;
    norv_mcb_bus_t bus = {};
    uint32_t status = norv_uio_open_by_idx(0, &device);
    if (status == 0) {
        status = norv_uio_open_mcb_bus(&device, &bus);
    }
    if (status == 0) {
        EXPECT_EQ(bus.write(&bus, 4, 5), 0U);
        bus.close(&bus);
    }
    norv_uio_close(&device);
    return status;
}

TEST(McbBusSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::failure_sweep([](kernel_double& kernel) { add_uio(kernel, "uio0", "fpga-regs"); }, use_bus);
}

}  // namespace
