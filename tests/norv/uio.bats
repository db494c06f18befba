#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uio, where there is no such device

load support

@test "ADeviceThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv uio read no-such-device 0
    fails_in /sys/class/uio "uio no-such-device" "no such device; is its driver loaded?"
}

@test "AListHasAHeadingAlsoWhereThereAreNoDevices" {
    norv uio list
    succeeds
    [[ ${lines[0]} == "DEVICE  SIZE        PCI        NAME" ]]
}

@test "AListAsJsonIsAnArray" {
    norv uio list --json
    prints_json 'type == "array"'
}

@test "AnOffsetIsNeeded" {
    norv uio read 0
    is_wrong_usage "OFFSET is required"
}

@test "ARegisterHasThirtyTwoBits" {
    norv uio write 0 0 0x100000000
    is_wrong_usage VALUE
}

@test "AtLeastOneRegisterIsRead" {
    norv uio read 0 0 --count 0
    is_wrong_usage "--count"
}

@test "APciIdentityIsWrittenAsLspciPrintsIt" {
    norv uio bind 0x1234
    is_wrong_usage '"0x1234" is not a PCI identity like 1234:11e8'
    norv uio bind 12345:1
    is_wrong_usage '"12345:1" is not a PCI identity like 1234:11e8'
    norv uio bind 1234:
    is_wrong_usage '"1234:" is not a PCI identity like 1234:11e8'
}
