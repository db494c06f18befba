// SPDX-License-Identifier: MIT
// PWM channels of a real kernel. On chip 0, channels 0 and 1 are wired to each other, and so are 2 and 3: a
// capture on one measures the signal of the other.
#include "norv_linux_pwm.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "../support/attribute.hpp"
#include "norv_status.h"

namespace {

using norv::board::attribute;

std::string channel_path(const norv_linux_pwm_t& pwm, const std::string& name = "") {
    return "/sys/class/pwm/pwmchip" + std::to_string(pwm.chip) + "/pwm" + std::to_string(pwm.channel) + "/" +
           name;
}

bool is_exported(const norv_linux_pwm_t& pwm) {
    struct stat found {};
    return stat(channel_path(pwm).c_str(), &found) == 0;
}

struct measured {
    uint32_t status = 0;
    uint32_t period = 0;
    uint32_t duty = 0;
};

class PwmOnBoard : public testing::Test {
  protected:
    PwmOnBoard() {
        EXPECT_EQ(norv_linux_pwm_open(0, 2, &output), 0U);
        EXPECT_EQ(norv_linux_pwm_open(0, 3, &input), 0U);
    }
    ~PwmOnBoard() override {
        norv_linux_pwm_enable(&output, false);
        norv_linux_pwm_close(&input);
        norv_linux_pwm_close(&output);
    }

    void generate(uint32_t period, uint32_t duty) {
        norv_linux_pwm_set_duty(&output, 0);  // refused while there is no period
        EXPECT_EQ(norv_linux_pwm_set_period(&output, period), 0U);
        EXPECT_EQ(norv_linux_pwm_set_duty(&output, duty), 0U);
        EXPECT_EQ(norv_linux_pwm_enable(&output, true), 0U);
    }
    measured measure() {
        measured result;
        result.status = norv_linux_pwm_get_capture(&input, &result.period, &result.duty);
        return result;
    }

    norv_linux_pwm_t output = {};
    norv_linux_pwm_t input = {};
};

TEST_F(PwmOnBoard, OpeningExportsAndClosingUnexports) {
    EXPECT_TRUE(is_exported(output));
    norv_linux_pwm_close(&output);
    EXPECT_FALSE(is_exported(output));
    EXPECT_EQ(norv_linux_pwm_open(0, 2, &output), 0U);
    EXPECT_TRUE(is_exported(output));
}

TEST_F(PwmOnBoard, AChannelThatIsAlreadyExportedCanBeOpened) {
    norv_linux_pwm_t second;
    EXPECT_EQ(norv_linux_pwm_open(0, 2, &second), 0U);
    norv_linux_pwm_close(&second);
    EXPECT_FALSE(is_exported(output));
}

TEST_F(PwmOnBoard, TheOtherEndMeasuresTheSignal) {
    generate(20000, 5000);
    const measured first = measure();
    EXPECT_EQ(first.status, 0U);
    EXPECT_EQ(first.period, 20000U);
    EXPECT_EQ(first.duty, 5000U);
    generate(1000000000, 999999999);
    const measured second = measure();
    EXPECT_EQ(second.status, 0U);
    EXPECT_EQ(second.period, 1000000000U);
    EXPECT_EQ(second.duty, 999999990U);
}

TEST_F(PwmOnBoard, TheSignalIsRoundedTo10NsAndTheAttributesAreNot) {
    generate(20009, 5004);
    const measured signal = measure();
    EXPECT_EQ(signal.period, 20000U);
    EXPECT_EQ(signal.duty, 5000U);
    EXPECT_EQ(attribute(channel_path(output, "period")), "20009");
    EXPECT_EQ(attribute(channel_path(output, "duty_cycle")), "5004");
}

TEST_F(PwmOnBoard, AnInversedSignalIsLowForItsDuty) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_enable(&output, false), 0U);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&output, true), 0U);
    EXPECT_EQ(norv_linux_pwm_enable(&output, true), 0U);
    EXPECT_EQ(measure().duty, 15000U);
    EXPECT_EQ(norv_linux_pwm_enable(&output, false), 0U);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&output, false), 0U);
    EXPECT_EQ(norv_linux_pwm_enable(&output, true), 0U);
    EXPECT_EQ(measure().duty, 5000U);
}

