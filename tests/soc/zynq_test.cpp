// SPDX-License-Identifier: MIT
// Clocks and sensors of Zynq and ZynqMP.
#include "norv_zynq.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer;
using norv::test::errno_status;
using norv::test::failure_sweep;
using norv::test::fault;
using norv::test::kernel_double;
using norv::test::opening;
using norv::test::strike;
using norv::test::sweep_options;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* zynq_rate = "/sys/class/fclkcfg/fclk0/rate";
constexpr const char* zynqmp_rate = "/sys/devices/platform/fclk0/set_rate";
constexpr const char* zynq_reset = "/sys/class/fclkcfg/fclk0/reset";

// Integers are parsed as a long, which has 32 bits on a 32-bit processor.
constexpr bool long_has_64_bits = sizeof(long) == 8;

constexpr uint32_t untouched_rate = 77;
constexpr int32_t untouched = -77;

std::string sensor(const std::string& attribute) {
    return "/sys/bus/iio/devices/iio:device0/in_" + attribute;
}

// A clock generator that reaches at most 99999999 Hz.
class clock_generator : public norv::test::device {
  public:
    std::string rate = "50000000\n";

    long write(const void* buffer, size_t size, off_t) override {
        const long wanted = std::stol(std::string(static_cast<const char*>(buffer), size));
        rate = std::to_string(std::min(wanted, 99999999L)) + "\n";
        return static_cast<long>(size);
    }
    long read(void* buffer, size_t size, off_t) override {
        return static_cast<long>(rate.copy(static_cast<char*>(buffer), size));
    }
};

// One that takes any rate and returns the text that the test sets: at first none.
class silent_clock : public norv::test::device {
  public:
    std::string rate;

    long write(const void*, size_t size, off_t) override { return static_cast<long>(size); }
    long read(void* buffer, size_t size, off_t) override {
        return static_cast<long>(rate.copy(static_cast<char*>(buffer), size));
    }
};

class Zynq : public testing::Test {
  protected:
    void set_sensor(const std::string& attribute, const std::string& text) {
        kernel.add_file(sensor(attribute), text);
    }
    uint32_t zynq_rate_of(const std::string& text) {
        kernel.add_file(zynq_rate, text);
        uint32_t rate = untouched_rate;
        EXPECT_EQ(norv_zynq_get_fclk_freq(0, &rate), 0U);
        return rate;
    }
    int32_t zynq_temperature_of(const std::string& text) {
        set_sensor("temp0_raw", text);
        int32_t temperature = untouched;
        EXPECT_EQ(norv_zynq_get_temperature(&temperature), 0U);
        return temperature;
    }
    int32_t zynq_voltage_of(const std::string& text, bool low_range) {
        set_sensor("voltage0_vccint_raw", text);
        int32_t voltage = untouched;
        EXPECT_EQ(norv_zynq_get_voltage("voltage0_vccint", low_range, &voltage), 0U);
        return voltage;
    }
    int32_t ps_temperature_of(const std::string& raw, const std::string& offset, const std::string& scale) {
        set_sensor("temp0_ps_temp_raw", raw);
        set_sensor("temp0_ps_temp_offset", offset);
        set_sensor("temp0_ps_temp_scale", scale);
        int32_t temperature = untouched;
        EXPECT_EQ(norv_zynqmp_get_ps_temperature(&temperature), 0U);
        return temperature;
    }
    int32_t zynqmp_voltage_of(const std::string& raw, const std::string& scale) {
        set_sensor("voltage1_raw", raw);
        set_sensor("voltage1_scale", scale);
        int32_t voltage = untouched;
        EXPECT_EQ(norv_zynqmp_get_voltage("voltage1", &voltage), 0U);
        return voltage;
    }

    // The attributes that were read, in order.
    std::vector<std::string> attributes_read() const {
        std::vector<std::string> paths;
        for (const auto& made : kernel.calls("read")) {
            paths.push_back(made.path);
        }
        return paths;
    }

    kernel_double kernel;
};

// ---- fabric clocks: setting the rate

class ZynqClock : public Zynq {
  protected:
    ZynqClock() { kernel.add_file(zynq_rate, "50000000\n"); }

    uint32_t rate = 100000000;
};

