#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uart, where there is no port

load support

setup() { mkdir "$BATS_TEST_TMPDIR/line"; }

teardown() { [[ -z ${line:-} ]] || kill "$line"; }

@test "APortThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv uart lines /dev/ttyNONE
    fails "uart /dev/ttyNONE: NOT_FOUND: no such port"
}

@test "AFileThatIsNoPortIsRefused" {
    norv uart recv /dev/null
    fails "uart /dev/null: ENOTTY: not a serial port"
}

@test "AParityIsOneOfFive" {
    norv uart send --parity maybe /dev/null x
    is_wrong_usage '"maybe" is not one of even, mark, none, odd, space'
}

@test "DataBitsAreFiveToEight" {
    norv uart send --data-bits 9 /dev/null x
    is_wrong_usage --data-bits
}

@test "AFileAndTextTogetherAreWrongUsage" {
    norv uart send --file /dev/null /dev/null text
    is_wrong_usage "excludes"
}

@test "NothingToSendIsWrongUsage" {
    norv uart send /dev/null
    is_wrong_usage "nothing to send"
}

@test "BytesToSendAreBytes" {
    norv uart send --hex /dev/null 0x0d newline
    is_wrong_usage '"newline" is not a byte'
}

@test "APathThatTheLibraryWouldTruncateIsWrongUsage" {
    norv uart lines "$(padded 256 /dev nullx)"
    is_wrong_usage 'nullx" has more than 255 characters'
}

@test "AFileThatIsNotThereIsNamed" {
    norv uart send --file /no/such/file /dev/null
    fails "/no/such/file: NOT_FOUND: no such object"
}

@test "AConsoleEndsAfterTheEndOfItsInput" {
    open_line
    norv uart console --timeout 1 "$port" <<<"last words"
    expect_status 0
    file_has "$from_port" "last words"
    norv uart console "$port" </dev/null
    expect_status 0
}

@test "AConsoleWithoutAnInputEnds" {
    open_line
    # shellcheck disable=SC2016 # expanded by the inner shell
    run --separate-stderr bash -c 'exec "$NORV" uart console --timeout 1 "$1" <&-' bash "$port"
    expect_status 0
}

@test "AConsoleShowsTheAnswerToItsLastInput" {
    open_line
    norv_in_background uart console --timeout 600000 "$port" <<<"question"
    file_has "$from_port" question
    echo "answer" >"$to_port"
    appears answer
    interrupt_background
    background_ends
}

@test "AConsoleEndsAtItsKeyWhileItsPortIsStopped" {
    open_line
    norv_in_background uart console --flow software "$port" <&"$keys"
    appears "Ctrl-] ends"
    printf '\023stopped' >"$to_port"
    appears stopped
    echo $'typed\035' >&"$keys"
    background_ends
    [[ $(<"$from_port") != *typed* ]]
}

@test "SoftwareFlowControlStopsAndStartsTheOutput" {
    open_line
    norv_in_background uart console --flow software "$port" <&"$keys"
    appears "Ctrl-] ends"
    port_has "start = ^Q; stop = ^S;"
    printf '\023stopped' >"$to_port"
    appears stopped
    echo "typed" >&"$keys"
    # Time for a console that does not stop: nothing else shows that a byte was not sent.
    sleep 0.5
    printf '\021' >"$to_port"
    file_has "$from_port" typed
    [[ $(<"$from_port") == *"<XOFF><XON>typed"* ]] || fail "sent: $(<"$from_port")"
    interrupt_background
    background_ends
}

@test "TheOldControlCharactersArePutBack" {
    open_line
    stty --file="$port" start ^A stop ^B
    norv uart send --flow software "$port" text
    succeeds
    port_has "start = ^A; stop = ^B;"
}

@test "AReceptionWhoseOutputCannotBeWrittenEnds" {
    open_line
    "$NORV" uart recv --timeout 600000 "$port" >/dev/full 2>"$BATS_TEST_TMPDIR/background" 3>&- &
    background=$!
    # Without its start character: the tool has programmed it, and what comes now is not discarded.
    wait_until port_has "start = <undef>"
    echo data >"$to_port"
    background_ends 1
    [[ $stderr == "norv: standard output: EXHAUSTED: no space left on the device" ]]
}

@test "BytesAsJsonAreValidUtf8WithoutControlCharacters" {
    local link=$BATS_TEST_TMPDIR/$'\xc2\x9b\xff\e'
    open_line
    ln -s "$port" "$link"
    norv uart recv --timeout 1 --json "$link"
    prints_json '.device | endswith("/\u009b\ufffd\u001b")'
    [[ $output != *$'\xc2\x9b'* ]] || fail "printed: $output"
}

# A port with a far end: what is written to $to_port arrives at $port, and what $port sends is in $from_port. A console
# whose input is $keys has a keyboard without an end.
open_line() {
    "$BATS_TEST_DIRNAME/serial_line" "$BATS_TEST_TMPDIR/line" 3>&- &
    line=$!
    port=$BATS_TEST_TMPDIR/line/port
    to_port=$BATS_TEST_TMPDIR/line/to_port
    from_port=$BATS_TEST_TMPDIR/line/from_port
    wait_until test -L "$port"
    mkfifo "$BATS_TEST_TMPDIR/line/keys"
    exec {keys}<>"$BATS_TEST_TMPDIR/line/keys"
}

port_has() { stty --file="$port" --all | grep --quiet --fixed-strings "$1"; }
