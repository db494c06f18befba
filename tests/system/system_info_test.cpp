// SPDX-License-Identifier: MIT
// USB connection, memory, uptime and card size.
#include "norv_system_info.h"

#include <fcntl.h>
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
using testing::ElementsAre;
using testing::IsEmpty;

// ---- USB connection

constexpr const char* state_file = "/sys/class/udc/20980000.usb/state";
constexpr const char* speed_file = "/sys/class/udc/20980000.usb/current_speed";

class UsbPeriphState : public testing::Test {
  protected:
    uint32_t get(const char* text, const char* speed = "high-speed\n") {
        kernel.add_file(state_file, text);
        kernel.add_file(speed_file, speed);
        return norv_get_usb_periph_state("20980000.usb", &state);
    }

    kernel_double kernel;
    uint32_t state = 77;
};

TEST_F(UsbPeriphState, AConfiguredControllerAtHighSpeedIsTwo) {
    EXPECT_EQ(get("configured\n", "high-speed\n"), 0U);
    EXPECT_EQ(state, 2U);
    EXPECT_EQ(state, uint32_t{NORV_USB_PERIPH_HIGH_SPEED});
}

TEST_F(UsbPeriphState, AConfiguredControllerAtSuperSpeedIsThree) {
    EXPECT_EQ(get("configured\n", "super-speed\n"), 0U);
    EXPECT_EQ(state, 3U);
}

TEST_F(UsbPeriphState, AConfiguredControllerAtAnyOtherSpeedIsOne) {
    for (const char* speed :
         {"full-speed\n", "low-speed\n", "wireless\n", "UNKNOWN\n", "super-speed-plus\n"}) {
        state = 77;
        EXPECT_EQ(get("configured\n", speed), 0U);
        EXPECT_EQ(state, 1U) << speed;
    }
}

TEST_F(UsbPeriphState, TheSpeedOfAControllerThatIsNotAttachedIsNotRead) {
    EXPECT_EQ(get("not attached\n"), 0U);
    EXPECT_EQ(state, 0U);
    EXPECT_THAT(kernel.open_flags(speed_file), IsEmpty());
}

TEST_F(UsbPeriphState, AnyStateButConfiguredIsZero) {
    for (const char* text :
         {"attached\n", "powered\n", "default\n", "addressed\n", "suspended\n", "configuredx\n", "\n"}) {
        state = 77;
        EXPECT_EQ(get(text), 0U);
        EXPECT_EQ(state, 0U) << text;
    }
}

TEST_F(UsbPeriphState, CaseDoesNotMatter) {
    EXPECT_EQ(get("Configured\n", "HIGH-Speed\n"), 0U);
    EXPECT_EQ(state, 2U);
    EXPECT_EQ(get("CONFIGURED\n", "Super-Speed\n"), 0U);
    EXPECT_EQ(state, 3U);
}

// quirk 5
TEST_F(UsbPeriphState, TheLastByteIsDroppedWhateverItIs) {
    EXPECT_EQ(get("configured"), 0U);
    EXPECT_EQ(state, 0U) << "\"configure\"";
    EXPECT_EQ(get("configured?", "high-speed!"), 0U);
    EXPECT_EQ(state, 2U);
}

// quirk 103
TEST_F(UsbPeriphState, AtMost15BytesOfATextAreRead) {
    EXPECT_EQ(get("configured\n", "super-speed\n   and much more"), 0U);
    EXPECT_EQ(kernel.calls("read").at(1).result, 15);
    EXPECT_EQ(state, 1U) << "the rest contains the newline";
}

TEST_F(UsbPeriphState, AnEmptyTextIsNotConfigured) {
    EXPECT_EQ(get(""), 0U);
    EXPECT_EQ(state, 0U);
}

TEST_F(UsbPeriphState, AnEmptySpeedIsOne) {
    EXPECT_EQ(get("configured\n", ""), 0U);
    EXPECT_EQ(state, 1U);
}

