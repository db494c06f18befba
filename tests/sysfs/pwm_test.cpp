// SPDX-License-Identifier: MIT
// PWM channels.
#include "norv_linux_pwm.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"
#include "sysfs/pwm_chip.hpp"

namespace {

using namespace norv::test::pwm_chip;
using namespace std::string_literals;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::strike;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class Pwm : public testing::Test {
  protected:
    Pwm() { add_chip(kernel); }

    kernel_double kernel;
    norv_linux_pwm_t pwm = {};
};

// Channel 2, opened.
class OpenPwm : public Pwm {
  protected:
    OpenPwm() {
        EXPECT_EQ(norv_linux_pwm_open(3, 2, &pwm), 0U);
        kernel.forget_calls();
    }
};

// ---- open and close

TEST_F(Pwm, OpeningExportsTheChannelAndStoresBothNumbers) {
    EXPECT_EQ(norv_linux_pwm_open(3, 2, &pwm), 0U);
    EXPECT_EQ(pwm.chip, 3U);
    EXPECT_EQ(pwm.channel, 2U);
    EXPECT_THAT(kernel.writes(chip_export), ElementsAre("2\0"s));
    EXPECT_THAT(kernel.open_flags(chip_export), ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(Pwm, OpeningAnExportedChannelWritesNothing) {
    export_channel(kernel);
    EXPECT_EQ(norv_linux_pwm_open(3, 2, &pwm), 0U);
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(Pwm, AFileInPlaceOfTheDirectoryDoesNotCountAsExported) {
    kernel.add_file(channel_directory);
    kernel.on_write(chip_export, [](std::string_view) { return EBUSY; });
    EXPECT_EQ(norv_linux_pwm_open(3, 2, &pwm), errno_status(EBUSY));
}

TEST_F(Pwm, AFailedOpenGivesTheErrnoStatusAndStoresTheNumbers) {
    EXPECT_EQ(norv_linux_pwm_open(3, 4, &pwm), errno_status(ENODEV));
    EXPECT_EQ(pwm.chip, 3U);
    EXPECT_EQ(pwm.channel, 4U);
}

TEST_F(Pwm, AChipThatDoesNotExistIsNotFound) {
    EXPECT_EQ(norv_linux_pwm_open(9, 0, &pwm), NORV_STATUS_NOT_FOUND);
}

// quirk 2
TEST_F(Pwm, NumbersArePrintedSigned) {
    kernel.add_file("/sys/class/pwm/pwmchip-1/export");
    EXPECT_EQ(norv_linux_pwm_open(0xFFFFFFFF, 0x80000000, &pwm), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/pwm/pwmchip-1/export"), ElementsAre("-2147483648\0"s));
}

TEST_F(Pwm, TheNumbersInAChannelsPathsAreSigned) {
    const std::string path = "/sys/class/pwm/pwmchip-1/pwm-2147483648";
    kernel.add_file(path + "/period");
    kernel.add_file("/sys/class/pwm/pwmchip-1/unexport");
    EXPECT_EQ(norv_linux_pwm_open(0xFFFFFFFF, 0x80000000, &pwm), 0U) << "is exported";
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 5), 0U);
    EXPECT_THAT(kernel.writes(path + "/period"), ElementsAre("5\0"s));
    norv_linux_pwm_close(&pwm);
    EXPECT_THAT(kernel.writes("/sys/class/pwm/pwmchip-1/unexport"), ElementsAre("-2147483648\0"s));
}

// quirk 45
TEST_F(Pwm, TheDirectorysPathIsTruncatedAfter45Characters) {
    kernel.add_directory("/sys/class/pwm/pwmchip1234567890/pwm123456789");
    EXPECT_EQ(norv_linux_pwm_open(1234567890, 1234567891, &pwm), 0U);
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
}

TEST_F(OpenPwm, ClosingUnexportsTheChannel) {
    norv_linux_pwm_close(&pwm);
    EXPECT_THAT(kernel.writes(chip_unexport), ElementsAre("2\0"s));
    EXPECT_THAT(kernel.open_flags(chip_unexport), ElementsAre(O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(kernel.exists(channel_directory));
}

// quirk 41
TEST_F(Pwm, ClosingUnexportsAChannelExportedByAnotherProcess) {
    export_channel(kernel);
    norv_linux_pwm_open(3, 2, &pwm);
    norv_linux_pwm_close(&pwm);
    EXPECT_FALSE(kernel.exists(channel_directory));
}

TEST_F(OpenPwm, ClosingAChannelThatIsNoLongerExportedWritesNothing) {
    norv_linux_pwm_close(&pwm);
    kernel.forget_calls();
    norv_linux_pwm_close(&pwm);
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
}

// quirk 43
TEST_F(OpenPwm, ASecondCloseUnexportsAChannelThatWasExportedAgain) {
    norv_linux_pwm_close(&pwm);
    export_channel(kernel);
    norv_linux_pwm_close(&pwm);
    EXPECT_FALSE(kernel.exists(channel_directory));
}

// quirk 43
TEST_F(Pwm, ClosingAfterAFailedOpenUnexportsAChannelThatWasExportedSince) {
    kernel.on_write(chip_export, [](std::string_view) { return EBUSY; });
    EXPECT_EQ(norv_linux_pwm_open(3, 2, &pwm), errno_status(EBUSY));
    export_channel(kernel);
    norv_linux_pwm_close(&pwm);
    EXPECT_FALSE(kernel.exists(channel_directory));
}

// quirk 43
TEST_F(Pwm, ClosingARecordOfZerosUnexportsChannel0OfChip0) {
    kernel.add_file("/sys/class/pwm/pwmchip0/unexport");
    kernel.add_directory("/sys/class/pwm/pwmchip0/pwm0");
    norv_linux_pwm_close(&pwm);
    EXPECT_THAT(kernel.writes("/sys/class/pwm/pwmchip0/unexport"), ElementsAre("0\0"s));
}

TEST_F(OpenPwm, ARefusedUnexportIsIgnored) {
    kernel.on_write(chip_unexport, [](std::string_view) { return EBUSY; });
    norv_linux_pwm_close(&pwm);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// ---- number of channels

TEST_F(Pwm, TheNumberOfChannelsIsReadFromTheChip) {
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 4U);
    EXPECT_THAT(kernel.open_flags(npwm), ElementsAre(O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 46
TEST_F(Pwm, OnlyTheFirstTwoDigitsOfTheCountAreRead) {
    kernel.add_file(npwm, "128\n");
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 12U);
}

TEST_F(Pwm, ACountWithALeadingZeroIsDecimal) {
    kernel.add_file(npwm, "08");
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 8U);
}

TEST_F(Pwm, ReadingTheCountPrintsTheChipsNumberSigned) {
    kernel.add_file("/sys/class/pwm/pwmchip-1/npwm", "6\n");
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(0xFFFFFFFF, &count), 0U);
    EXPECT_EQ(count, 6U);
}

TEST_F(Pwm, ACountThatIsNotANumberIsZero) {
    kernel.add_file(npwm, "x\n");
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 0U);
}

TEST_F(Pwm, AMissingChipIsNotFoundAndLeavesTheCountUnchanged) {
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(9, &count), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(count, 99U);
}

// quirk 47
TEST_F(Pwm, AFailedSeekOrReadOfTheCountLeavesTheDescriptorOpen) {
    uint32_t count = 99;
    kernel.fail("lseek", EIO);
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), NORV_STATUS_DEVICE_ERROR);
    kernel.fail("read", EACCES);
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), errno_status(EACCES));
    EXPECT_EQ(count, 99U);
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    kernel.accept_leaked_descriptors(2);
}