TEST_F(ZynqClock, SettingWritesTheRateWithItsNulAndReadsItBack) {
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_THAT(kernel.writes(zynq_rate), ElementsAre("100000000\0"s));
    EXPECT_THAT(kernel.open_flags(zynq_rate), ElementsAre(O_WRONLY | O_CLOEXEC, O_RDONLY | O_CLOEXEC));
}

TEST_F(ZynqClock, ARateThatTheClockCannotGenerateReturnsTheOneItGenerates) {
    kernel.add_device(zynq_rate, std::make_shared<clock_generator>());
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 99999999U);
}

TEST_F(ZynqClock, ARateThatTheClockGeneratesIsReturnedUnchanged) {
    kernel.add_device(zynq_rate, std::make_shared<clock_generator>());
    rate = 25000000;
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 25000000U);
}

// quirk 76
TEST_F(ZynqClock, RatesOf2To31OrMoreArePrintedSigned) {
    rate = 0xFFFFFFFEU;
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_THAT(kernel.writes(zynq_rate), ElementsAre("-2\0"s));
}

TEST_F(ZynqClock, TheReadBackIsParsedWithItsPrefix) {
    const auto clock = std::make_shared<silent_clock>();
    kernel.add_device(zynq_rate, clock);
    clock->rate = "0x10\n";
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 16U);
}

TEST_F(ZynqClock, TheReadBackIsReadUpTo15Bytes) {
    const auto clock = std::make_shared<silent_clock>();
    kernel.add_device(zynq_rate, clock);
    clock->rate = "000000000000123456";
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 012U);
    EXPECT_EQ(kernel.calls("read").at(0).as<byte_transfer>().bytes, "000000000000123");
}

// quirk 77
TEST_F(ZynqClock, ARateIsParsedAsALong) {
    const auto clock = std::make_shared<silent_clock>();
    const uint32_t expected = long_has_64_bits ? 3000000000 : INT32_MAX;
    clock->rate = "3000000000\n";
    kernel.add_device(zynq_rate, clock);
    kernel.add_device(zynqmp_rate, clock);
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, expected);
    rate = untouched_rate;
    EXPECT_EQ(norv_zynq_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, expected);
    rate = untouched_rate;
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, expected);
}

TEST_F(ZynqClock, AFailedWriteReturnsItsStatusAndLeavesTheRateUnchanged) {
    kernel.on_write(zynq_rate, [](std::string_view) { return EBUSY; });
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), errno_status(EBUSY));
    EXPECT_EQ(rate, 100000000U);
    EXPECT_THAT(kernel.calls("read"), IsEmpty());
}

TEST_F(ZynqClock, AClockThatDoesNotExistCannotBeSet) {
    EXPECT_EQ(norv_zynq_set_fclk_freq(9, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(rate, 100000000U);
}

// quirk 75
TEST_F(ZynqClock, AFailedReadBackIsASuccessAndReturnsTheRequestedRate) {
    kernel.add_device(zynq_rate, std::make_shared<clock_generator>());
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 100000000U);
}

TEST_F(ZynqClock, AReadBackThatCannotBeOpenedReturnsTheRequestedRate) {
    kernel.fail({.call = "open", .path = zynq_rate, .nth = 2, .error = EACCES});
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 100000000U);
}

TEST_F(ZynqClock, AFailedReadBackWithStatusZeroReturnsTheRequestedRate) {
    kernel.add_device(zynq_rate, std::make_shared<clock_generator>());
    kernel.fail("read", EIO);
    kernel.map_errno(EIO, 0);
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 100000000U);
}

TEST_F(ZynqClock, AnEmptyReadBackReturnsTheRequestedRate) {
    kernel.add_device(zynq_rate, std::make_shared<silent_clock>());
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 100000000U);
}

TEST_F(ZynqClock, AShortWriteOfARateIsASuccess) {
    kernel.fail({.call = "write", .how = fault::kind::short_count});
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, &rate), 0U);
}

// ---- fabric clocks: rate and reset

TEST_F(ZynqClock, TheRateIsRead) {
    EXPECT_EQ(norv_zynq_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 50000000U);
    EXPECT_THAT(kernel.open_flags(zynq_rate), ElementsAre(O_RDONLY | O_CLOEXEC));
}

// quirk 78
TEST_F(ZynqClock, NumbersAreParsedWithTheirPrefix) {
    EXPECT_EQ(zynq_rate_of("0x10\n"), 16U);
    EXPECT_EQ(zynq_rate_of("010\n"), 8U);
    EXPECT_EQ(zynq_rate_of("-1\n"), 0xFFFFFFFFU);
    EXPECT_EQ(zynq_rate_of("words\n"), 0U);
    EXPECT_EQ(zynq_rate_of(""), 0U);
}

