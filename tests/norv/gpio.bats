#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv gpio, where there is no such line

load support

# Beyond the numbers that any kernel gives.
no_line=4000000000

@test "ALineThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv gpio get "$no_line"
    fails_like "gpio $no_line: (NOT_FOUND|INVALID_ARG|EACCES): .+"
}

@test "ALevelIsZeroOrOne" {
    norv gpio set "$no_line=2"
    is_wrong_usage "\"$no_line=2\" is not LINE=0 or LINE=1"
}

@test "ALineToDriveIsANumber" {
    norv gpio set reset=1
    is_wrong_usage '"reset=1" is not LINE=0 or LINE=1'
}

@test "AnEdgeIsOneOfThree" {
    norv gpio watch --edge sideways "$no_line"
    is_wrong_usage '"sideways" is not one of both, falling, rising'
}

@test "ALineIsNeeded" {
    norv gpio get
    is_wrong_usage "LINE is required"
}