// quirk 1
TEST_F(Pwm, ASeekFailureWhoseErrnoMapsToZeroIsFollowedByTheRead) {
    kernel.map_errno(EIO, 0);
    kernel.fail("lseek", EIO);
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 4U);
}

TEST_F(Pwm, AReadFailureWhoseErrnoMapsToZeroCountsAsZeroChannels) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    uint32_t count = 99;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// ---- attributes

TEST_F(OpenPwm, EnableIsWrittenAsADigit) {
    EXPECT_EQ(norv_linux_pwm_enable(&pwm, true), 0U);
    EXPECT_EQ(norv_linux_pwm_enable(&pwm, false), 0U);
    EXPECT_THAT(kernel.writes(enable), ElementsAre("1\0"s, "0\0"s));
    EXPECT_THAT(kernel.open_flags(enable), Each(O_WRONLY | O_CLOEXEC));
}

TEST_F(OpenPwm, PeriodAndDutyAreWrittenInDecimal) {
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 2147483647), 0U);
    EXPECT_EQ(norv_linux_pwm_set_duty(&pwm, 0), 0U);
    EXPECT_EQ(norv_linux_pwm_set_duty(&pwm, 2147483646), 0U);
    EXPECT_THAT(kernel.writes(period), ElementsAre("2147483647\0"s));
    EXPECT_THAT(kernel.writes(duty_cycle), ElementsAre("0\0"s, "2147483646\0"s));
}

