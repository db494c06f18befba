#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uevent, where nothing happens

load support

@test "AMessageThatDoesNotComeIsATimeout" {
    norv uevent --subsystem no-such-subsystem --timeout 1
    fails "uevents: TIMEOUT: nothing arrived in time"
}

@test "CtrlCEndsItInGoodOrder" {
    norv_in_background uevent --subsystem no-such-subsystem
    wait_until has_socket "$background" || fail "it does not listen"
    interrupt_background
    background_ends
}

@test "ATimeoutIsANumber" {
    norv uevent --timeout soon
    is_wrong_usage "--timeout"
}

@test "ItTakesNoOtherArguments" {
    norv uevent --subsystem net usb
    is_wrong_usage "usb"
}

teardown() { [[ -z ${background:-} ]] || kill -KILL "$background" 2>/dev/null || true; }

# Ctrl-C is caught before the socket is opened.
has_socket() { find "/proc/$1/fd" -lname 'socket:*' | grep --quiet .; }
