#!/usr/bin/env bats
# norv uevent, where nothing happens

load support

@test "AMessageThatDoesNotComeIsATimeout" {
    norv uevent --subsystem no-such-subsystem --timeout 1
    fails "uevents: TIMEOUT: nothing came in time"
}

@test "CtrlCEndsItInGoodOrder" {
    "$NORV" uevent --subsystem no-such-subsystem &
    local listener=$!
    until grep --quiet "^SigCgt:.*[2367abef]$" "/proc/$listener/status"; do sleep 0.1; done
    kill -INT "$listener"
    wait "$listener"
}

@test "ATimeoutIsANumber" {
    norv uevent --timeout soon
    is_wrong_usage "--timeout"
}

@test "ItTakesNoOtherArguments" {
    norv uevent --subsystem net usb
    is_wrong_usage "usb"
}