// quirk 44
TEST_F(OpenPwm, APeriodOrDutyOf2To31OrMoreIsWrittenAsANegativeNumber) {
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 0x80000000), 0U);
    EXPECT_EQ(norv_linux_pwm_set_duty(&pwm, 0xFFFFFFFF), 0U);
    EXPECT_THAT(kernel.writes(period), ElementsAre("-2147483648\0"s));
    EXPECT_THAT(kernel.writes(duty_cycle), ElementsAre("-1\0"s));
}

TEST_F(OpenPwm, PolarityIsWrittenAsAWord) {
    EXPECT_EQ(norv_linux_pwm_set_polarity(&pwm, true), 0U);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&pwm, false), 0U);
    EXPECT_THAT(kernel.writes(polarity), ElementsAre("inversed\0"s, "normal\0"s));
}

TEST_F(OpenPwm, AnAttributeThatTheKernelRefusesGivesTheErrnoStatus) {
    kernel.on_write(period, [](std::string_view) { return EINVAL; });
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 5), NORV_STATUS_INVALID_ARG);
}

TEST_F(OpenPwm, AChannelThatIsNotExportedGivesTheStatusOfTheOpen) {
    kernel.remove(channel_directory);
    EXPECT_EQ(norv_linux_pwm_enable(&pwm, true), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_pwm_set_period(&pwm, 5), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_pwm_set_duty(&pwm, 5), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_pwm_set_polarity(&pwm, true), NORV_STATUS_NOT_FOUND);
}

// ---- capture

struct captured {
    uint32_t status = 0;
    uint32_t period = 77;
    uint32_t duty = 78;
};

class PwmCapture : public OpenPwm {
  protected:
    captured get() {
        captured result;
        result.status = norv_linux_pwm_get_capture(&pwm, &result.period, &result.duty);
        return result;
    }
    captured get(std::string_view text) {
        kernel.add_file(capture, text);
        return get();
    }
};

TEST_F(PwmCapture, PeriodAndDutyAreParsedFromTheText) {
    const captured result = get("20000 5000\n");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 20000U);
    EXPECT_EQ(result.duty, 5000U);
    EXPECT_THAT(kernel.open_flags(capture), ElementsAre(O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(PwmCapture, EitherPointerMayBeNull) {
    uint32_t value = 0;
    EXPECT_EQ(norv_linux_pwm_get_capture(&pwm, nullptr, &value), 0U);
    EXPECT_EQ(value, 5000U);
    EXPECT_EQ(norv_linux_pwm_get_capture(&pwm, &value, nullptr), 0U);
    EXPECT_EQ(value, 20000U);
    EXPECT_EQ(norv_linux_pwm_get_capture(&pwm, nullptr, nullptr), 0U);
}

// quirk 48
TEST_F(PwmCapture, ATextWithoutNumbersCountsAsSuccessAndGivesZeros) {
    const captured result = get("no signal\n");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 0U);
    EXPECT_EQ(result.duty, 0U);
}

TEST_F(PwmCapture, NumbersWithALeadingZeroAreDecimal) {
    const captured result = get("010 -020\n");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 10U);
    EXPECT_EQ(result.duty, static_cast<uint32_t>(-20));
}

