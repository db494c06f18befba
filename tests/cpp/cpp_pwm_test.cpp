// SPDX-License-Identifier: MIT
// The owner of a PWM channel.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/pwm.hpp"
#include "support/kernel_double.hpp"
#include "sysfs/pwm_chip.hpp"

namespace {

using norv::pwm;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace norv::test::pwm_chip;
using namespace std::chrono_literals;
using namespace std::string_literals;

class Pwm : public testing::Test {
  protected:
    Pwm() { add_chip(kernel); }

    kernel_double kernel;
};

TEST_F(Pwm, AnOpenChannelIsUnexportedWithItsOwner) {
    {
        const norv::result<pwm> fan = pwm::open(3, 2);
        ASSERT_TRUE(fan);
        EXPECT_TRUE(kernel.exists(channel_directory));
    }
    EXPECT_THAT(kernel.writes(chip_export), ElementsAre("2\0"s));
    EXPECT_THAT(kernel.writes(chip_unexport), ElementsAre("2\0"s));
}

TEST_F(Pwm, AChannelCanStayExported) {
    {
        pwm fan = pwm::open(3, 2).value();
        fan.keep_exported(true);
        const pwm moved = std::move(fan);
        fan.keep_exported(false);
    }
    EXPECT_THAT(kernel.writes(chip_unexport), IsEmpty());
    {
        pwm fan = pwm::open(3, 2).value();
        fan.keep_exported(true);
        fan.keep_exported(false);
    }
    EXPECT_THAT(kernel.writes(chip_unexport), ElementsAre("2\0"s));
}

TEST_F(Pwm, AFailedOpenHasTheStatusAndUnexportsNothing) {
    export_channel(kernel);
    EXPECT_EQ(pwm::open(4, 2).status(), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.writes(chip_unexport), IsEmpty());
}

TEST_F(Pwm, TheAttributesAreWritten) {
    pwm fan = pwm::open(3, 2).value();
    EXPECT_EQ(fan.set_period(40us), norv::ok);
    EXPECT_EQ(fan.set_duty(std::chrono::nanoseconds(INT32_MAX)), norv::ok);
    EXPECT_EQ(fan.set_polarity(pwm::polarity::inversed), norv::ok);
    EXPECT_EQ(fan.enable(true), norv::ok);
    EXPECT_THAT(kernel.writes(period), ElementsAre("40000\0"s));
    EXPECT_THAT(kernel.writes(duty_cycle), ElementsAre("2147483647\0"s));
    EXPECT_THAT(kernel.writes(polarity), ElementsAre("inversed\0"s));
    EXPECT_THAT(kernel.writes(enable), ElementsAre("1\0"s));
    EXPECT_EQ(fan.set_polarity(pwm::polarity::normal), norv::ok);
    EXPECT_EQ(fan.enable(false), norv::ok);
    EXPECT_EQ(kernel.writes(polarity).back(), "normal\0"s);
    EXPECT_EQ(kernel.writes(enable).back(), "0\0"s);
}

TEST_F(Pwm, ATimeThatTheKernelCannotTakeIsNotWritten) {
    pwm fan = pwm::open(3, 2).value();
    kernel.forget_calls();
    for (const std::chrono::nanoseconds time : {-1ns, 0x8000'0000ns, 0x1'0000'0001ns}) {
        EXPECT_EQ(fan.set_period(time), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(fan.set_duty(time), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Pwm, ACaptureHasBothTimes) {
    pwm fan = pwm::open(3, 2).value();
    const pwm::capture measured = fan.get_capture().value();
    EXPECT_EQ(measured.period, 20us);
    EXPECT_EQ(measured.duty, 5us);
    kernel.fail("read", ENOSYS);
    EXPECT_EQ(fan.get_capture().status(), norv_get_status_by_errno(ENOSYS));
}

TEST_F(Pwm, AChipHasItsNumberOfChannels) {
    EXPECT_EQ(pwm::get_channel_count(3).value(), 4U);
    EXPECT_EQ(pwm::get_channel_count(4).status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(Pwm, AChannelThatWasMovedFromIsAnInvalidArgument) {
    pwm fan = pwm::open(3, 2).value();
    pwm other = std::move(fan);
    kernel.forget_calls();
    EXPECT_EQ(fan.enable(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(fan.set_period(1us), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(fan.set_duty(1us), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(fan.set_polarity(pwm::polarity::normal), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(fan.get_capture().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(fan.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.get()->channel, 2U);
    EXPECT_EQ(other.enable(true), norv::ok);
}

TEST_F(Pwm, MovingIntoAnOpenChannelClosesIt) {
    kernel.add_file("/sys/class/pwm/pwmchip4/pwm0/enable");
    kernel.add_file("/sys/class/pwm/pwmchip4/unexport");
    pwm fan = pwm::open(3, 2).value();
    fan = pwm::open(4, 0).value();
    EXPECT_THAT(kernel.writes(chip_unexport), ElementsAre("2\0"s));
    EXPECT_THAT(kernel.writes("/sys/class/pwm/pwmchip4/unexport"), IsEmpty());
}

TEST(PwmSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(add_chip, [] {
        norv::result<pwm> fan = pwm::open(3, 2);
        if (!fan) {
            return fan.status().number();
        }
        const norv::status set = fan->set_period(1us);
        return set.ok() ? fan->get_capture().status().number() : set.number();
    });
}

}  // namespace
