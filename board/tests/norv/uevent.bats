#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uevent on the virtual board. Writing to a device's "uevent" attribute makes the kernel announce it again.

load ../../../tests/norv/support

# Announces the loop-back network device until a message arrives: the tool may not listen yet.
announce_until_gone() { wait_until gone_after_message "$@" || kill "$1"; }

gone_after_message() {
    echo "$2" >/sys/class/net/lo/uevent
    ! kill -0 "$1"
}

announced_and_shown() {
    echo change >/sys/class/net/lo/uevent
    [[ -s $BATS_TEST_TMPDIR/output ]]
}

# listen OPTION...: the tool in the background, its output in a file; $! is its process.
listen() { "$NORV" uevent --subsystem net --count 1 --timeout 60000 "$@" >"$BATS_TEST_TMPDIR/output"; }

@test "uevent: AMessageIsShownWithItsActionAndItsDevice" {
    listen &
    local listener=$!
    announce_until_gone "$listener" change
    wait "$listener"
    [[ $(<"$BATS_TEST_TMPDIR/output") =~ change\ +net\ +/devices/virtual/net/lo$ ]]
}

@test "uevent: TheKeysOfAMessageAreShown" {
    listen --keys &
    local listener=$!
    announce_until_gone "$listener" add
    wait "$listener"
    grep --quiet '^    INTERFACE=lo$' "$BATS_TEST_TMPDIR/output"
}

@test "uevent: AMessageAsJson" {
    listen --json &
    local listener=$!
    announce_until_gone "$listener" change
    wait "$listener"
    jq --exit-status '.keys.ACTION == "change" and .keys.DEVPATH == "/devices/virtual/net/lo"' \
        "$BATS_TEST_TMPDIR/output"
}

@test "uevent: AMessageThatCannotBeWrittenEndsIt" {
    "$NORV" uevent --subsystem net --timeout 60000 >/dev/full 2>"$BATS_TEST_TMPDIR/errors" &
    local listener=$! status=0
    announce_until_gone "$listener" change
    wait "$listener" || status=$?
    [[ $status -eq 1 ]]
    [[ $(<"$BATS_TEST_TMPDIR/errors") == "norv: standard output: EXHAUSTED: no space left on the device" ]]
}

@test "uevent: MessagesOfOtherSubsystemsAreNotWaitedFor" {
    norv uevent --subsystem no-such-subsystem --timeout 10
    fails "uevents: TIMEOUT: nothing arrived in time"
}

@test "uevent: CtrlCEndsItInGoodOrder" {
    "$NORV" uevent --subsystem net >"$BATS_TEST_TMPDIR/output" &
    local listener=$!
    wait_until announced_and_shown
    kill -INT "$listener"
    wait "$listener"
}