// quirk 5
TEST_F(ZynqClock, TheLastByteOfANumberIsDroppedWhateverItIs) {
    EXPECT_EQ(zynq_rate_of("123"), 12U);
}

TEST_F(ZynqClock, ANumberIsReadUpTo15Bytes) {
    // The 15th byte is taken for the newline.
    EXPECT_EQ(zynq_rate_of("000000000000123456"), 012U);
}

TEST_F(ZynqClock, ARateThatCannotBeReadLeavesTheResultUnchanged) {
    rate = untouched_rate;
    EXPECT_EQ(norv_zynq_get_fclk_freq(9, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(9, &rate), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(rate, untouched_rate);
}

TEST_F(ZynqClock, AFailedReadWithStatusZeroIsARateOfZero) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_zynq_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 0U);
}

TEST_F(ZynqClock, TheRateOfAZynqMpClockIsReadFromItsPlatformDevice) {
    kernel.add_file(zynqmp_rate, "187498123\n");
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(rate, 187498123U);
    EXPECT_THAT(kernel.open_flags(zynqmp_rate), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(ZynqClock, AResetIsHeldWithAOneAndReleasedWithAZeroAndTheirNul) {
    kernel.add_file(zynq_reset);
    EXPECT_EQ(norv_zynq_set_fclk_reset(0, true), 0U);
    EXPECT_EQ(norv_zynq_set_fclk_reset(0, false), 0U);
    EXPECT_THAT(kernel.writes(zynq_reset), ElementsAre("1\0"s, "0\0"s));
}

TEST_F(ZynqClock, ARefusedResetReturnsTheErrnoStatus) {
    kernel.add_file(zynq_reset);
    kernel.on_write(zynq_reset, [](std::string_view) { return EIO; });
    EXPECT_EQ(norv_zynq_set_fclk_reset(0, true), errno_status(EIO));
    EXPECT_EQ(norv_zynq_set_fclk_reset(9, true), NORV_STATUS_NOT_FOUND);
}

// quirk 2
TEST_F(ZynqClock, TheNumberSelectsTheClockAndIsPrintedSigned) {
    kernel.add_file("/sys/class/fclkcfg/fclk3/rate", "3\n");
    kernel.add_file("/sys/class/fclkcfg/fclk-1/rate", "4\n");
    kernel.add_file("/sys/class/fclkcfg/fclk-1/reset");
    kernel.add_file("/sys/devices/platform/fclk-1/set_rate", "5\n");
    EXPECT_EQ(norv_zynq_get_fclk_freq(3, &rate), 0U);
    EXPECT_EQ(rate, 3U);
    EXPECT_EQ(norv_zynq_get_fclk_freq(0xFFFFFFFFU, &rate), 0U);
    EXPECT_EQ(rate, 4U);
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(0xFFFFFFFFU, &rate), 0U);
    EXPECT_EQ(rate, 5U);
    EXPECT_EQ(norv_zynq_set_fclk_reset(0xFFFFFFFFU, true), 0U);
    EXPECT_EQ(norv_zynq_set_fclk_freq(0xFFFFFFFFU, &rate), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/fclkcfg/fclk-1/rate"), ElementsAre("5\0"s));
}

// ---- Zynq sensors

TEST_F(Zynq, ATemperatureIsConvertedToHundredthsOfADegree) {
    EXPECT_EQ(zynq_temperature_of("2500\n"), 3445);
    EXPECT_EQ(zynq_temperature_of("4095\n"), 23070);
    EXPECT_EQ(zynq_temperature_of("0\n"), -27315);
}

TEST_F(Zynq, ATemperatureIsRoundedNotTruncated) {
    EXPECT_EQ(zynq_temperature_of("2502\n"), 3470);  // 3469.80
    EXPECT_EQ(zynq_temperature_of("2218\n"), -25);   // -24.57
}

// quirk 81
TEST_F(Zynq, ATemperatureIsComputedInSinglePrecision) {
    // 1353.4998 in double precision.
    EXPECT_EQ(zynq_temperature_of("2330\n"), 1354);
}

TEST_F(Zynq, ATemperatureThatCannotBeReadLeavesTheResultUnchanged) {
    int32_t temperature = untouched;
    EXPECT_EQ(norv_zynq_get_temperature(&temperature), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(temperature, untouched);
}

// quirk 77, quirk 82
TEST_F(Zynq, Only32BitsOfATemperatureReadingCount) {
    // 2^32 + 2500; a 32-bit long holds 2147483647 instead.
    EXPECT_EQ(zynq_temperature_of("4294969796\n"), long_has_64_bits ? 3445 : INT32_MAX);
}

TEST_F(Zynq, ReadingsAreParsedWithTheirPrefix) {
    EXPECT_EQ(zynq_temperature_of("0x9c4\n"), 3445);
    EXPECT_EQ(zynq_temperature_of("04704\n"), 3445);
    EXPECT_EQ(zynq_voltage_of("0x555\n", false), 1000);
    EXPECT_EQ(zynq_voltage_of("02525\n", false), 1000);
}

TEST_F(Zynq, ReadingsAreReadUpTo15Bytes) {
    // The 15th byte is taken for the newline.
    EXPECT_EQ(zynq_voltage_of("0x000000000555999\n", true), 333);
    EXPECT_EQ(zynqmp_voltage_of("000000000000123456\n", "1\n"), 12);
    EXPECT_EQ(zynqmp_voltage_of("1\n", "000000000000123456\n"), 12);
}

TEST_F(Zynq, EveryAttributeIsReadUpTo15Bytes) {
    int32_t value = 0;
    uint32_t rate = 0;
    kernel.add_file(zynq_rate, std::string(40, '1'));
    kernel.add_file(zynqmp_rate, std::string(40, '1'));
    for (const char* channel : {"temp0", "temp0_ps_temp", "temp2_pl_temp", "voltage1"}) {
        for (const char* part : {"_raw", "_offset", "_scale"}) {
            set_sensor(std::string(channel) + part, std::string(40, '1'));
        }
    }
    EXPECT_EQ(norv_zynq_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(0, &rate), 0U);
    EXPECT_EQ(norv_zynq_get_temperature(&value), 0U);
    EXPECT_EQ(norv_zynq_get_voltage("voltage1", false, &value), 0U);
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(&value), 0U);
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&value), 0U);
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage1", &value), 0U);
    EXPECT_THAT(attributes_read(), testing::SizeIs(12));
    EXPECT_THAT(kernel.calls<byte_transfer>("read"),
                testing::Each(testing::Field(&byte_transfer::bytes, std::string(15, '1'))));
}

