// SPDX-License-Identifier: MIT
// GPIO lines.
#include "norv_linux_gpio.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <string>

#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"
#include "sysfs/gpio_chip.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer;
using norv::test::errno_status;
using norv::test::gpio_chip;
using norv::test::kernel_double;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;

class Gpio : public testing::Test {
  protected:
    kernel_double kernel;
    gpio_chip chip{kernel};
    norv_linux_gpio_t line = {};
};

// Line 17, opened.
class OpenGpio : public Gpio {
  protected:
    OpenGpio() {
        EXPECT_EQ(norv_linux_gpio_open(17, &line), 0U);
        kernel.forget_calls();
    }
    ~OpenGpio() override { norv_linux_gpio_close(&line); }
};

// ---- open and close

TEST_F(Gpio, OpeningExportsTheLineAndKeepsItsValueFileOpen) {
    EXPECT_EQ(norv_linux_gpio_open(17, &line), 0U);
    EXPECT_EQ(line.number, 17U);
    EXPECT_GT(norv_linux_gpio_get_fd(&line), 0);
    EXPECT_EQ(norv_linux_gpio_get_fd(&line), line.value_descriptor);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/export"), ElementsAre("17\0"s));
    EXPECT_THAT(kernel.open_flags("/sys/class/gpio/export"), ElementsAre(O_WRONLY | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags("/sys/class/gpio/gpio17/value"), ElementsAre(O_RDWR | O_CLOEXEC));
    norv_linux_gpio_close(&line);
}

TEST_F(Gpio, OpeningAnExportedLineDoesNotExportItAgain) {
    chip.export_line("17");
    EXPECT_EQ(norv_linux_gpio_open(17, &line), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/export"), IsEmpty());
    norv_linux_gpio_close(&line);
}

TEST_F(Gpio, AFileInPlaceOfTheDirectoryDoesNotCountAsExported) {
    kernel.add_file("/sys/class/gpio/gpio40");
    EXPECT_EQ(norv_linux_gpio_open(40, &line), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/export"), ElementsAre("40\0"s));
}

TEST_F(Gpio, ALineThatDoesNotExistCannotBeOpened) {
    EXPECT_EQ(norv_linux_gpio_open(99, &line), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.number, 99U);
    EXPECT_EQ(line.value_descriptor, -1);
}

TEST_F(Gpio, WithoutTheSysfsInterfaceALineIsNotFound) {
    kernel.remove("/sys/class/gpio");
    EXPECT_EQ(norv_linux_gpio_open(17, &line), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(line.value_descriptor, -1);
}

// quirk 2
TEST_F(Gpio, TheNumberIsPrintedSigned) {
    kernel.on_write("/sys/class/gpio/export", [](std::string_view) { return EINVAL; });
    EXPECT_EQ(norv_linux_gpio_open(0x80000000U, &line), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/export"), ElementsAre("-2147483648\0"s));
}

TEST_F(Gpio, TheNumberInALinesPathsIsSigned) {
    for (const char* name : {"value", "direction"}) {
        kernel.add_file("/sys/class/gpio/gpio-2147483648/"s + name);
    }
    EXPECT_EQ(norv_linux_gpio_open(0x80000000U, &line), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/export"), IsEmpty());
    EXPECT_EQ(norv_linux_gpio_set_dir(&line, false), 0U);
    norv_linux_gpio_close(&line);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("-2147483648\0"s));
}

// quirk 38
TEST_F(Gpio, ALineWhoseValueCannotBeOpenedStaysExported) {
    kernel.fail({.call = "open", .path = "/sys/class/gpio/gpio17/value", .error = EACCES});
    EXPECT_EQ(norv_linux_gpio_open(17, &line), errno_status(EACCES));
    EXPECT_EQ(line.value_descriptor, -1);
    EXPECT_TRUE(kernel.exists("/sys/class/gpio/gpio17"));
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), IsEmpty());
}

TEST_F(Gpio, ClosingUnexportsTheLineBeforeItClosesTheValueFile) {
    norv_linux_gpio_open(17, &line);
    kernel.forget_calls();
    norv_linux_gpio_close(&line);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("17\0"s));
    EXPECT_EQ(kernel.calls().back().path, "/sys/class/gpio/gpio17/value");
    EXPECT_EQ(line.value_descriptor, -1);
}

// quirk 34
TEST_F(Gpio, ClosingUnexportsALineExportedByAnotherProcess) {
    chip.export_line("17");
    norv_linux_gpio_open(17, &line);
    norv_linux_gpio_close(&line);
    EXPECT_FALSE(kernel.exists("/sys/class/gpio/gpio17"));
}

TEST_F(Gpio, ClosingALineThatIsNoLongerExportedOnlyClosesTheFile) {
    norv_linux_gpio_open(17, &line);
    kernel.remove("/sys/class/gpio/gpio17");
    norv_linux_gpio_close(&line);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), IsEmpty());
    EXPECT_EQ(line.value_descriptor, -1);
}

