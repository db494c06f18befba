#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv overlay, where there is no such overlay

load support

@test "AnOverlayThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv overlay status no-such-overlay
    fails_in /sys/kernel/config/device-tree/overlays "overlay no-such-overlay" "no such overlay; see norv overlay status"
    norv overlay unload --yes no-such-overlay
    fails_in /sys/kernel/config/device-tree/overlays "overlay no-such-overlay" "no such overlay; see norv overlay status"
}

@test "AFileThatIsNotThereIsNamed" {
    norv overlay load --yes /no/such/file.dtbo
    fails_like "/no/such/file.dtbo: NOT_FOUND: "
}

@test "AKernelWithoutOverlaysIsNamedAsTheCause" {
    [[ ! -e /sys/kernel/config/device-tree/overlays ]] || skip "this machine's kernel has overlays"
    norv overlay load --yes "$BATS_TEST_FILENAME"
    fails_in /sys/kernel/config/device-tree/overlays "overlay dt_overlay" ""
    norv overlay load --yes "$(padded 260 "$BATS_TEST_DIRNAME" dt_overlay.bats)"
    fails_in /sys/kernel/config/device-tree/overlays "overlay dt_overlay" ""
}

@test "ANameIsThatOfOneDirectory" {
    norv overlay load --yes --name ../escape "$BATS_TEST_FILENAME"
    is_wrong_usage '"../escape" is not the name of an overlay'
    norv overlay load --yes /tmp/.dtbo
    is_wrong_usage '".dtbo" is not the name of an overlay'
    norv overlay unload --yes up/down
    is_wrong_usage '"up/down" is not the name of an overlay'
    norv overlay unload --yes "$(printf 'n%.0s' {1..209})"
    is_wrong_usage 'is not the name of an overlay'
}

@test "AListHasAHeadingAlsoWhereThereAreNoOverlays" {
    norv overlay status
    succeeds
    [[ ${lines[0]} == "APPLIED  NAME" ]]
}

@test "AListAsJsonIsAnArray" {
    norv overlay status --json
    prints_json 'type == "array"'
}