TEST_F(Zynq, FullScaleIs3VoltsOr1VoltInTheLowRange) {
    EXPECT_EQ(zynq_voltage_of("1365\n", false), 1000);
    EXPECT_EQ(zynq_voltage_of("1365\n", true), 333);
    EXPECT_EQ(zynq_voltage_of("4095\n", false), 2999);
}

TEST_F(Zynq, HalvesAreRoundedAwayFromZero) {
    EXPECT_EQ(zynq_voltage_of("256\n", true), 63);
    EXPECT_EQ(zynq_voltage_of("-256\n", true), -63);
}

// quirk 81
TEST_F(Zynq, AVoltageIsComputedInSinglePrecision) {
    // 33135.4980 in double precision.
    EXPECT_EQ(zynq_voltage_of("45241\n", false), 33136);
}

TEST_F(Zynq, TheCallerNamesTheChannel) {
    set_sensor("voltage7_any name_raw", "2048\n");
    int32_t voltage = 0;
    EXPECT_EQ(norv_zynq_get_voltage("voltage7_any name", false, &voltage), 0U);
    EXPECT_EQ(voltage, 1500);
}

TEST_F(Zynq, AVoltageThatCannotBeReadLeavesTheResultUnchanged) {
    int32_t voltage = untouched;
    EXPECT_EQ(norv_zynq_get_voltage("voltage9", false, &voltage), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(voltage, untouched);
}

TEST_F(Zynq, AReadingBeyondTheIntegersBecomesTheNearestOne) {
    EXPECT_EQ(zynq_voltage_of("99999999999999\n", false), long_has_64_bits ? INT32_MAX : 1572864000);
    EXPECT_EQ(zynq_voltage_of("-9999999999999\n", false), long_has_64_bits ? INT32_MIN : -1572864000);
}

// ---- ZynqMP sensors

TEST_F(Zynq, ThePsTemperatureIsRawPlusOffsetTimesScaleInHundredths) {
    EXPECT_EQ(ps_temperature_of("41000\n", "-36058\n", "7.771514892\n"), 3841);
}

// quirk 81
TEST_F(Zynq, ThePsTemperatureIsComputedInSinglePrecision) {
    // -23370.4996 in double precision.
    EXPECT_EQ(ps_temperature_of("5986\n", "-36058\n", "7.771514892\n"), -23371);
}

TEST_F(Zynq, TheOffsetIsAddedBeforeTheScaleIsApplied) {
    // -15099 if each were scaled by itself.
    EXPECT_EQ(ps_temperature_of("16630\n", "-36058\n", "7.771514892\n"), -15098);
}

TEST_F(Zynq, ThePlTemperatureHasAChannelOfItsOwn) {
    set_sensor("temp2_pl_temp_raw", "41000\n");
    set_sensor("temp2_pl_temp_offset", "-36058\n");
    set_sensor("temp2_pl_temp_scale", "7.771514892\n");
    int32_t temperature = 0;
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&temperature), 0U);
    EXPECT_EQ(temperature, 3841);
}

