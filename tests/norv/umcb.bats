#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv umcb, where there is no such device

load support

@test "ADeviceThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv umcb read no-such-device 0
    fails_like "umcb no-such-device: NOT_FOUND: no (such device; is its driver loaded|/sys/class/umcb; .+)\?$"
    norv umcb wait no-such-device 0
    fails_like "umcb no-such-device: NOT_FOUND: no (such device; is its driver loaded|/sys/class/umcb; .+)\?$"
}

@test "AListHasAHeadingAlsoWhereThereAreNoDevices" {
    norv umcb list
    succeeds
    [[ ${lines[0]} == "DEVICE  SIZE        PCI        NAME" ]]
}

@test "AListAsJsonIsAnArray" {
    norv umcb list --json
    prints_json 'type == "array"'
}

@test "AnInterruptSourceIsNeeded" {
    norv umcb wait 0
    is_wrong_usage "SOURCE is required"
}

@test "ATypeHasThirtyTwoBits" {
    norv umcb wait --type 0x100000000 0 0
    is_wrong_usage "--type"
    norv umcb wait --type=-1 0 0
    is_wrong_usage "--type"
}

@test "APciIdentityIsWrittenAsLspciPrintsIt" {
    norv umcb bind edu
    is_wrong_usage '"edu" is not a PCI identity like 1234:11e8'
}
