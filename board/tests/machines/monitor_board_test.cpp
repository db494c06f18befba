// SPDX-License-Identifier: MIT
// The system monitor of a Zynq-7000: temperatures and voltages of the kernel's driver for it. In the emulator
// every reading is 0.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_zynq.h"

namespace {

using norv::board::attribute;

const std::string monitor = "/sys/bus/iio/devices/iio:device0/";

double number(const std::string& name) {
    return std::stod(attribute(monitor + name));
}

TEST(MonitorOnBoard, IsTheKernelsOwn) {
    EXPECT_EQ(attribute(monitor + "name"), "xadc");
}

// The driver's own scale and offset give thousandths of a degree.
TEST(MonitorOnBoard, TheTemperatureIsThatOfItsDriver) {
    int32_t hundredths = 0;
    EXPECT_EQ(norv_zynq_get_temperature(&hundredths), 0U);
    const double wanted =
        (number("in_temp0_raw") + number("in_temp0_offset")) * number("in_temp0_scale") / 10;
    EXPECT_NEAR(hundredths, wanted, 20);
}

TEST(MonitorOnBoard, EverySupplyVoltageIsThatOfItsDriver) {
    for (const std::string channel : {"voltage0_vccint", "voltage1_vccaux", "voltage2_vccbram",
                                      "voltage3_vccpint", "voltage4_vccpaux", "voltage5_vccoddr"}) {
        int32_t millivolts = -1;
        EXPECT_EQ(norv_zynq_get_voltage(channel.c_str(), false, &millivolts), 0U) << channel;
        EXPECT_NEAR(millivolts, number("in_" + channel + "_raw") * number("in_" + channel + "_scale"), 1)
            << channel;
    }
}

TEST(MonitorOnBoard, AChannelThatDoesNotExistIsNotFound) {
    int32_t millivolts = 5;
    EXPECT_EQ(norv_zynq_get_voltage("voltage99", false, &millivolts), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(millivolts, 5);
}

}  // namespace