TEST_F(Zynq, ATemperatureReadsOffsetScaleAndRawValueInThatOrder) {
    for (const char* channel : {"temp0_ps_temp", "temp2_pl_temp"}) {
        for (const char* part : {"_raw", "_offset", "_scale"}) {
            set_sensor(std::string(channel) + part, "2\n");
        }
    }
    int32_t temperature = 0;
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(&temperature), 0U);
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&temperature), 0U);
    EXPECT_THAT(attributes_read(), ElementsAre(sensor("temp0_ps_temp_offset"), sensor("temp0_ps_temp_scale"),
                                               sensor("temp0_ps_temp_raw"), sensor("temp2_pl_temp_offset"),
                                               sensor("temp2_pl_temp_scale"), sensor("temp2_pl_temp_raw")));
}

// quirk 79
TEST_F(Zynq, AMissingOffsetCountsAsZero) {
    set_sensor("temp0_ps_temp_raw", "41000\n");
    set_sensor("temp0_ps_temp_scale", "7.771514892\n");
    int32_t temperature = 0;
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(&temperature), 0U);
    EXPECT_EQ(temperature, 31863);
}

// quirk 79
TEST_F(Zynq, ATemperatureWithoutAScaleIsZeroAndNotAFailure) {
    set_sensor("temp2_pl_temp_raw", "41000\n");
    set_sensor("temp2_pl_temp_offset", "-36058\n");
    int32_t temperature = untouched;
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&temperature), 0U);
    EXPECT_EQ(temperature, 0);
}

TEST_F(Zynq, ATemperatureWithoutARawValueIsAFailure) {
    set_sensor("temp0_ps_temp_offset", "-36058\n");
    set_sensor("temp0_ps_temp_scale", "7.771514892\n");
    int32_t temperature = untouched;
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(&temperature), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(&temperature), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(temperature, untouched);
}

TEST_F(Zynq, AZynqMpVoltageIsRawTimesScale) {
    EXPECT_EQ(zynqmp_voltage_of("18000\n", "0.045776367\n"), 824);
    EXPECT_EQ(zynqmp_voltage_of("-18000\n", "0.045776367\n"), -824);
}

TEST_F(Zynq, AZynqMpVoltageReadsTheRawValueBeforeTheScale) {
    zynqmp_voltage_of("18000\n", "0.045776367\n");
    EXPECT_THAT(attributes_read(), ElementsAre(sensor("voltage1_raw"), sensor("voltage1_scale")));
}

// quirk 81
TEST_F(Zynq, AZynqMpVoltageIsComputedInSinglePrecision) {
    // 187.499999 in double precision.
    EXPECT_EQ(zynqmp_voltage_of("4096\n", "0.045776367\n"), 188);
}

// quirk 80
TEST_F(Zynq, AZynqMpVoltageWithoutARawValueIsZeroAndNotAFailure) {
    set_sensor("voltage1_scale", "0.045776367\n");
    int32_t voltage = untouched;
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage1", &voltage), 0U);
    EXPECT_EQ(voltage, 0);
}

// quirk 80
TEST_F(Zynq, AZynqMpVoltageWithoutAScaleIsAFailure) {
    set_sensor("voltage1_raw", "18000\n");
    int32_t voltage = untouched;
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage1", &voltage), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(voltage, untouched);
}