TEST_F(PwmOnBoard, ThePolarityOfARunningSignalStays) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&output, true), NORV_STATUS_ERRNO_BASE + EBUSY);
    EXPECT_EQ(attribute(channel_path(output, "polarity")), "normal");
}

TEST_F(PwmOnBoard, WithoutASignalACaptureTimesOut) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_enable(&output, false), 0U);
    EXPECT_EQ(measure().status, NORV_STATUS_TIMEOUT);
}

// quirk 42
TEST_F(PwmOnBoard, ASignalContinuesAfterItsChannelWasClosed) {
    generate(20000, 5000);
    norv_linux_pwm_close(&output);
    const measured afterwards = measure();
    EXPECT_EQ(afterwards.status, 0U);
    EXPECT_EQ(afterwards.duty, 5000U);
    EXPECT_EQ(norv_linux_pwm_open(0, 2, &output), 0U);
    EXPECT_EQ(attribute(channel_path(output, "enable")), "1");
}

TEST_F(PwmOnBoard, ASignalThatIsStoppedBeforeItsChannelIsClosedIsGone) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_enable(&output, false), 0U);
    norv_linux_pwm_close(&output);
    EXPECT_EQ(measure().status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_linux_pwm_open(0, 2, &output), 0U);
}

TEST_F(PwmOnBoard, ADutyBeyondThePeriodIsRefused) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_set_duty(&output, 20001), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute(channel_path(output, "duty_cycle")), "5000");
}

TEST_F(PwmOnBoard, APeriodOf2To31NanosecondsIsRefusedByTheKernel) {
    generate(20000, 5000);
    EXPECT_EQ(norv_linux_pwm_set_period(&output, 0x80000000), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute(channel_path(output, "period")), "20000");
}

TEST_F(PwmOnBoard, APeriodThatTheDriverCannotGenerateIsRefused) {
    generate(20000, 0);
    EXPECT_EQ(norv_linux_pwm_set_period(&output, 19), NORV_STATUS_RANGE);
}

TEST(PwmChipsOnBoard, TheNumberOfChannelsIsTheChips) {
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(0, &count), 0U);
    EXPECT_EQ(count, 4U);
}

// On Linux 6.1, a chip has the number of its first channel; on 6.12, the next free number.
uint32_t chip_with_128_channels() {
    return attribute("/sys/class/pwm/pwmchip4/npwm") == "128" ? 4 : 1;
}

TEST(PwmChipsOnBoard, AChipWith128ChannelsReportsTwoDigits) {
    const uint32_t chip = chip_with_128_channels();
    ASSERT_EQ(attribute("/sys/class/pwm/pwmchip" + std::to_string(chip) + "/npwm"), "128");
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(chip, &count), 0U);
    EXPECT_EQ(count, 12U);
}

TEST(PwmChipsOnBoard, AMissingChannelOrChipCannotBeOpened) {
    norv_linux_pwm_t pwm;
    EXPECT_EQ(norv_linux_pwm_open(0, 4, &pwm), NORV_STATUS_ERRNO_BASE + ENODEV);
    EXPECT_EQ(norv_linux_pwm_open(77, 0, &pwm), NORV_STATUS_NOT_FOUND);
}

TEST(PwmChipsOnBoard, APolarityThatTheDriverCannotSetIsRefused) {
    norv_linux_pwm_t pwm;
    ASSERT_EQ(norv_linux_pwm_open(chip_with_128_channels(), 5, &pwm), 0U);
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 20000), 0U);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&pwm, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute(channel_path(pwm, "polarity")), "normal");
    norv_linux_pwm_close(&pwm);
}

TEST(PwmChipsOnBoard, AChannelWithoutAPeriodCannotBeStarted) {
    norv_linux_pwm_t pwm;
    ASSERT_EQ(norv_linux_pwm_open(chip_with_128_channels(), 127, &pwm), 0U);
    EXPECT_EQ(norv_linux_pwm_enable(&pwm, true), NORV_STATUS_INVALID_ARG);
    norv_linux_pwm_close(&pwm);
}

}  // namespace
