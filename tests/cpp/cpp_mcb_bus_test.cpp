// SPDX-License-Identifier: MIT
// The owner of a register bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <span>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "mapped/uio_devices.hpp"
#include "mapped/umcb_devices.hpp"
#include "norv/mcb_bus.hpp"

namespace {

using norv::mcb_burst;
using norv::mcb_bus;
using norv::test::add_uio;
using norv::test::add_umcb;
using norv::test::kernel_double;
using norv::test::uio_node;
using testing::Each;
using testing::ElementsAre;

using values = std::array<uint32_t, 3>;

// A bus over uio0, whose register n is at address 4 n and has the value 1000 + n.
class CppMcbBus : public testing::Test {
  protected:
    CppMcbBus() { fill(*node); }

    static void fill(uio_node& node) {
        for (uint32_t number = 0; number < node.registers.size(); ++number) {
            node.registers[number] = 1000 + number;
        }
    }
    static std::shared_ptr<uio_node> add_region(kernel_double& kernel) {
        kernel.add_file("/sys/dev/char/0:0/maps/map0/size", "0x1000\n");
        return add_uio(kernel, "uio0", "fpga-regs");
    }

    kernel_double kernel;
    std::shared_ptr<uio_node> node = add_region(kernel);
    norv::uio device = norv::uio::open(0).value();
    mcb_bus bus = mcb_bus::open(device).value();
};

TEST_F(CppMcbBus, ABusIsClosedWithItsOwner) {
    const size_t before = kernel.allocations();
    {
        const mcb_bus second = mcb_bus::open(device).value();
        EXPECT_EQ(kernel.allocations(), before + 1);
    }
    EXPECT_EQ(kernel.allocations(), before);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(CppMcbBus, WithoutMemoryThereIsNoBus) {
    kernel.fail("norv_malloc", 0);
    EXPECT_EQ(mcb_bus::open(device).status(), NORV_STATUS_NO_MEMORY);
}

TEST_F(CppMcbBus, RegistersAreReadAndWritten) {
    EXPECT_EQ(bus.read(0x10).value(), 1004U);
    EXPECT_EQ(bus.write(0x10, 5), norv::ok);
    EXPECT_EQ(node->registers[4], 5U);
    EXPECT_EQ(bus.read_based(0x14).value(), 1005U);
    EXPECT_EQ(bus.write_based(0x14, 6), norv::ok);
    EXPECT_EQ(node->registers[5], 6U);
}

TEST_F(CppMcbBus, RegistersAndFieldsHaveTypes) {
    constexpr norv::reg control(0x10);
    constexpr norv::reg<int32_t> signed_register(0x18);
    constexpr norv::field<bool> enable(control, 0x1);
    constexpr norv::field<uint8_t> level(control, 0xFF00);
    EXPECT_EQ(bus.write(level(3)), norv::ok);
    EXPECT_EQ(node->registers[4], 0x300U);
    EXPECT_EQ(bus.modify(enable(true)), norv::ok);
    EXPECT_EQ(node->registers[4], 0x301U);
    EXPECT_EQ(bus.read(level).value(), 3);
    EXPECT_EQ(bus.write(signed_register, -1), norv::ok);
    EXPECT_EQ(bus.read(signed_register).value(), -1);
}

TEST_F(CppMcbBus, ListsAreReadAndWrittenInOrder) {
    const values addresses = {0x20, 0x00, 0x20};
    values read = {};
    EXPECT_EQ(bus.read_list(addresses, read), norv::ok);
    EXPECT_THAT(read, ElementsAre(1008, 1000, 1008));
    const mcb_bus::reg_value list[] = {{0x20, 1}, {0x10, 2}, {0x20, 3}};
    EXPECT_EQ(bus.write_list(list), norv::ok);
    EXPECT_EQ(node->registers[8], 3U);
    EXPECT_EQ(node->registers[4], 2U);
}

// quirk 167
TEST_F(CppMcbBus, AUioDeviceIgnoresTheBase) {
    const uint32_t address = 0x20;
    uint32_t read = 0;
    EXPECT_EQ(bus.read_list_based(0xFFFFFF00, {&address, 1}, {&read, 1}), norv::ok);
    EXPECT_EQ(read, 1008U);
    const mcb_bus::reg_value list[] = {{0x24, 1}};
    EXPECT_EQ(bus.write_list_based(0x100, list), norv::ok);
    EXPECT_EQ(node->registers[9], 1U);
}

TEST_F(CppMcbBus, BurstsGoUpDownOrStay) {
    values read = {};
    EXPECT_EQ(bus.read_burst(0x10, read), norv::ok);
    EXPECT_THAT(read, ElementsAre(1004, 1005, 1006));
    EXPECT_EQ(bus.read_burst(0x10, read, mcb_burst::down), norv::ok);
    EXPECT_THAT(read, ElementsAre(1004, 1003, 1002));
    EXPECT_EQ(bus.read_burst(0xFFC, read, mcb_burst::down), norv::ok) << "from the region's end";
    EXPECT_THAT(read, ElementsAre(2023, 2022, 2021));
    EXPECT_EQ(bus.read_burst_based(0xFFC, read, mcb_burst::fixed), norv::ok);
    EXPECT_THAT(read, Each(2023));
    EXPECT_EQ(bus.write_burst(0x20, values{1, 2, 3}), norv::ok);
    EXPECT_EQ(bus.write_burst_based(0x10, values{4, 5, 6}, mcb_burst::down), norv::ok);
    EXPECT_THAT(std::span(node->registers).first(11),
                ElementsAre(1000, 1001, 6, 5, 4, 1005, 1006, 1007, 1, 2, 3));
}

TEST_F(CppMcbBus, WhatLeavesTheRegionIsAnInvalidArgument) {
    values read = {};
    EXPECT_EQ(bus.read(0x1000).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read(2).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write(0x1000, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_list(values{0, 4, 0x1000}, read), NORV_STATUS_INVALID_ARG);
    const mcb_bus::reg_value list[] = {{0, 1}, {0x1000, 2}};
    EXPECT_EQ(bus.write_list(list), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_burst(0xFF8, read), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_burst(4, read, mcb_burst::down), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_burst(0xFFFFFFFC, read), NORV_STATUS_INVALID_ARG);
    // A count so large that the address of the last one is that of the first again.
    EXPECT_EQ(bus.read_burst(0, {read.data(), 0x40000001}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_burst(0, {read.data(), 0x40000001}, mcb_burst::down), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(node->registers[0], 1000U);
    EXPECT_THAT(read, Each(0));
    EXPECT_EQ(bus.read_burst(0xFF4, read), norv::ok);
    EXPECT_EQ(bus.read_burst(8, read, mcb_burst::down), norv::ok);
    EXPECT_EQ(bus.read_burst(0x1000, std::span<uint32_t>()), norv::ok);
}

TEST_F(CppMcbBus, ArraysOfDifferentLengthsAreAnInvalidArgument) {
    values read = {};
    const uint32_t address = 0;
    EXPECT_EQ(bus.read_list({&address, 1}, read), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_list_based(0, {&address, 1}, read), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(read, Each(0));
}

// A bus over umcb1.
class CppUmcbBus : public testing::Test {
  protected:
    kernel_double kernel;
    std::shared_ptr<norv::test::umcb_node> node = add_umcb(kernel, "umcb1", "control");
    norv::umcb device = norv::umcb::open(1).value();
    mcb_bus bus = mcb_bus::open(device).value();
};

// quirk 166
TEST_F(CppUmcbBus, AUmcbDeviceAddsTheBaseWith32Bits) {
    node->registers[0x28 / 4] = 7;
    const uint32_t address = 0x28 - 0xFFFFFF00U;
    uint32_t read = 0;
    EXPECT_EQ(bus.read_list_based(0xFFFFFF00, {&address, 1}, {&read, 1}), norv::ok);
    EXPECT_EQ(read, 7U);
    const mcb_bus::reg_value inside[] = {{0x28, 1}};
    EXPECT_EQ(bus.write_list_based(0x100, inside), norv::ok);
    EXPECT_EQ(node->registers[0x128 / 4], 1U);
    EXPECT_EQ(bus.write_list_based(0x1000, inside), NORV_STATUS_INVALID_ARG);
}

// ---- moving

TEST_F(CppMcbBus, ABusThatWasMovedFromIsAnInvalidArgument) {
    mcb_bus other = std::move(bus);
    values none = {};
    EXPECT_EQ(bus.read(0).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write(0, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_list(none, none), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_list({}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_burst(0, none), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_burst(0, {}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.modify({0, 1, 1}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.get(), nullptr);
    EXPECT_EQ(other.read(0).value(), 1000U);
}

TEST_F(CppMcbBus, ABusWhoseDeviceWasMovedIsAnInvalidArgument) {
    const norv::uio elsewhere = std::move(device);
    values read = {};
    EXPECT_EQ(bus.read(0).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_list(values{}, read), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(mcb_bus::open(device).status(), NORV_STATUS_INVALID_ARG);
}

TEST_F(CppMcbBus, MovingIntoAnOpenBusClosesIt) {
    const size_t before = kernel.allocations();
    bus = mcb_bus::open(device).value();
    EXPECT_EQ(kernel.allocations(), before);
    EXPECT_EQ(bus.read(0x10).value(), 1004U);
}

// ---- failures

TEST(CppMcbBusSweep, NothingLeaksThroughTheOwners) {
    norv::test::owner_sweep([](kernel_double& kernel) { add_uio(kernel, "uio0", "fpga-regs"); },
                            [] {
                                norv::result<norv::uio> device = norv::uio::open(0);
                                if (!device) {
                                    return device.status().number();
                                }
                                norv::result<mcb_bus> bus = mcb_bus::open(*device);
                                return bus ? bus->write(0, 1).number() : bus.status().number();
                            });
}

}  // namespace
