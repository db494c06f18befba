#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv usb on the virtual board, whose gadget is plugged into its own host

load ../../../tests/norv/support

state=/sys/class/udc/dummy_udc.0/state

setup_file() { [[ -d /sys/kernel/config/usb_gadget/demo ]] || ../../serial-gadget; }

setup() {
    "$NORV" gadget connect
    until_state configured
}

# The board's host reads the name when the gadget is plugged in.
product_is() {
    local gadget=/sys/kernel/config/usb_gadget/demo
    echo >"$gadget/UDC"
    echo "$1" >"$gadget/strings/0x409/product"
    echo dummy_udc.0 >"$gadget/UDC"
    until_state configured
}

until_state() { wait_until grep --quiet --line-regexp "$1" "$state"; }

@test "uevent_parse: DevicesAreListed" {
    norv usb list
    succeeds
    [[ ${lines[0]} == "DEVICE               PRODUCT        NAME" ]]
    [[ $output =~ /dev/bus/usb/[0-9]{3}/[0-9]{3}\ +1d6b/104/[0-9a-f]+ ]] || fail "printed: $output"
}

@test "uevent_parse: DevicesAsJson" {
    norv usb list --json
    prints_json 'any((.product | startswith("1d6b/104/")) and (.node | startswith("/dev/bus/usb/")) and .nodes == [])'
}

@test "uevent_parse: ControlCharactersInANameAreEscaped" {
    product_is $'red\e[31m\xc2\x9b1m\xc3\xbc'
    norv usb list
    succeeds
    [[ $output == *'red\x1b[31m\xc2\x9b1m'$'\xc3\xbc'* ]] || fail "printed: $output"
    norv usb list --json
    [[ $output == *'"red\u001b[31m\u009b1m'$'\xc3\xbc"'* ]] || fail "printed: $output"
    product_is ""
}

@test "uevent_parse: AWatchShowsWhatIsThereAndThenWhatGoesAndComes" {
    norv_in_background usb watch --timeout 120000
    appears " present  /dev/bus/usb/"
    "$NORV" gadget disconnect
    appears " remove   /dev/bus/usb/"
    until_state "not attached"
    "$NORV" gadget connect
    appears " add      /dev/bus/usb/"
    interrupt_background
    background_ends
    [[ $(grep --count ' 1d6b/104/' "$BATS_TEST_TMPDIR/background") -eq 3 ]]
}

@test "uevent_parse: AWatchEndsAfterAsManyChangesAsWereAskedFor" {
    norv_in_background usb watch --json --count 1 --timeout 120000
    appears '"event":"present"'
    "$NORV" gadget disconnect
    background_ends
    [[ $(grep --count '"event":"remove"' "$BATS_TEST_TMPDIR/background") -eq 1 ]]
}

@test "uevent_parse: AWatchEndsWithAFailureWhenNothingChanges" {
    norv usb watch --timeout 10
    fails "usb: TIMEOUT: nothing arrived in time"
}