TEST_F(PwmCapture, ATextWithOneNumberCountsAsSuccessAndGivesZeroForTheOther) {
    const captured result = get("20000\n");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 20000U);
    EXPECT_EQ(result.duty, 0U);
}

TEST_F(PwmCapture, OnlyTheFirst128BytesAreRead) {
    const captured result = get(std::string(126, ' ') + "12 34");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 12U);
    EXPECT_EQ(result.duty, 0U);
    EXPECT_EQ(kernel.calls("read").at(0).result, 128);
}

TEST_F(PwmCapture, AnEmptyTextWithoutAnErrnoCountsAsSuccessAndGivesZeros) {
    const captured result = get("");
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.period, 0U);
    EXPECT_EQ(result.duty, 0U);
}

TEST_F(PwmCapture, AFailedReadGivesTheErrnoStatusAndLeavesTheValuesUnchanged) {
    kernel.fail("read", ETIMEDOUT);
    const captured result = get();
    EXPECT_EQ(result.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(result.period, 77U);
    EXPECT_EQ(result.duty, 78U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(PwmCapture, ADriverThatCannotCaptureGivesTheStatusOfTheOpen) {
    kernel.remove(capture);
    const captured result = get();
    EXPECT_EQ(result.status, NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(result.period, 77U);
    EXPECT_EQ(result.duty, 78U);
}

// ---- null

TEST_F(Pwm, ANullHandleOrCountIsAnInvalidArgument) {
    norv_linux_pwm_close(nullptr);
    EXPECT_EQ(norv_linux_pwm_open(3, 2, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_enable(nullptr, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_set_period(nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_set_duty(nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_set_polarity(nullptr, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_pwm_get_capture(nullptr, nullptr, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

// Makes every call on a channel, up to the first failure.
uint32_t use_channel() {
    norv_linux_pwm_t pwm;
    uint32_t period_value = 0;
    uint32_t status = norv_linux_pwm_open(3, 2, &pwm);
    if (status == 0) {
        status = norv_linux_pwm_set_period(&pwm, 20000);
    }
    if (status == 0) {
        status = norv_linux_pwm_set_duty(&pwm, 5000);
    }
    if (status == 0) {
        status = norv_linux_pwm_set_polarity(&pwm, false);
    }
    if (status == 0) {
        status = norv_linux_pwm_enable(&pwm, true);
    }
    if (status == 0) {
        status = norv_linux_pwm_get_capture(&pwm, &period_value, nullptr);
    }
    norv_linux_pwm_close(&pwm);
    return status;
}

TEST(PwmSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // A failed stat(2) of the channel's directory means "not exported", and failures while closing are
        // ignored.
        const bool ignored = struck.name == "stat" || struck.path == chip_unexport;
        return ignored ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(add_chip, use_channel, options);
}

TEST(PwmSweep, AFailedOpenOfTheCountIsReported) {
    for (const int error : {EACCES, EINTR, EIO}) {
        kernel_double kernel;
        add_chip(kernel);
        kernel.fail("open", error);
        uint32_t count = 0;
        EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), errno_status(error));
    }
}

TEST(PwmSweep, AFailedCloseOfTheCountIsIgnored) {
    kernel_double kernel;
    add_chip(kernel);
    kernel.fail("close", EIO);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_pwm_get_nchannel(3, &count), 0U);
    EXPECT_EQ(count, 4U);
}

}  // namespace
