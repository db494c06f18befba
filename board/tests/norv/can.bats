#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv can on the virtual board: vxcan0 and vxcan1 on one wire, can0 and can1 on one bus

load ../../../tests/norv/support

setup_file() { "$NORV_TESTS/can_links"; }

@test "can: AFrameArrivesAsCandumpShowsIt" {
    dump_in_background --count 1 vxcan1
    norv can send vxcan0 123#deadbeef
    succeeds
    background_ends
    appears "  vxcan1       123   [4]  DE AD BE EF"
}

@test "can: ExtendedFramesAndRemoteRequestsAsJson" {
    dump_in_background --json --count 2 vxcan1
    norv can send vxcan0 12345678#00 7ff#R
    background_ends
    appears '{"interface":"vxcan1","id":305419896,"extended":true,"remote":false,"data":[0]}'
    appears '{"interface":"vxcan1","id":2047,"extended":false,"remote":true,"data":[]}'
}

@test "can: OnlyTheIdentifiersThatAreAskedForAreShown" {
    dump_in_background --count 2 vxcan1 100 200
    norv can send vxcan0 101#01 100#02 300#03 200#04
    background_ends
    run ! grep --quiet "01$\|03$" "$BATS_TEST_TMPDIR/background"
}

@test "can: EveryFrameIsShownOnce" {
    dump_in_background --count 4 vxcan1
    norv can send vxcan0 000#01 001#02 000#03 7ff#04
    background_ends
    [[ $(sed 's/.* //' "$BATS_TEST_TMPDIR/background" | tr -d '\n') == 01020304 ]]
}

@test "can: TwoCardsOnABusTalk" {
    [[ -e /sys/class/net/can0 ]]
    dump_in_background --count 1 can1
    norv can send can0 123#11
    succeeds
    background_ends
    appears "can1       123   [1]  11"
}

@test "can: ADumpEndsWithAFailureWhenNoFrameCame" {
    norv can dump --timeout 1 vxcan0
    fails "vxcan0: TIMEOUT: no frame arrived in time"
}

@test "can: AnInterfaceThatIsNotThereIsNamedWithItsUsualCause" {
    norv can dump can99
    fails "can99: ENODEV: no such interface; is its driver loaded?"
}

# The kernel lists who receives: what is sent earlier would be lost.
dump_in_background() {
    local tries interface=${*: -1}
    [[ $interface == *can* ]] || interface=vxcan1
    norv_in_background can dump --timeout 60000 "$@"
    for ((tries = 0; tries < 600; ++tries)); do
        ! grep --quiet "^ *$interface " /proc/net/can/rcvlist_* || return 0
        sleep 0.1
    done
    fail "no socket receives on $interface"
}
