// SPDX-License-Identifier: MIT
// The register-bus record over a UIO device of a real kernel: what it writes, the driver sees.
#include "norv_mcb_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "norv/uio.hpp"
#include "uio_debug.hpp"

namespace {

using norv::board::driver_register;
using testing::ElementsAre;

class McbBusOnBoard : public testing::Test {
  protected:
    McbBusOnBoard() { EXPECT_EQ(norv_uio_open_mcb_bus(&handle, &bus), 0U); }
    ~McbBusOnBoard() override { bus.close(&bus); }

    const norv::uio device = norv::uio::open_by_name("norv-board-regs").value();
    norv_uio_t* handle = device.get();
    norv_mcb_bus_t bus = {};
    std::array<uint32_t, 4> values = {};
};

TEST_F(McbBusOnBoard, SingleRegistersReadBackAndReachTheDriver) {
    uint32_t identity = 0;
    EXPECT_EQ(bus.read(&bus, norv::board::reg_identity, &identity), 0U);
    EXPECT_EQ(identity, 0x4E4F5256U);
    EXPECT_EQ(bus.write(&bus, 0x200, 5), 0U);
    EXPECT_EQ(bus.write_based(&bus, 0x204, 6), 0U);
    EXPECT_EQ(driver_register(0x200), 5U);
    EXPECT_EQ(driver_register(0x204), 6U);
    EXPECT_EQ(bus.read_based(&bus, 0x204, &identity), 0U);
    EXPECT_EQ(identity, 6U);
}

TEST_F(McbBusOnBoard, ListsReadBackAndReachTheDriver) {
    const norv_mcb_reg_value_t list[] = {{0x300, 1}, {0x308, 2}};
    const uint32_t addresses[] = {0x308, 0x300};
    EXPECT_EQ(bus.write_list(&bus, list, 2), 0U);
    EXPECT_EQ(driver_register(0x308), 2U);
    EXPECT_EQ(bus.read_list(&bus, addresses, values.data(), 2), 0U);
    EXPECT_THAT(values, ElementsAre(2, 1, 0, 0));
}

TEST_F(McbBusOnBoard, BasedListsIgnoreTheirBase) {
    const norv_mcb_reg_value_t list[] = {{0x400, 3}};
    const uint32_t addresses[] = {0x400};
    EXPECT_EQ(bus.write_list_based(&bus, 0x100000, list, 1), 0U);
    EXPECT_EQ(driver_register(0x400), 3U);
    EXPECT_EQ(bus.read_list_based(&bus, 0x100000, addresses, values.data(), 1), 0U);
    EXPECT_EQ(values[0], 3U);
}

TEST_F(McbBusOnBoard, BurstsGoUpDownAndNowhere) {
    const uint32_t written[] = {1, 2, 3};
    EXPECT_EQ(bus.write_burst(&bus, 0x500, written, 3, NORV_MCB_BURST_UP), 0U);
    EXPECT_EQ(driver_register(0x508), 3U);
    EXPECT_EQ(bus.write_burst_based(&bus, 0x600, written, 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_EQ(driver_register(0x5F8), 3U);
    EXPECT_EQ(bus.write_burst(&bus, 0x700, written, 3, NORV_MCB_BURST_FIXED), 0U);
    EXPECT_EQ(driver_register(0x700), 3U);
    EXPECT_EQ(driver_register(0x704), 0U);
    EXPECT_EQ(bus.read_burst(&bus, 0x500, values.data(), 3, NORV_MCB_BURST_UP), 0U);
    EXPECT_THAT(values, ElementsAre(1, 2, 3, 0));
    EXPECT_EQ(bus.read_burst_based(&bus, 0x600, values.data(), 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_THAT(values, ElementsAre(1, 2, 3, 0));
}

}  // namespace
