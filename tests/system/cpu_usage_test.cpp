// SPDX-License-Identifier: MIT
// CPU load.
#include "norv_cpu_usage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::stream_opening;
using norv::test::strike;
using testing::IsEmpty;

constexpr const char* stat_file = "/proc/stat";

class CpuUsage : public testing::Test {
  protected:
    ~CpuUsage() override { norv_cpu_usage_close(&cpu); }

    // The first line, and one of those that follow.
    void show(const std::string& times) { show_text("cpu  " + times + "\ncpu0 1 1 1 1 1 1 1 1 1 1\n"); }
    void show_text(const std::string& text) { kernel.add_file(stat_file, text); }
    uint32_t update(const std::string& times) {
        show(times);
        return norv_cpu_usage_update(&cpu);
    }

    kernel_double kernel;
    norv_cpu_usage_t cpu = {};
};

// Opened when 1000 had passed, 400 of it idle.
class OpenCpuUsage : public CpuUsage {
  protected:
    OpenCpuUsage() {
        show("100 100 100 400 50 50 50 50 50 50");
        EXPECT_EQ(norv_cpu_usage_open(&cpu), 0U);
    }
};

// ---- open and close

TEST_F(CpuUsage, OpeningTakesTheFirstSampleAndKeepsTheFileOpen) {
    show("100 100 100 400 50 50 50 50 50 50");
    EXPECT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_NE(cpu.file, nullptr);
    EXPECT_EQ(cpu.last_idle, 400U);
    EXPECT_EQ(cpu.last_total, 1000U);
    EXPECT_EQ(cpu.usage, 6000U) << "the share since the start of the system";
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(CpuUsage, TheFileIsNotInheritedByPrograms) {
    show("1 1 1 1 1 1 1 1 1 1");
    norv_cpu_usage_open(&cpu);
    EXPECT_EQ(kernel.calls("fopen").at(0).path, stat_file);
    EXPECT_EQ(kernel.calls("fopen").at(0).as<stream_opening>().mode, "re");
}

// quirk 95
TEST_F(CpuUsage, OpeningClearsUsageAndIdleButNotTheTotal) {
    cpu.usage = 77;
    cpu.last_idle = 77;
    cpu.last_total = 500;
    show("100 100 100 400 50 50 50 50 50 50");
    EXPECT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_EQ(cpu.usage, 2000U) << "100 of the 500 since the total in the record";
}

TEST_F(CpuUsage, WithoutTheFileTheRecordIsClosed) {
    cpu.usage = 77;
    cpu.last_idle = 77;
    EXPECT_EQ(norv_cpu_usage_open(&cpu), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(cpu.file, nullptr);
    EXPECT_EQ(cpu.usage, 0U);
    EXPECT_EQ(cpu.last_idle, 0U);
}

TEST_F(CpuUsage, AFailedOpenWhoseErrnoMapsToZeroIsABadState) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_cpu_usage_open(&cpu), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(cpu.file, nullptr);
}

TEST_F(CpuUsage, AFirstSampleThatFailsLeavesNothingOpen) {
    show("1 2 3");
    EXPECT_EQ(norv_cpu_usage_open(&cpu), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(cpu.file, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 95
TEST_F(OpenCpuUsage, ClosingClearsUsageAndIdleButNotTheTotal) {
    norv_cpu_usage_close(&cpu);
    EXPECT_EQ(cpu.file, nullptr);
    EXPECT_EQ(cpu.usage, 0U);
    EXPECT_EQ(cpu.last_idle, 0U);
    EXPECT_EQ(cpu.last_total, 1000U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(OpenCpuUsage, ClosingTwiceClosesOnce) {
    norv_cpu_usage_close(&cpu);
    kernel.forget_calls();
    norv_cpu_usage_close(&cpu);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- update

TEST_F(CpuUsage, UpdatingAClosedRecordIsABadState) {
    EXPECT_EQ(norv_cpu_usage_update(&cpu), NORV_STATUS_BAD_STATE);
}

TEST_F(OpenCpuUsage, EveryUpdateReadsTheFileAgain) {
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
    EXPECT_EQ(update("150 100 100 550 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 0U);
    EXPECT_EQ(update("175 100 100 625 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 2500U);
}

TEST_F(OpenCpuUsage, WithoutATickInBetweenTheUsageIsZero) {
    cpu.usage = 77;
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_EQ(cpu.usage, 0U);
}

TEST_F(OpenCpuUsage, AFullyBusyIntervalIs10000) {
    EXPECT_EQ(update("350 100 100 400 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 10000U);
}

// quirk 96
TEST_F(OpenCpuUsage, AllTimesButTheFourthCountAsBusyEvenGuestTimes) {
    EXPECT_EQ(update("101 102 104 400 58 66 82 114 178 306"), 0U);
    EXPECT_EQ(cpu.last_total, 1511U);
    EXPECT_EQ(cpu.usage, 10000U);
}

TEST_F(OpenCpuUsage, TheShareIsRoundedHalfUp) {
    // 1 of 16 busy: 6.25 %; 1 of 32: 3.125 %; 3 of 32: 9.375 %.
    EXPECT_EQ(update("101 100 100 415 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 625U);
    EXPECT_EQ(update("102 100 100 446 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 313U);
    EXPECT_EQ(update("105 100 100 475 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 938U);
    // 1 of 30000 busy: a third of a hundredth of a percent.
    EXPECT_EQ(update("106 100 100 30474 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 0U);
}

// quirk 98
TEST_F(CpuUsage, CountersWrapAt32Bits) {
    show("4294967290 0 0 4294967000 0 0 0 0 0 0");
    ASSERT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_EQ(cpu.last_total, 4294966994U);
    // 306 more of user, 300 more of idle; both past 2^32.
    EXPECT_EQ(update("4294967596 0 0 4294967300 0 0 0 0 0 0"), 0U);
    EXPECT_EQ(cpu.last_idle, 4U);
    EXPECT_EQ(cpu.usage, (306U * 10000 + 303) / 606);
}

TEST_F(CpuUsage, AnIntervalOfBillionsOfTicksDoesNotOverflow) {
    show("0 0 0 0 0 0 0 0 0 0");
    ASSERT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_EQ(update("3000000000 0 0 1000000000 0 0 0 0 0 0"), 0U);
    EXPECT_EQ(cpu.usage, 7500U);
}

// quirk 97
TEST_F(OpenCpuUsage, AnIdleTimeThatRanBackwardsGivesMoreThan10000) {
    EXPECT_EQ(update("120 100 100 390 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 20000U);
}

TEST_F(OpenCpuUsage, OnlyTheFirstTenNumbersCount) {
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50 50 999 999"), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

TEST_F(OpenCpuUsage, NumbersMayBeSeparatedByAnything) {
    show_text("cpu:150,100/100-450.50;50 50x50\t50 (50)\n");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

TEST_F(OpenCpuUsage, TheLastNumberMayEndWithTheFile) {
    show_text("cpu 150 100 100 450 50 50 50 50 50 50");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

TEST_F(OpenCpuUsage, FewerThanTenNumbersAreAParseErrorAndChangeNothing) {
    cpu.usage = 77;
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50"), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(cpu.usage, 77U);
    EXPECT_EQ(cpu.last_total, 1000U);
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

TEST_F(OpenCpuUsage, OnlyTheFirstLineIsRead) {
    show_text("cpu 1 2\n3 4 5 6 7 8 9 10\n");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), NORV_STATUS_PARSE_ERROR);
}

TEST_F(OpenCpuUsage, TheFirstByteOfTheFileIsPartOfTheLine) {
    show_text("150 100 100 450 50 50 50 50 50 50\n");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

// quirk 99
TEST_F(OpenCpuUsage, ALineIsTruncatedAfter255Characters) {
    const std::string nine_numbers = "1 2 3 4 5 6 7 8 9 ";
    show_text(std::string(254 - nine_numbers.size(), ' ') + nine_numbers + "10\n");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_EQ(cpu.last_total, 46U) << "one digit of the tenth number is left";
    show_text(std::string(255 - nine_numbers.size(), ' ') + nine_numbers + "10\n");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), NORV_STATUS_PARSE_ERROR);
}

TEST_F(OpenCpuUsage, AnEmptyFileIsAParseError) {
    show_text("");
    EXPECT_EQ(norv_cpu_usage_update(&cpu), NORV_STATUS_PARSE_ERROR);
}

TEST_F(OpenCpuUsage, AFailedReadGivesTheErrnoStatusAndTheRecordStaysOpen) {
    kernel.fail("fgets", EACCES);
    EXPECT_EQ(norv_cpu_usage_update(&cpu), errno_status(EACCES));
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.usage, 5000U);
}

// quirk 100
TEST_F(OpenCpuUsage, AFailedFlushIsNotReported) {
    kernel.fail("fflush", EACCES);
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_TRUE(kernel.struck());
}

// quirk 100
TEST_F(OpenCpuUsage, AFailedSeekIsNotReportedAndTheNextLineIsRead) {
    kernel.fail("fseek", EACCES);
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(cpu.last_total, 9U) << "the line of cpu0, whose first number is its own";
    EXPECT_EQ(update("150 100 100 450 50 50 50 50 50 50"), 0U);
    EXPECT_EQ(cpu.last_total, 1100U);
}

TEST_F(OpenCpuUsage, AFailedReadWhoseErrnoMapsToZeroIsAnEmptyLine) {
    kernel.map_errno(EIO, 0);
    kernel.fail("fgets", EIO);
    EXPECT_EQ(norv_cpu_usage_update(&cpu), NORV_STATUS_PARSE_ERROR);
}

TEST_F(CpuUsage, ANullRecordIsAnInvalidArgument) {
    norv_cpu_usage_close(nullptr);
    EXPECT_EQ(norv_cpu_usage_open(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_cpu_usage_update(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(RealCpuUsage, TheKernelThatRunsTheTestCanBeSampled) {
    norv_cpu_usage_t cpu = {};
    EXPECT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    norv_cpu_usage_close(&cpu);
}

// ---- failure sweep

TEST(CpuUsageSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        return struck.name == "fflush" || struck.name == "fseek" ? NORV_STATUS_OK
                                                                 : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            // A failed seek reads the second line.
            kernel.add_file(stat_file, "cpu 1 2 3 4 5 6 7 8 9 10\ncpu0 1 2 3 4 5 6 7 8 9 10\n");
        },
        [] {
            norv_cpu_usage_t cpu = {};
            uint32_t status = norv_cpu_usage_open(&cpu);
            EXPECT_EQ(cpu.file == nullptr, status != 0);
            if (status == 0) {
                status = norv_cpu_usage_update(&cpu);
            }
            norv_cpu_usage_close(&cpu);
            return status;
        },
        options);
}

}  // namespace
