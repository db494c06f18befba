#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv usb, on a machine with whatever USB devices there are

load support

@test "AListHasAHeadingAlsoWhereThereAreNoDevices" {
    norv usb list
    succeeds
    [[ ${lines[0]} == "DEVICE               PRODUCT        NAME" ]]
}

@test "AListAsJsonIsAnArray" {
    norv usb list --json
    prints_json 'type == "array" and all(has("node") and has("product") and has("name") and has("nodes"))'
}

@test "AnUnknownCommandIsWrongUsage" {
    norv usb eject
    is_wrong_usage "norv usb --help"
}