TEST_F(Zynq, AProductBeyondTheIntegersBecomesTheNearestOne) {
    EXPECT_EQ(zynqmp_voltage_of("2147483648\n", "1\n"), INT32_MAX);
    EXPECT_EQ(zynqmp_voltage_of("-2147483648\n", "1\n"), INT32_MIN);
    EXPECT_EQ(zynqmp_voltage_of("-1e10\n", "1\n"), INT32_MIN);
    EXPECT_EQ(zynqmp_voltage_of("inf\n", "1\n"), INT32_MAX);
}

TEST_F(Zynq, NotANumberBecomesZero) {
    EXPECT_EQ(zynqmp_voltage_of("nan\n", "1\n"), 0);
    EXPECT_EQ(zynqmp_voltage_of("words\n", "1\n"), 0);
}

TEST_F(Zynq, ANullPointerIsAnInvalidArgument) {
    int32_t value = 0;
    EXPECT_EQ(norv_zynq_set_fclk_freq(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynq_get_fclk_freq(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynq_get_temperature(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynq_get_voltage(nullptr, false, &value), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynq_get_voltage("voltage1", false, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynqmp_get_fclk_freq(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynqmp_get_ps_temperature(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynqmp_get_pl_temperature(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynqmp_get_voltage(nullptr, &value), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_zynqmp_get_voltage("voltage1", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

void build_board(kernel_double& kernel) {
    kernel.add_file(zynq_rate, "50000000\n");
    kernel.add_file(zynq_reset);
    kernel.add_file(zynqmp_rate, "50000000\n");
    for (const char* channel : {"temp0", "temp0_ps_temp", "temp2_pl_temp", "voltage1"}) {
        for (const char* part : {"_raw", "_offset", "_scale"}) {
            kernel.add_file(sensor(std::string(channel) + part), "2\n");
        }
    }
}

// Expects the status of each fault, but none for faults of attributes with these endings.
sweep_options unreported_for(std::vector<std::string> endings) {
    sweep_options options;
    options.expect = [endings = std::move(endings)](const strike& struck) {
        for (const std::string& ending : endings) {
            if (struck.path.ends_with(ending)) {
                return uint32_t{0};
            }
        }
        return norv::test::status_of_fault(struck);
    };
    return options;
}

TEST(ZynqSweep, EveryFailureOfClocksIsReported) {
    failure_sweep(build_board, [] {
        uint32_t rate = 0;
        uint32_t status = norv_zynq_get_fclk_freq(0, &rate);
        if (status == 0) {
            status = norv_zynqmp_get_fclk_freq(0, &rate);
        }
        return status == 0 ? norv_zynq_set_fclk_reset(0, true) : status;
    });
}

TEST(ZynqSweep, OnlyTheFailureToWriteIsReportedWhenSettingAClock) {
    sweep_options options;
    options.expect = [](const strike& struck) {
        const bool of_write = struck.name == "write" ||
                              (struck.name == "open" && (struck.as<opening>().flags & O_ACCMODE) != O_RDONLY);
        return of_write ? norv::test::status_of_fault(struck) : 0;
    };
    failure_sweep(
        build_board,
        [] {
            uint32_t rate = 100000000;
            return norv_zynq_set_fclk_freq(0, &rate);
        },
        options);
}

TEST(ZynqSweep, EveryFailureOfZynqSensorsIsReported) {
    failure_sweep(build_board, [] {
        int32_t value = 0;
        const uint32_t status = norv_zynq_get_temperature(&value);
        return status == 0 ? norv_zynq_get_voltage("voltage1", false, &value) : status;
    });
}

TEST(ZynqSweep, OnlyTheRawValueOfAZynqMpTemperatureMayFail) {
    failure_sweep(
        build_board,
        [] {
            int32_t value = 0;
            const uint32_t status = norv_zynqmp_get_ps_temperature(&value);
            return status == 0 ? norv_zynqmp_get_pl_temperature(&value) : status;
        },
        unreported_for({"_offset", "_scale"}));
}

TEST(ZynqSweep, OnlyTheScaleOfAZynqMpVoltageMayFail) {
    failure_sweep(
        build_board,
        [] {
            int32_t value = 0;
            return norv_zynqmp_get_voltage("voltage1", &value);
        },
        unreported_for({"_raw"}));
}

}  // namespace
