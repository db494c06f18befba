#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv clock, where there is no such clock

load support

no_clock=999999
cause="no such clock; is the fabric clocks' driver loaded?"

@test "AClockThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv clock get "$no_clock"
    fails "clock $no_clock: NOT_FOUND: $cause"
    norv clock get --soc zynqmp "$no_clock"
    fails "clock $no_clock: NOT_FOUND: $cause"
    norv clock set "$no_clock" 100M
    fails "clock $no_clock: NOT_FOUND: $cause"
    norv clock reset "$no_clock" on
    fails "clock $no_clock: NOT_FOUND: $cause"
}

@test "AListHasAHeadingAlsoWhereThereAreNoClocks" {
    norv clock list --soc zynq
    succeeds
    [[ ${lines[0]} == "CLOCK  RATE" ]]
}

@test "AListAsJsonIsAnArray" {
    norv clock list --json
    prints_json 'type == "array"'
}

@test "ARateIsBetweenOneHertzAndTheLargestThatADriverCanBeTold" {
    norv clock set "$no_clock" 0
    is_wrong_usage "a rate of 0 Hz cannot be requested"
    norv clock set "$no_clock" 2147483648
    is_wrong_usage "a rate of 2.14748e+09 Hz cannot be requested"
}

@test "AUnitIsOneOfThree" {
    norv clock set "$no_clock" 100T
    is_wrong_usage RATE
}

@test "AResetIsOnOrOff" {
    norv clock reset "$no_clock" maybe
    is_wrong_usage '"maybe" is not one of off, on'
}

@test "AFamilyIsOneOfTwo" {
    norv clock list --soc versal
    is_wrong_usage '"versal" is not one of zynq, zynqmp'
}
