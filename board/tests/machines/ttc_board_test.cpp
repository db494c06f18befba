// SPDX-License-Identifier: MIT
// A triple timer counter of a Zynq as a UIO device: registers of real hardware, and interrupts that its
// counter raises, through the kernel's driver uio_pdrv_genirq.
#include <gtest/gtest.h>

#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_mcb_bus.h"
#include "norv_uio.h"

namespace {

using norv::board::comes_true;

// Registers of the first of the three counters.
constexpr uint32_t clock_control = 0x00;
constexpr uint32_t counter_control = 0x0C;
constexpr uint32_t counter_value = 0x18;
constexpr uint32_t interval = 0x24;
constexpr uint32_t interrupt_status = 0x54;  // cleared by a read
constexpr uint32_t interrupt_enable = 0x60;

constexpr uint32_t match_1_of_second = 0x34;
constexpr uint32_t interval_of_second = 0x28;

constexpr uint32_t stopped = 0x21;        // and no waveform
constexpr uint32_t interval_mode = 0x22;  // from 0 to the interval, again and again
constexpr uint32_t restart = 0x10;
constexpr uint32_t interval_reached = 0x01;  // in both interrupt registers
constexpr uint32_t divided_by_65536 = 0x1F;

constexpr int32_t plenty = 60000;  // ms that nothing below needs

class TtcOnBoard : public testing::Test {
  protected:
    TtcOnBoard() {
        EXPECT_EQ(norv_uio_open_by_name("timer", &timer), 0U);
        stop();
    }
    ~TtcOnBoard() override {
        stop();
        norv_uio_close(&timer);
    }

    // Nothing counts, and no interrupt is left that the kernel has not delivered.
    void stop() {
        norv_uio_write_32(&timer, counter_control, stopped);
        norv_uio_write_32(&timer, interrupt_enable, 0);
        norv_uio_read_32(&timer, interrupt_status);
        norv_uio_enable_irq(&timer);
        norv_uio_wait_irq(&timer, 0);
        norv_uio_disable_irq(&timer);
    }
    void count_up_to(uint32_t limit) {
        norv_uio_write_32(&timer, clock_control, divided_by_65536);
        norv_uio_write_32(&timer, interval, limit);
        norv_uio_write_32(&timer, interrupt_enable, interval_reached);
        norv_uio_write_32(&timer, counter_control, interval_mode | restart);
    }

    // Whether the interval was reached since the last call. Other bits report matches.
    bool acknowledge() { return (norv_uio_read_32(&timer, interrupt_status) & interval_reached) != 0; }

    norv_uio_t* timer = nullptr;
};

TEST_F(TtcOnBoard, IsAPlatformDevice) {
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(norv_uio_get_info(&timer, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(info.vendor, 9U);
}

TEST_F(TtcOnBoard, ItsRegistersReadBackAsWritten) {
    norv_uio_write_32(&timer, interval_of_second, 0x1234);
    norv_uio_write_32(&timer, match_1_of_second, 0x0FED);
    EXPECT_EQ(norv_uio_read_32(&timer, interval_of_second), 0x1234U);
    EXPECT_EQ(norv_uio_read_32(&timer, match_1_of_second), 0x0FEDU);
}

TEST_F(TtcOnBoard, ItsRegistersAreReachedThroughABusRecord) {
    norv_mcb_bus_t bus = {};
    const uint32_t written[] = {0x0111, 0x0222};
    uint32_t found[2] = {};
    ASSERT_EQ(norv_uio_open_mcb_bus(&timer, &bus), 0U);
    EXPECT_EQ(bus.write_burst(&bus, interval, written, 2, NORV_MCB_BURST_UP), 0U);
    EXPECT_EQ(bus.read_burst(&bus, interval, found, 2, NORV_MCB_BURST_UP), 0U);
    bus.close(&bus);
    EXPECT_EQ(found[0], 0x0111U);
    EXPECT_EQ(found[1], 0x0222U);
    EXPECT_EQ(norv_uio_read_32(&timer, interval_of_second), 0x0222U);
}

TEST_F(TtcOnBoard, ItsCounterCountsOnlyWhileItRuns) {
    const auto value = [this] { return norv_uio_read_32(&timer, counter_value); };
    const uint32_t before = value();
    usleep(20000);
    EXPECT_EQ(value(), before);
    norv_uio_write_32(&timer, clock_control, divided_by_65536);
    norv_uio_write_32(&timer, counter_control, stopped & ~1U);
    EXPECT_TRUE(comes_true([&] { return value() != before; }));
}

TEST_F(TtcOnBoard, AnInterruptIsWaitedForAndAcknowledged) {
    EXPECT_EQ(norv_uio_enable_irq(&timer), 0U);
    count_up_to(100);
    EXPECT_EQ(norv_uio_wait_irq(&timer, plenty), 0U);
    EXPECT_TRUE(acknowledge());
}

TEST_F(TtcOnBoard, WithoutAnInterruptTheWaitTimesOut) {
    EXPECT_EQ(norv_uio_enable_irq(&timer), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&timer, 0), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_uio_wait_irq(&timer, 20), NORV_STATUS_TIMEOUT);
}

TEST_F(TtcOnBoard, ADisabledInterruptComesOnlyWhenItIsEnabledAgain) {
    EXPECT_EQ(norv_uio_disable_irq(&timer), 0U);
    count_up_to(10);
    EXPECT_TRUE(comes_true([this] { return acknowledge(); }));
    EXPECT_EQ(norv_uio_wait_irq(&timer, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_uio_enable_irq(&timer), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&timer, plenty), 0U);
}

TEST_F(TtcOnBoard, ItInterruptsAgainAndAgainWhileItRuns) {
    count_up_to(10);
    for (int number = 0; number < 200; ++number) {
        ASSERT_EQ(norv_uio_enable_irq(&timer), 0U);
        ASSERT_EQ(norv_uio_wait_irq(&timer, plenty), 0U) << number;
        ASSERT_TRUE(acknowledge()) << number;
    }
}

}  // namespace
