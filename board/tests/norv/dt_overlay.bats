#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv overlay on the virtual board, whose tree has the nodes / and /axi

load ../../../tests/norv/support

nodes=/sys/kernel/debug/norv_board_dt_overlay/nodes

teardown() {
    local overlay
    for overlay in /sys/kernel/config/device-tree/overlays/*/; do
        [[ ! -d $overlay ]] || rmdir "$overlay"
    done
}

@test "dt_overlay: ALoadedOverlayAddsItsNodesUntilItIsUnloaded" {
    norv overlay load --yes "$NORV_TESTS/axi_uart.dtbo"
    expect_status 0
    [[ $(<"$nodes") == /axi/serial@a0000000 ]]
    norv overlay status axi_uart
    succeeds $'APPLIED  NAME\nyes      axi_uart'
    norv overlay unload --yes axi_uart
    expect_status 0
    [[ -z $(<"$nodes") ]]
}

@test "dt_overlay: AnOverlayMayBeCalledSomethingElse" {
    norv overlay load --yes --name uart "$NORV_TESTS/axi_uart.dtbo"
    norv overlay status --json
    prints_json '. == [{"name": "uart", "applied": true}]'
}

@test "dt_overlay: WhatWillBeDoneIsSaidAndNothingIsDoneWithoutYes" {
    norv overlay load "$NORV_TESTS/axi_uart.dtbo"
    is_wrong_usage "This will load $NORV_TESTS/axi_uart.dtbo as overlay \"axi_uart\""
    norv overlay status
    succeeds "APPLIED  NAME"
    norv overlay load --yes "$NORV_TESTS/axi_uart.dtbo"
    norv overlay unload axi_uart
    is_wrong_usage 'This will unload overlay "axi_uart"'
    [[ $(<"$nodes") == /axi/serial@a0000000 ]]
}

@test "dt_overlay: OneThatIsNotAppliedIsTakenBack" {
    norv overlay load --yes "$NORV_TESTS/nowhere.dtbo"
    expect_status 1
    [[ $stderr == *"overlay nowhere: NOT_APPLIED: the kernel refused it; does it fit the board's device tree? See dmesg" ]]
    norv overlay status
    succeeds "APPLIED  NAME"
}

@test "dt_overlay: ANameInUseIsNamedAndKeepsItsOverlay" {
    norv overlay load --yes --name one "$NORV_TESTS/axi_uart.dtbo"
    norv overlay load --yes --name one "$NORV_TESTS/root_leds.dtbo"
    fails "overlay one: EEXIST: the name is in use; unload it first"
    [[ $(<"$nodes") == /axi/serial@a0000000 ]]
}

@test "dt_overlay: OneThatIsThereButNotAppliedIsShownAsSuch" {
    mkdir /sys/kernel/config/device-tree/overlays/empty
    norv overlay status
    succeeds $'APPLIED  NAME\nno       empty'
}
