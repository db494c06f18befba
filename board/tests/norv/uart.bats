#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uart on the virtual board: ttyS1 and ttyS2 are wired to each other, ttyS3 has a loop-back plug

load ../../../tests/norv/support

@test "uart: WhatOnePortSendsTheOtherReceives" {
    norv_in_background uart recv --count 12 --timeout 60000 /dev/ttyS2
    wait_for_open_port 2
    norv uart send --line /dev/ttyS1 hello board
    succeeds
    background_ends
    appears "hello board"
}

@test "uart: BytesAreSentAndShownInHexadecimal" {
    norv_in_background uart recv --count 3 --timeout 60000 --hex /dev/ttyS2
    wait_for_open_port 2
    norv uart send --hex /dev/ttyS1 0x00 0xff 10
    background_ends
    appears "00 ff 0a"
}

@test "uart: AFileIsSentAtTheSpeedThatIsAskedFor" {
    head -c 3000 /dev/urandom | base64 --wrap 0 >"$BATS_TEST_TMPDIR/file"
    norv_in_background uart recv --baud 9600 --count 4000 --timeout 60000 /dev/ttyS2
    wait_for_open_port 2
    norv uart send --baud 9600 --file "$BATS_TEST_TMPDIR/file" /dev/ttyS1
    succeeds
    background_ends
    cmp "$BATS_TEST_TMPDIR/file" "$BATS_TEST_TMPDIR/background"
}

@test "uart: SilenceEndsAReceptionAndIsAFailureWhenBytesWereWanted" {
    norv uart recv --timeout 1 /dev/ttyS2
    succeeds ""
    norv uart recv --timeout 1 --count 1 --json /dev/ttyS2
    fails "uart /dev/ttyS2: TIMEOUT: fewer bytes arrived; is the speed right, and is RX connected?"
    [[ $(jq .data <<<"$output") == "[]" ]]
}

@test "uart: AConsoleShowsWhatComesAndEndsAtItsKey" {
    mkfifo "$BATS_TEST_TMPDIR/keyboard"
    exec {keyboard}<>"$BATS_TEST_TMPDIR/keyboard"
    norv_in_background uart console /dev/ttyS3 <&"$keyboard"
    appears "Ctrl-] ends"
    printf 'echo this\n' >&"$keyboard"
    appears "echo this"
    printf '\035' >&"$keyboard"
    background_ends
    exec {keyboard}>&-
}

@test "uart: AConsoleEndsAfterTheAnswerToItsLastInput" {
    norv uart console --timeout 5000 /dev/ttyS3 <<<"last words"
    expect_status 0
    [[ $output == "last words" ]]
}

@test "uart: TheModemLinesAreShown" {
    norv uart lines --json /dev/ttyS1
    prints_json '(.cts | . == 0 or . == 1) and (.dsr | . == 0 or . == 1)'
}

@test "uart: RtsAndDtrStayAsTheyWereSetWhileTheLinesAreWatched" {
    norv_in_background uart lines --watch --rts 0 --dtr 1 /dev/ttyS1
    appears CTS
    # Linux 7.3 calls the file serial_8250.
    modem=$(sed -n 's/^1: .* \([A-Z|]*\)$/|\1|/p' /proc/tty/driver/serial*)
    interrupt_background
    background_ends
    [[ $modem == *"|DTR|"* && $modem != *"|RTS|"* ]]
}

@test "uart: ASpeedThatIsNotUsualIsNamedWithItsUsualCause" {
    norv uart send --baud 12345 /dev/ttyS1 x
    fails "uart /dev/ttyS1: INVALID_ARG: the port does not support these settings; is the speed a standard one?"
}

# The receiver in the background has programmed ttySN: what comes earlier would be discarded.
wait_for_open_port() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! stty --file="/dev/ttyS$1" --all | grep --quiet -- -icanon || return 0
        sleep 0.1
    done
    fail "no process has opened ttyS$1"
}
