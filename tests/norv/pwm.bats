#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv pwm, where there is no such chip

load support

no_chip=99

@test "AChipThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv pwm start "$no_chip" 0
    fails_in /sys/class/pwm "pwm 99:0" "no such chip; see norv pwm list"
}

@test "APeriodHasAUnitThatIsKnown" {
    norv pwm set "$no_chip" 0 10parsec 5
    is_wrong_usage '"10parsec" is not a period'
}

@test "APeriodIsNoLongerThanTheKernelTakes" {
    norv pwm set "$no_chip" 0 3s 1s
    is_wrong_usage '"3s" is not a period'
}

@test "ADutyIsNotLongerThanThePeriod" {
    norv pwm set "$no_chip" 0 40us 50us
    is_wrong_usage "the duty is longer than the period"
}

@test "AShareIsAHundredPercentAtMost" {
    norv pwm set "$no_chip" 0 40us 101%
    is_wrong_usage '"101%" is not a share of the period'
}

@test "APolarityIsOneOfTwo" {
    norv pwm set "$no_chip" 0 40us 10us --polarity upside
    is_wrong_usage --polarity
}
