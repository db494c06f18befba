#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv gpio on the virtual board: lines 2n and 2n+1 hang on one wire

load ../../../tests/norv/support

@test "gpio: ADrivenLineKeepsItsLevelAndItsNeighbourSeesIt" {
    norv gpio set 16=1
    succeeds
    norv gpio get 17
    succeeds 1
    norv gpio set 16=0
    norv gpio get 16 17
    succeeds "0 0"
}

@test "gpio: ReadingALineLeavesItExportedOnlyIfItWas" {
    norv gpio set 18=1
    norv gpio get 18 19
    [[ -e /sys/class/gpio/gpio18 && ! -e /sys/class/gpio/gpio19 ]]
}

@test "gpio: AFreedLineIsGivenBack" {
    norv gpio set 18=1
    norv gpio free 18
    succeeds
    [[ ! -e /sys/class/gpio/gpio18 ]]
}

@test "gpio: AHeldLineIsGivenBackAtTheEnd" {
    norv gpio set 20=1 --hold 1
    succeeds
    [[ ! -e /sys/class/gpio/gpio20 ]]
}

@test "gpio: ActiveLowInvertsBothWays" {
    norv gpio set --active-low 16=1
    norv gpio get 17
    succeeds 0
    norv gpio get --active-low 17
    succeeds 1
}

@test "gpio: LevelsAsJson" {
    norv gpio set 16=1
    norv gpio get --json 16 17
    prints_json '. == [{"line": 16, "value": 1}, {"line": 17, "value": 1}]'
}

@test "gpio: AWatchShowsTheLevelAtTheStartAndThenTheEdges" {
    norv gpio set 16=0
    norv_in_background gpio watch --json --count 2 --timeout 60000 17
    appears '"event":"start","value":0'
    "$NORV" gpio set 16=1
    appears '"line":17,"event":"edge","value":1'
    "$NORV" gpio set 16=0
    background_ends
    appears '"line":17,"event":"edge","value":0'
}

@test "gpio: AWatchWhoseReaderGoesAwayGivesItsLineBack" {
    norv gpio set 16=0
    mkfifo "$BATS_TEST_TMPDIR/pipe"
    "$NORV" gpio watch 17 >"$BATS_TEST_TMPDIR/pipe" 3>&- &
    # The start is read, and no reader waits for the next edge.
    head -n 1 "$BATS_TEST_TMPDIR/pipe"
    "$NORV" gpio set 16=1
    wait_until test ! -e /sys/class/gpio/gpio17
}

@test "gpio: AWatchEndsWithAFailureWhenNoEdgeCame" {
    norv gpio watch --timeout 1 17
    fails "gpio watch: TIMEOUT: no edge in time"
}

@test "gpio: CtrlCEndsAWatchInGoodOrder" {
    norv_in_background gpio watch 21
    appears start
    interrupt_background
    background_ends
    [[ ! -e /sys/class/gpio/gpio21 ]]
}

@test "gpio: ALineThatIsNotThereIsNamedWithItsUsualCause" {
    norv gpio get 99
    fails "gpio 99: INVALID_ARG: no such line; is the gpiochip driver loaded?"
}

@test "gpio: ALineThatSomebodyHasIsNamedWithItsUsualCause" {
    norv gpio get 31
    fails "gpio 31: EBUSY: a kernel driver or another program uses the line"
}

@test "gpio: ALineThatCannotBeDrivenIsNamedWithItsUsualCause" {
    norv gpio set 29=1
    fails "gpio 29: EPERM: the line cannot be driven; is it an input only?"
}
