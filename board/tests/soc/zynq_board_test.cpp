// SPDX-License-Identifier: MIT
// Clocks and the system monitor of the board's kernel: a real class, real platform devices and a real IIO
// device.
#include "norv_zynq.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_file.h"

namespace {

using norv::board::attribute;

const std::string monitor = "/sys/bus/iio/devices/iio:device0/";

// What a sensor measures from now on.
void set_reading(const std::string& channel, int raw) {
    std::ofstream("/sys/kernel/debug/norv_board_zynq/" + channel) << raw;
    ASSERT_EQ(attribute(monitor + "in_" + channel + "_raw"), std::to_string(raw));
}

uint32_t zynq_rate(uint32_t index) {
    uint32_t rate = 0;
    EXPECT_EQ(norv_zynq_get_fclk_freq(index, &rate), 0U);
    return rate;
}

uint32_t rate_made_of(uint32_t wanted) {
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &wanted), 0U);
    EXPECT_EQ(zynq_rate(0), wanted);
    return wanted;
}

// ---- clocks: divided from 999999990 Hz

TEST(ZynqClockOnBoard, ARateThatTheClockCannotGenerateReturnsTheOneItGenerates) {
    EXPECT_EQ(rate_made_of(100000000), 99999999U);
    EXPECT_EQ(rate_made_of(148500000), 142857141U);
    EXPECT_EQ(rate_made_of(2000000000), 999999990U);
}

TEST(ZynqClockOnBoard, TheDriverRefusesARateOfZeroAndOneThatIsPrintedNegative) {
    const uint32_t before = zynq_rate(0);
    for (uint32_t rate : {0U, 0x80000000U}) {
        const uint32_t wanted = rate;
        EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(rate, wanted);
    }
    EXPECT_EQ(zynq_rate(0), before);
}

TEST(ZynqClockOnBoard, AClockThatIsInUseCannotBeSet) {
    uint32_t rate = 100000000;
    EXPECT_EQ(norv_zynq_set_fclk_freq(3, &rate), norv_get_status_by_errno(EBUSY));
    EXPECT_EQ(rate, 100000000U);
}

TEST(ZynqClockOnBoard, EachClockHasARateOfItsOwn) {
    uint32_t first = 50000000;
    uint32_t second = 200000000;
    EXPECT_EQ(norv_zynq_set_fclk_freq(1, &first), 0U);
    EXPECT_EQ(norv_zynq_set_fclk_freq(2, &second), 0U);
    EXPECT_EQ(zynq_rate(1), 49999999U);
    EXPECT_EQ(zynq_rate(2), 199999998U);
}

TEST(ZynqClockOnBoard, AClockThatDoesNotExistIsNotFound) {
    uint32_t rate = 100000000;
    EXPECT_EQ(norv_zynq_set_fclk_freq(4, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynq_get_fclk_freq(4, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(4, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynq_set_fclk_reset(4, true), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(rate, 100000000U);
}

TEST(ZynqClockOnBoard, AClockIsHeldInResetAndReleased) {
    EXPECT_EQ(norv_zynq_set_fclk_reset(2, true), 0U);
    EXPECT_EQ(attribute("/sys/class/fclkcfg/fclk2/reset"), "1");
    EXPECT_EQ(attribute("/sys/class/fclkcfg/fclk1/reset"), "0");
    EXPECT_EQ(norv_zynq_set_fclk_reset(2, false), 0U);
    EXPECT_EQ(attribute("/sys/class/fclkcfg/fclk2/reset"), "0");
}

TEST(ZynqMpClockOnBoard, TheRateIsThatOfThePlatformDevice) {
    std::ofstream("/sys/devices/platform/fclk1/set_rate") << 187500000;
    uint32_t rate = 0;
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(1, &rate), 0U);
    EXPECT_EQ(rate, 199999998U);
}

// ---- sensors

TEST(ZynqSensorOnBoard, ATemperatureFollowsItsReading) {
    int32_t temperature = 0;
    set_reading("temp0", 2500);
    EXPECT_EQ(norv_zynq_get_temperature(&temperature), 0U);
    EXPECT_EQ(temperature, 3445);
    set_reading("temp0", 2330);
    EXPECT_EQ(norv_zynq_get_temperature(&temperature), 0U);
    EXPECT_EQ(temperature, 1354);
}

TEST(ZynqSensorOnBoard, AReadingCannotBeWritten) {
    set_reading("temp0", 2500);
    const std::string path = monitor + "in_temp0_raw";
    uint32_t length = 4;
    EXPECT_EQ(norv_write_device("2330", &length, "%s", path.c_str()), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute(path), "2500");
}

TEST(ZynqSensorOnBoard, AVoltageIsReadInBothRanges) {
    int32_t voltage = 0;
    set_reading("voltage0_vccint", 1365);
    EXPECT_EQ(norv_zynq_get_voltage("voltage0_vccint", false, &voltage), 0U);
    EXPECT_EQ(voltage, 1000);
    EXPECT_EQ(norv_zynq_get_voltage("voltage8", true, &voltage), 0U);
    EXPECT_EQ(voltage, 333);
}

TEST(ZynqSensorOnBoard, AFailedConversionReturnsTheStatusOfTheDriver) {
    int32_t voltage = 5;
    EXPECT_EQ(norv_zynq_get_voltage("voltage11", false, &voltage), norv_get_status_by_errno(EIO));
    EXPECT_EQ(voltage, 5);
}

TEST(ZynqSensorOnBoard, AChannelThatDoesNotExistIsNotFound) {
    int32_t voltage = 5;
    EXPECT_EQ(norv_zynq_get_voltage("voltage99", false, &voltage), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage99", &voltage), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(voltage, 5);
}

TEST(ZynqMpSensorOnBoard, BothTemperaturesComeFromTheirChannels) {
    int32_t ps = 0;
    int32_t pl = 0;
    set_reading("temp0_ps_temp", 41000);
    set_reading("temp2_pl_temp", 40851);
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(&ps), 0U);
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&pl), 0U);
    EXPECT_EQ(ps, 3841);
    EXPECT_EQ(pl, 3725);
}

TEST(ZynqMpSensorOnBoard, AVoltageIsItsReadingTimesItsScale) {
    int32_t voltage = 0;
    set_reading("voltage1_vcc_psintlp", 18568);
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage1_vcc_psintlp", &voltage), 0U);
    EXPECT_EQ(voltage, 850);
}

TEST(ZynqMpSensorOnBoard, AMissingReadingIsZeroAndAMissingScaleIsNotFound) {
    int32_t voltage = 5;
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage9", &voltage), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(voltage, 5);
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage10", &voltage), 0U);
    EXPECT_EQ(voltage, 0);
}

}  // namespace