TEST_F(Gpio, ARefusedUnexportDoesNotKeepTheFileOpen) {
    norv_linux_gpio_open(17, &line);
    kernel.on_write("/sys/class/gpio/unexport", [](std::string_view) { return EBUSY; });
    norv_linux_gpio_close(&line);
    EXPECT_EQ(line.value_descriptor, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Gpio, ClosingTwiceClosesNothingTheSecondTime) {
    norv_linux_gpio_open(17, &line);
    norv_linux_gpio_close(&line);
    kernel.forget_calls();
    norv_linux_gpio_close(&line);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// quirk 35
TEST_F(Gpio, ClosingARecordOfZerosUnexportsLine0) {
    chip.export_line("0");
    norv_linux_gpio_close(&line);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("0\0"s));
    EXPECT_THAT(kernel.calls("close"), testing::SizeIs(1));  // of "unexport"
}

// quirk 37
TEST_F(Gpio, AClosedHandleWaitsForTheWholeTimeout) {
    norv_linux_gpio_open(17, &line);
    norv_linux_gpio_close(&line);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 5), NORV_STATUS_TIMEOUT);
}

TEST_F(Gpio, ANullHandleIsAnInvalidArgument) {
    norv_linux_gpio_close(nullptr);
    EXPECT_EQ(norv_linux_gpio_open(17, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_set_dir(nullptr, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_set_irq(nullptr, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_set_active_low(nullptr, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_set_value(nullptr, true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_get_value(nullptr, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_wait_irq(nullptr, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- attributes

TEST_F(OpenGpio, DirectionIsWrittenAsInOrOut) {
    EXPECT_EQ(norv_linux_gpio_set_dir(&line, true), 0U);
    EXPECT_EQ(norv_linux_gpio_set_dir(&line, false), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/gpio17/direction"), ElementsAre("out\0"s, "in\0"s));
    EXPECT_THAT(kernel.open_flags("/sys/class/gpio/gpio17/direction"), testing::Each(O_WRONLY | O_CLOEXEC));
}

TEST_F(OpenGpio, EachEdgeIsWrittenAsAWord) {
    for (uint32_t edge = 0; edge <= 3; ++edge) {
        EXPECT_EQ(norv_linux_gpio_set_irq(&line, edge), 0U);
    }
    EXPECT_THAT(kernel.writes("/sys/class/gpio/gpio17/edge"),
                ElementsAre("none\0"s, "rising\0"s, "falling\0"s, "both\0"s));
}

TEST_F(OpenGpio, AnUnknownEdgeIsRefusedAndNothingIsWritten) {
    EXPECT_EQ(norv_linux_gpio_set_irq(&line, 4), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_set_irq(&line, UINT32_MAX), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenGpio, PolarityIsWrittenAsADigit) {
    EXPECT_EQ(norv_linux_gpio_set_active_low(&line, true), 0U);
    EXPECT_EQ(norv_linux_gpio_set_active_low(&line, false), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/gpio17/active_low"), ElementsAre("1\0"s, "0\0"s));
}

TEST_F(OpenGpio, AnAttributeThatTheKernelRefusesGivesTheErrnoStatus) {
    kernel.on_write("/sys/class/gpio/gpio17/direction", [](std::string_view) { return EPERM; });
    EXPECT_EQ(norv_linux_gpio_set_dir(&line, true), errno_status(EPERM));
}

TEST_F(OpenGpio, AMissingAttributeGivesTheStatusOfTheOpen) {
    kernel.remove("/sys/class/gpio/gpio17/edge");
    EXPECT_EQ(norv_linux_gpio_set_irq(&line, 1), NORV_STATUS_NOT_FOUND);
}

// ---- value

TEST_F(OpenGpio, SettingTheValueWritesTheOpenFile) {
    EXPECT_EQ(norv_linux_gpio_set_value(&line, true), 0U);
    EXPECT_EQ(norv_linux_gpio_set_value(&line, false), 0U);
    EXPECT_THAT(chip.value->written, ElementsAre("1\0"s, "0\0"s));
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(OpenGpio, GettingTheValueReadsFromTheStartEveryTime) {
    uint8_t value = 9;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 0);
    chip.value->level = '1';
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 1);
}

TEST_F(OpenGpio, AnythingButTheCharacterOneReadsAsZero) {
    chip.value->level = 'x';
    uint8_t value = 9;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 0);
}

TEST_F(OpenGpio, GettingTheValueIntoNullStillReadsTheFile) {
    chip.value->edge = true;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, nullptr), 0U);
    EXPECT_FALSE(chip.value->edge);
}

TEST_F(OpenGpio, AFailedSeekOrReadLeavesTheValueUnchanged) {
    for (const char* call : {"lseek", "read"}) {
        kernel.fail(call, EIO);
        uint8_t value = 9;
        EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), errno_status(EIO));
        EXPECT_EQ(value, 9);
    }
}

// quirk 1
TEST_F(OpenGpio, AFailedSeekWhoseErrnoMapsToZeroIsFollowedByTheRead) {
    kernel.map_errno(EIO, 0);
    kernel.fail("lseek", EIO);
    chip.value->level = '1';
    uint8_t value = 9;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 1);
}

TEST_F(OpenGpio, AFailedReadWhoseErrnoMapsToZeroCountsAsZero) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    chip.value->level = '1';
    uint8_t value = 9;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 0);
}

TEST_F(OpenGpio, TheValueIsReadWithItsNewline) {
    EXPECT_EQ(norv_linux_gpio_get_value(&line, nullptr), 0U);
    EXPECT_EQ(kernel.calls("read").at(0).as<byte_transfer>().bytes, "0\n");
}

TEST_F(Gpio, AtMostTwoBytesOfTheValueAreRead) {
    kernel.add_file("/sys/class/gpio/gpio40/value", "1234");
    EXPECT_EQ(norv_linux_gpio_open(40, &line), 0U);
    uint8_t value = 9;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), 0U);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(kernel.calls("read").at(0).as<byte_transfer>().bytes, "12");
    norv_linux_gpio_close(&line);
}

TEST_F(OpenGpio, SettingTheValueOfAnInputGivesTheErrnoStatus) {
    kernel.fail("write", EPERM);
    EXPECT_EQ(norv_linux_gpio_set_value(&line, true), errno_status(EPERM));
}

TEST_F(Gpio, AClosedHandleGivesTheStatusOfABadDescriptor) {
    norv_linux_gpio_open(17, &line);
    norv_linux_gpio_close(&line);
    uint8_t value = 0;
    EXPECT_EQ(norv_linux_gpio_get_value(&line, &value), errno_status(EBADF));
    EXPECT_EQ(norv_linux_gpio_set_value(&line, true), errno_status(EBADF));
}

// ---- waiting for an edge

TEST_F(OpenGpio, AnEdgeEndsTheWaitAndIsNotReadYet) {
    chip.value->edge = true;
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 1000), 0U);
    EXPECT_THAT(chip.value->poll_events, ElementsAre(POLLPRI));
    EXPECT_THAT(chip.value->poll_timeouts, ElementsAre(1000));
    EXPECT_TRUE(chip.value->edge);
}

