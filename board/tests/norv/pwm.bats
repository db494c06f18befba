#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv pwm on the virtual board: channels 2n and 2n+1 of chip 0 are wired to each other

load ../../../tests/norv/support

@test "pwm: ASignalGoesOnAndItsNeighbourMeasuresIt" {
    norv pwm set 0 0 25kHz 25%
    succeeds
    norv pwm capture 0 1
    succeeds "period 40000 ns, high 10000 ns (25.0 %)"
}

@test "pwm: ARunningSignalIsMadeShorterAndLonger" {
    norv pwm set 0 0 1ms 500us
    norv pwm set 0 0 100us 50us
    succeeds
    norv pwm set 0 0 2ms 1500us
    succeeds
    norv pwm capture --json 0 1
    prints_json '. == {"chip": 0, "channel": 1, "period_ns": 2000000, "duty_ns": 1500000}'
}

@test "pwm: AnInversedSignalIsLowInItsActivePart" {
    norv pwm set 0 2 40us 10us --polarity inversed
    succeeds
    norv pwm capture 0 3
    succeeds "period 40000 ns, high 30000 ns (75.0 %)"
}

@test "pwm: AStoppedSignalIsGoneAndStartsAgain" {
    norv pwm set 0 0 40us 10us
    norv pwm stop 0 0
    succeeds
    norv pwm capture 0 1
    fails "pwm 0:1: TIMEOUT: there is no signal"
    norv pwm start 0 0
    norv pwm capture 0 1
    succeeds
}

@test "pwm: AChannelIsGivenBack" {
    norv pwm set 0 0 40us 10us
    norv pwm free 0 0
    succeeds
    [[ ! -e /sys/class/pwm/pwmchip0/pwm0 ]]
}

@test "pwm: TheWholeNumberOfChannelsIsListed" {
    norv pwm list --json
    prints_json 'map(.channels) == [4, 128]'
}

@test "pwm: AChannelThatIsNotThereIsNamedWithItsUsualCause" {
    norv pwm start 0 4
    fails "pwm 0:4: ENODEV: the chip has no such channel"
}