TEST_F(UsbPeriphState, BothFilesAreOpenedForReadingAndNotInherited) {
    get("configured\n");
    EXPECT_THAT(kernel.open_flags(state_file), ElementsAre(O_RDONLY | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags(speed_file), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(UsbPeriphState, AMissingControllerIsNotFoundAndTheStateUnchanged) {
    EXPECT_EQ(norv_get_usb_periph_state("none", &state), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(state, 77U);
}

// quirk 94
TEST_F(UsbPeriphState, ANameWithDotsLeadsToAnotherFile) {
    kernel.add_directory("/sys/class/udc");
    kernel.add_file("/sys/class/leds/red/state", "powered\n");
    EXPECT_EQ(norv_get_usb_periph_state("../leds/red", &state), 0U);
    EXPECT_EQ(state, 0U);
}

TEST_F(UsbPeriphState, AMissingSpeedIsReportedAndTheStateUnchanged) {
    kernel.add_file(state_file, "configured\n");
    EXPECT_EQ(norv_get_usb_periph_state("20980000.usb", &state), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(state, 77U);
}

TEST_F(UsbPeriphState, AFailedReadWhoseErrnoMapsToZeroIsAnEmptyText) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    EXPECT_EQ(get("configured\n"), 0U);
    EXPECT_EQ(state, 0U);
    kernel.fail({.call = "read", .path = speed_file, .error = EIO});
    EXPECT_EQ(get("configured\n"), 0U);
    EXPECT_EQ(state, 1U);
}

TEST_F(UsbPeriphState, ANullNameOrStateIsAnInvalidArgument) {
    EXPECT_EQ(norv_get_usb_periph_state(nullptr, &state), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_get_usb_periph_state("20980000.usb", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(state, 77U);
}

// ---- memory

constexpr const char* meminfo = "/proc/meminfo";
constexpr const char* usual_meminfo =
    "MemTotal:        1024000 kB\n"
    "MemFree:          512000 kB\n"
    "MemAvailable:     768000 kB\n"
    "Buffers:           16000 kB\n"
    "Cached:           256000 kB\n"
    "SwapCached:            7 kB\n"
    "Active:           100000 kB\n";

class MemInfo : public testing::Test {
  protected:
    uint32_t get(std::string_view text) {
        kernel.add_file(meminfo, text);
        return norv_get_mem_info(&info);
    }

    kernel_double kernel;
    norv_mem_info_t info = {-1, -2, -3, -4, -5};
};

TEST_F(MemInfo, TheFiveFiguresAreFound) {
    EXPECT_EQ(get(usual_meminfo), 0U);
    EXPECT_EQ(info.total, 1024000);
    EXPECT_EQ(info.free, 512000);
    EXPECT_EQ(info.available, 768000);
    EXPECT_EQ(info.buffers, 16000);
    EXPECT_EQ(info.cached, 256000);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.calls("fopen").at(0).as<stream_opening>().mode, "re");
}

TEST_F(MemInfo, TheirOrderDoesNotMatter) {
    EXPECT_EQ(
        get("Cached: 5 kB\nBuffers: 4 kB\nMemAvailable: 3 kB\nOther: 9 kB\nMemFree: 2 kB\nMemTotal: 1 kB\n"),
        0U);
    EXPECT_EQ(info.total, 1);
    EXPECT_EQ(info.free, 2);
    EXPECT_EQ(info.available, 3);
    EXPECT_EQ(info.buffers, 4);
    EXPECT_EQ(info.cached, 5);
}

TEST_F(MemInfo, TheFirstOfTwoLinesCounts) {
    EXPECT_EQ(get("MemTotal: 1 kB\nMemTotal: 9 kB\nMemFree: 2 kB\nMemAvailable: 3 kB\nBuffers: 4 kB\nCached: "
                  "5 kB\n"),
              0U);
    EXPECT_EQ(info.total, 1);
}

TEST_F(MemInfo, ALongLineIsReadInPiecesOf255Characters) {
    EXPECT_EQ(get(std::string(255, '-') + usual_meminfo), 0U);
    EXPECT_EQ(info.total, 1024000) << "begins a piece";
    EXPECT_EQ(get(std::string(254, '-') + usual_meminfo), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(get(std::string(256, '-') + usual_meminfo), NORV_STATUS_PARSE_ERROR);
}

TEST_F(MemInfo, ReadingStopsAsSoonAsAllAreFound) {
    kernel.fail({.call = "fgets", .path = meminfo, .nth = 6, .error = EIO});
    EXPECT_EQ(get(usual_meminfo), 0U);
    EXPECT_FALSE(kernel.struck());
}

// quirk 105
TEST_F(MemInfo, AMissingFigureIsAParseErrorAndTheOthersAreStored) {
    EXPECT_EQ(get("MemTotal: 1 kB\nMemFree: 2 kB\nBuffers: 4 kB\nCached: 5 kB\n"), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(info.total, 1);
    EXPECT_EQ(info.free, 2);
    EXPECT_EQ(info.available, -3);
    EXPECT_EQ(info.buffers, 4);
    EXPECT_EQ(info.cached, 5);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(MemInfo, EachFigureIsNeeded) {
    const std::string text = usual_meminfo;
    for (const char* name : {"MemTotal:", "MemFree:", "MemAvailable:", "Buffers:", "\nCached:"}) {
        std::string without = text;
        without.replace(without.find(name) + 1, 1, "?");
        EXPECT_EQ(get(without), NORV_STATUS_PARSE_ERROR) << name;
    }
}

TEST_F(MemInfo, AFigureWithoutANumberIsMissing) {
    EXPECT_EQ(get("MemTotal: much kB\nMemFree: 2 kB\nMemAvailable: 3 kB\nBuffers: 4 kB\nCached: 5 kB\n"),
              NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(info.total, -1);
}

TEST_F(MemInfo, AnEmptyFileIsAParseError) {
    EXPECT_EQ(get(""), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(info.total, -1);
}

TEST_F(MemInfo, AFailedReadKeepsWhatWasFoundAndIsAParseError) {
    kernel.fail({.call = "fgets", .path = meminfo, .nth = 3, .error = EIO});
    EXPECT_EQ(get(usual_meminfo), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(info.free, 512000);
    EXPECT_EQ(info.available, -3);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(MemInfo, AMissingFileGivesTheErrnoStatus) {
    EXPECT_EQ(norv_get_mem_info(&info), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(info.total, -1);
}

TEST_F(MemInfo, AFailedOpenWhoseErrnoMapsToZeroIsAParseError) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_get_mem_info(&info), NORV_STATUS_PARSE_ERROR);
}

TEST_F(MemInfo, ANullRecordIsAnInvalidArgument) {
    EXPECT_EQ(norv_get_mem_info(nullptr), NORV_STATUS_INVALID_ARG);
}

TEST(RealMemInfo, TheKernelThatRunsTheTestReportsItsMemory) {
    norv_mem_info_t info = {};
    EXPECT_EQ(norv_get_mem_info(&info), 0U);
    EXPECT_GT(info.total, info.free);
}

// ---- uptime

TEST(Uptime, TheSecondsAreTheKernels) {
    kernel_double kernel;
    kernel.set_uptime(2000000000);
    uint32_t seconds = 0;
    EXPECT_EQ(norv_get_uptime(&seconds), 0U);
    EXPECT_EQ(seconds, 2000000000U);
}

TEST(Uptime, TheSecondsAreTruncatedTo32Bits) {
    kernel_double kernel;
    kernel.set_uptime(static_cast<long>(INT64_C(4294967301)));
    uint32_t seconds = 0;
    EXPECT_EQ(norv_get_uptime(&seconds), 0U);
    EXPECT_EQ(seconds, 5U);
}

TEST(Uptime, AFailureGivesTheErrnoStatusAndLeavesTheSecondsUnchanged) {
    kernel_double kernel;
    kernel.fail("sysinfo", EFAULT);
    uint32_t seconds = 77;
    EXPECT_EQ(norv_get_uptime(&seconds), errno_status(EFAULT));
    EXPECT_EQ(seconds, 77U);
}

TEST(Uptime, AFailureWhoseErrnoMapsToZeroGivesZeroSeconds) {
    kernel_double kernel;
    kernel.map_errno(EFAULT, 0);
    kernel.fail("sysinfo", EFAULT);
    uint32_t seconds = 77;
    EXPECT_EQ(norv_get_uptime(&seconds), 0U);
    EXPECT_EQ(seconds, 0U);
}

TEST(Uptime, ANullPointerIsAnInvalidArgument) {
    EXPECT_EQ(norv_get_uptime(nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- card size

class MmcSize : public testing::Test {
  protected:
    uint32_t get(std::string_view sectors) {
        kernel.add_file("/sys/class/block/mmcblk1/size", sectors);
        return norv_get_mmc_size(1, &megabytes);
    }

    kernel_double kernel;
    uint32_t megabytes = 77;
};

TEST_F(MmcSize, ACardOf15269888SectorsHas7818Megabytes) {
    EXPECT_EQ(get("15269888\n"), 0U);
    EXPECT_EQ(megabytes, 7818U);
    EXPECT_THAT(kernel.open_flags("/sys/class/block/mmcblk1/size"), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(MmcSize, MegabytesAreDecimalAndRoundedDown) {
    EXPECT_EQ(get("1953\n"), 0U);
    EXPECT_EQ(megabytes, 0U);
    EXPECT_EQ(get("1954\n"), 0U);
    EXPECT_EQ(megabytes, 1U);
}

TEST_F(MmcSize, TheLargestCardHas2To31Minus1Sectors) {
    EXPECT_EQ(get("2147483647\n"), 0U);
    EXPECT_EQ(megabytes, 1099511U);
}

// Where a long has 32 bits, strtol(3) returns the largest one for a number that does not fit.
constexpr bool long_has_64_bits = sizeof(long) == 8;

// quirk 104
TEST_F(MmcSize, ACardOf2To31SectorsHasANegativeOrTruncatedSize) {
    EXPECT_EQ(get("2147483648\n"), 0U);
    EXPECT_EQ(megabytes, static_cast<uint32_t>(long_has_64_bits ? -1099511 : 1099511));
}

// quirk 104
TEST_F(MmcSize, SectorsAreKeptWith32Bits) {
    EXPECT_EQ(get("4294969250\n"), 0U);
    EXPECT_EQ(megabytes, long_has_64_bits ? 1U : 1099511U);
}

// quirk 5
TEST_F(MmcSize, TheLastByteIsDroppedWhateverItIs) {
    EXPECT_EQ(get("19540"), 0U);
    EXPECT_EQ(megabytes, 1U);
    EXPECT_EQ(get("8"), 0U);
    EXPECT_EQ(megabytes, 0U);
}

// quirk 103
TEST_F(MmcSize, AtMost15BytesOfTheTextAreRead) {
    EXPECT_EQ(get("000000000019549\n"), 0U);
    EXPECT_EQ(megabytes, 1U) << "14 digits are left";
}

TEST_F(MmcSize, ATextWithoutANumberAndAnEmptyTextAreZero) {
    EXPECT_EQ(get("none\n"), 0U);
    EXPECT_EQ(megabytes, 0U);
    megabytes = 77;
    EXPECT_EQ(get(""), 0U);
    EXPECT_EQ(megabytes, 0U);
}

// quirk 2
TEST_F(MmcSize, TheIndexIsPrintedSigned) {
    kernel.add_file("/sys/class/block/mmcblk-1/size", "1954\n");
    EXPECT_EQ(norv_get_mmc_size(0xFFFFFFFF, &megabytes), 0U);
    EXPECT_EQ(megabytes, 1U);
}

TEST_F(MmcSize, AMissingCardIsNotFoundAndTheSizeUnchanged) {
    EXPECT_EQ(norv_get_mmc_size(7, &megabytes), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(megabytes, 77U);
}

TEST_F(MmcSize, ANullPointerIsAnInvalidArgument) {
    EXPECT_EQ(norv_get_mmc_size(1, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- failure sweep

// All four queries, up to the first failure.
uint32_t ask_everything() {
    uint32_t value = 0;
    norv_mem_info_t info = {};
    uint32_t status = norv_get_usb_periph_state("20980000.usb", &value);
    if (status == 0) {
        status = norv_get_mem_info(&info);
    }
    if (status == 0) {
        status = norv_get_uptime(&value);
    }
    if (status == 0) {
        status = norv_get_mmc_size(1, &value);
    }
    return status;
}

TEST(SystemInfoSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        return struck.name == "fgets" ? NORV_STATUS_PARSE_ERROR : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_file(state_file, "configured\n");
            kernel.add_file(speed_file, "high-speed\n");
            kernel.add_file(meminfo, usual_meminfo);
            kernel.add_file("/sys/class/block/mmcblk1/size", "15269888\n");
        },
        ask_everything, options);
}

}  // namespace