TEST_F(OpenGpio, WithoutAnEdgeTheWaitTimesOut) {
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 5), NORV_STATUS_TIMEOUT);
}

TEST_F(OpenGpio, AStaleErrnoDoesNotRestartAWaitThatTimedOut) {
    errno = EINTR;
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 5), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(chip.value->poll_timeouts, ElementsAre(5));
}

TEST_F(OpenGpio, ATimeoutHas32Bits) {
    chip.value->edge = true;
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 65537), 0U);
    EXPECT_THAT(chip.value->poll_timeouts, ElementsAre(65537));
}

// quirk 4
TEST_F(OpenGpio, AnInterruptedWaitRestartsWithTheWholeTimeout) {
    chip.value->edge = true;
    chip.value->interruptions = 2;
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 700), 0U);
    EXPECT_THAT(chip.value->poll_timeouts, ElementsAre(700, 700, 700));
}

TEST_F(OpenGpio, AFailedWaitGivesTheErrnoStatus) {
    kernel.fail("poll", ENOMEM);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 5), NORV_STATUS_NO_MEMORY);
}

// ---- failure sweep

// Makes every call on a line, up to the first failure.
uint32_t use_line() {
    norv_linux_gpio_t line;
    uint32_t status = norv_linux_gpio_open(17, &line);
    if (status == 0) {
        status = norv_linux_gpio_set_dir(&line, false);
    }
    if (status == 0) {
        status = norv_linux_gpio_set_irq(&line, NORV_LINUX_GPIO_EDGE_RISING);
    }
    if (status == 0) {
        status = norv_linux_gpio_set_active_low(&line, false);
    }
    if (status == 0) {
        status = norv_linux_gpio_set_value(&line, true);
    }
    if (status == 0) {
        status = norv_linux_gpio_wait_irq(&line, 1);
    }
    uint8_t value = 0;
    if (status == 0) {
        status = norv_linux_gpio_get_value(&line, &value);
    }
    norv_linux_gpio_close(&line);
    EXPECT_EQ(line.value_descriptor, -1);
    return status;
}

TEST(GpioSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    std::unique_ptr<gpio_chip> chip;
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // A failed stat(2) of the line's directory means "not exported", an interrupted wait restarts, and
        // failures while closing are ignored.
        const bool ignored = struck.name == "stat" || struck.path == "/sys/class/gpio/unexport" ||
                             (struck.name == "poll" && struck.error == EINTR);
        return ignored ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [&](kernel_double& kernel) {
            chip = std::make_unique<gpio_chip>(kernel);
            chip->value->edge = true;
        },
        use_line, options);
}

}  // namespace
