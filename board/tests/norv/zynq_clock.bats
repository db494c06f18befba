#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv clock on the virtual board: four clocks, divided from 999999990 Hz

load ../../../tests/norv/support

setup() { "$NORV" clock set 1 50M; }

@test "zynq_clock: ASetClockShowsTheRateThatItMakes" {
    norv clock set 0 100000000
    succeeds 99999999
    norv clock set 0 148.5M
    succeeds 142857141
    norv clock get 0
    succeeds 142857141
}

@test "zynq_clock: AllClocksAreListed" {
    norv clock list
    succeeds
    [[ ${#lines[@]} -eq 5 && ${lines[2]} == "    1  49999999" ]]
}

@test "zynq_clock: ClocksAsJson" {
    norv clock list --json
    prints_json 'length == 4 and .[1] == {"clock": 1, "rate": 49999999}'
    norv clock get --json 1
    prints_json '. == {"clock": 1, "rate": 49999999}'
}

@test "zynq_clock: TheClocksOfAZynqMpAreReadElsewhere" {
    norv clock get --soc zynqmp 1
    succeeds 49999999
    norv clock list --soc zynqmp --json
    prints_json 'length == 4'
}

@test "zynq_clock: AResetIsHeldAndLetGo" {
    norv clock reset 2 on
    succeeds ""
    [[ $(</sys/class/fclkcfg/fclk2/reset) -eq 1 ]]
    norv clock reset 2 off
    [[ $(</sys/class/fclkcfg/fclk2/reset) -eq 0 ]]
}

@test "zynq_clock: AClockInUseIsNamedWithItsUsualCause" {
    norv clock set 3 1M
    fails "clock 3: EBUSY: the clock is in use and cannot be set"
}
