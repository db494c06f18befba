#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv gadget on the virtual board, which is its own USB host

load ../../../tests/norv/support

controller=dummy_udc.0

setup_file() { [[ -d /sys/kernel/config/usb_gadget/demo ]] || ../../serial-gadget; }

setup() {
    "$NORV" gadget connect
    until_state configured
}

until_state() { wait_until grep --quiet --line-regexp "$1" "/sys/class/udc/$controller/state"; }

@test "usb_gadget: AConfiguredControllerIsListed" {
    norv gadget list
    succeeds
    [[ ${lines[1]} == "configured    high-speed "*" demo "*" $controller" ]] || fail "printed: $output"
}

@test "usb_gadget: ControllersAsJson" {
    norv gadget list --json
    prints_json '.[0].controller == "dummy_udc.0" and .[0].state == "configured" and .[0].is_host_win == false'
}

@test "usb_gadget: ADisconnectedControllerIsNotAttachedUntilItIsConnected" {
    norv gadget disconnect
    succeeds ""
    until_state "not attached"
    norv gadget connect "$controller"
    succeeds ""
    until_state configured
}

@test "usb_gadget: AWatchShowsTheStateAndThenItsChanges" {
    norv_in_background gadget watch --json --count 1 --timeout 60000
    appears '"controller":"dummy_udc.0","state":"configured"'
    "$NORV" gadget disconnect
    appears '"state":"not attached"'
    background_ends
}

@test "usb_gadget: AWatchEndsWithAFailureWhenTheStateStays" {
    norv gadget watch --timeout 1 "$controller"
    fails "gadget $controller: TIMEOUT: nothing arrived in time"
}
