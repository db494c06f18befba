// SPDX-License-Identifier: MIT
// FPGA programming, device-tree overlays, and clocks and sensors of Zynq and ZynqMP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "cpp/owner_sweep.hpp"
#include "norv/dt.hpp"
#include "norv/fpga.hpp"
#include "norv/zynq.hpp"
#include "soc/dt_overlay_configfs.hpp"

namespace {

using norv::test::good_overlay;
using norv::test::kernel_double;
using norv::test::overlay_configfs;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr char firmware[] = "/sys/class/fpga_manager/fpga2/firmware";
constexpr char state[] = "/sys/class/fpga_manager/fpga2/state";
constexpr char rate[] = "/sys/class/fclkcfg/fclk1/rate";
constexpr char reset[] = "/sys/class/fclkcfg/fclk1/reset";

std::string sensor(const std::string& attribute) {
    return "/sys/bus/iio/devices/iio:device0/in_" + attribute;
}

// ---- FPGA

class CppFpga : public testing::Test {
  protected:
    CppFpga() {
        kernel.add_file(firmware);
        kernel.add_file(state, "operating\n");
    }

    kernel_double kernel;
};

TEST_F(CppFpga, ProgrammingWritesTheNameOfTheFirmware) {
    const std::string text = "design.bin and more";
    EXPECT_EQ(norv::fpga::program(2, std::string_view(text).substr(0, 10)), norv::ok);
    EXPECT_THAT(kernel.writes(firmware), ElementsAre("design.bin\0"s));
    EXPECT_EQ(norv::fpga::program(3, "design.bin"), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppFpga, ANameThatIsTooLongIsAnInvalidArgument) {
    EXPECT_EQ(norv::fpga::program(2, std::string(4095, 'f')), norv::ok);
    EXPECT_EQ(norv::fpga::program(2, std::string(4096, 'f')), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::fpga::program(2, "a\0b"s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(kernel.writes(firmware).size(), 1U);
}

TEST_F(CppFpga, TheStateIsReported) {
    EXPECT_TRUE(norv::fpga::is_program_done(2).value());
    kernel.add_file(state, "unknown\n");
    EXPECT_FALSE(norv::fpga::is_program_done(2).value());
    EXPECT_EQ(norv::fpga::is_program_done(3).status(), NORV_STATUS_NOT_FOUND);
}

// ---- overlays

class CppOverlay : public testing::Test {
  protected:
    kernel_double kernel;
    overlay_configfs configfs{kernel};
};

TEST_F(CppOverlay, AnOverlayIsLoadedReportedAndUnloaded) {
    EXPECT_FALSE(norv::dt::has_overlay("camera").value());
    EXPECT_EQ(norv::dt::load_overlay("camera", overlay_configfs::file), norv::ok);
    EXPECT_THAT(kernel.writes("/sys/kernel/config/device-tree/overlays/camera/dtbo"),
                ElementsAre(good_overlay));
    EXPECT_TRUE(norv::dt::has_overlay("camera").value());
    EXPECT_EQ(norv::dt::unload_overlay("camera"), norv::ok);
    EXPECT_FALSE(kernel.exists("/sys/kernel/config/device-tree/overlays/camera"));
    EXPECT_EQ(norv::dt::unload_overlay("camera"), NORV_STATUS_NOT_FOUND);
}

// quirk 6
TEST_F(CppOverlay, ANameThatWouldBeTruncatedIsAnInvalidArgument) {
    const std::string longest(208, 'n');
    EXPECT_EQ(norv::dt::load_overlay(longest, overlay_configfs::file), norv::ok);
    EXPECT_TRUE(norv::dt::has_overlay(longest).value());
    EXPECT_EQ(norv::dt::unload_overlay(longest), norv::ok);
    kernel.forget_calls();
    EXPECT_EQ(norv::dt::load_overlay(longest + "n", overlay_configfs::file), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::dt::load_overlay("camera", std::string(4096, 'p')), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::dt::has_overlay(longest + "n").status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::dt::unload_overlay(longest + "n"), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- Zynq

class CppZynq : public testing::Test {
  protected:
    kernel_double kernel;
};

TEST_F(CppZynq, TheRateOfAClockIsSetAndRead) {
    kernel.add_file(rate, "50000000\n");
    EXPECT_EQ(norv::zynq::get_fclk_freq(1).value(), 50000000U);
    kernel.on_write(rate, [](std::string_view) { return EINVAL; });
    EXPECT_EQ(norv::zynq::set_fclk_freq(1, 7).status(), NORV_STATUS_INVALID_ARG);
    kernel.on_write(rate, [](std::string_view) { return 0; });
    EXPECT_EQ(norv::zynq::set_fclk_freq(1, 70000001).value(), 7000000U);  // as read back: quirk 5
    EXPECT_THAT(kernel.writes(rate).back(), "70000001\0"s);
    EXPECT_EQ(norv::zynq::get_fclk_freq(2).status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppZynq, AClockIsHeldInReset) {
    kernel.add_file(reset);
    EXPECT_EQ(norv::zynq::set_fclk_reset(1, true), norv::ok);
    EXPECT_EQ(norv::zynq::set_fclk_reset(1, false), norv::ok);
    EXPECT_THAT(kernel.writes(reset), ElementsAre("1\0"s, "0\0"s));
}

TEST_F(CppZynq, TheSensorsAreRead) {
    kernel.add_file(sensor("temp0_raw"), "2500\n");
    kernel.add_file(sensor("voltage0_vccint_raw"), "2048\n");
    EXPECT_EQ(norv::zynq::get_temperature().value(), 3445);
    EXPECT_EQ(norv::zynq::get_voltage("voltage0_vccint", norv::zynq::full_scale::three_volts).value(), 1500);
    EXPECT_EQ(norv::zynq::get_voltage("voltage0_vccint", norv::zynq::full_scale::one_volt).value(), 500);
    EXPECT_EQ(norv::zynq::get_voltage("none", norv::zynq::full_scale::one_volt).status(),
              NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv::zynq::get_voltage(std::string(256, 'c'), norv::zynq::full_scale::one_volt).status(),
              NORV_STATUS_INVALID_ARG);
}

TEST_F(CppZynq, TheSensorsOfAZynqMpAreRead) {
    kernel.add_file("/sys/devices/platform/fclk1/set_rate", "99999999\n");
    for (const char* const channel : {"temp0_ps_temp", "temp2_pl_temp"}) {
        kernel.add_file(sensor(channel + "_raw"s), channel == "temp0_ps_temp"s ? "40000\n" : "41000\n");
        kernel.add_file(sensor(channel + "_offset"s), "-36058\n");
        kernel.add_file(sensor(channel + "_scale"s), "10\n");
    }
    kernel.add_file(sensor("voltage1_vccint_raw"), "18000\n");
    kernel.add_file(sensor("voltage1_vccint_scale"), "0.045\n");
    EXPECT_EQ(norv::zynqmp::get_fclk_freq(1).value(), 99999999U);
    EXPECT_EQ(norv::zynqmp::get_ps_temperature().value(), 3942);
    EXPECT_EQ(norv::zynqmp::get_pl_temperature().value(), 4942);
    EXPECT_EQ(norv::zynqmp::get_voltage("voltage1_vccint").value(), 810);
    EXPECT_EQ(norv::zynqmp::get_voltage("none").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv::zynqmp::get_fclk_freq(2).status(), NORV_STATUS_NOT_FOUND);
}

// ---- failures

TEST(CppSocSweep, NothingLeaks) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            kernel.add_file(firmware);
            kernel.add_file(state, "operating\n");
            kernel.add_file(rate, "50000000\n");
            kernel.add_file(sensor("temp0_raw"), "2500\n");
        },
        [] {
            norv::status done = norv::fpga::program(2, "design.bin");
            done = done.ok() ? norv::fpga::is_program_done(2).status() : done;
            done = done.ok() ? norv::zynq::set_fclk_freq(1, 70000000).status() : done;
            done = done.ok() ? norv::zynq::get_temperature().status() : done;
            return done.number();
        });
}

TEST(CppOverlaySweep, NothingLeaks) {
    std::optional<overlay_configfs> configfs;
    norv::test::owner_sweep([&](kernel_double& kernel) { configfs.emplace(kernel); },
                            [] {
                                norv::status done = norv::dt::load_overlay("camera", overlay_configfs::file);
                                done = done.ok() ? norv::dt::has_overlay("camera").status() : done;
                                return (done.ok() ? norv::dt::unload_overlay("camera") : done).number();
                            });
}

}  // namespace
