#!/usr/bin/env bats
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
    is_wrong_usage '"maybe" is none of even, mark, none, odd, space'
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

@test "AReceptionWhoseOutputCannotBeWrittenEnds" {
    open_line
    "$NORV" uart recv --timeout 600000 "$port" >/dev/full 2>"$BATS_TEST_TMPDIR/background" 3>&- &
    background=$!
    # Without its start character: the tool has programmed it, and what comes now is not discarded.
    wait_until port_has "start = <undef>"
    echo data >"$to_port"
    background_ends 1
    [[ $stderr == "norv: standard output: EXHAUSTED: no space is left there" ]]
}

@test "BytesAsJsonAreValidUtf8WithoutControlCharacters" {
    local link=$BATS_TEST_TMPDIR/$'\xc2\x9b\xff\e'
    open_line
    ln -s "$port" "$link"
    norv uart recv --timeout 1 --json "$link"
    prints_json '.device | endswith("/\u009b\ufffd\u001b")'
    [[ $output != *$'\xc2\x9b'* ]] || fail "printed: $output"
}

# A port with a far end: what is written to $to_port arrives at $port, and what $port sends is in $from_port.
open_line() {
    "$BATS_TEST_DIRNAME/serial_line" "$BATS_TEST_TMPDIR/line" 3>&- &
    line=$!
    port=$BATS_TEST_TMPDIR/line/port
    to_port=$BATS_TEST_TMPDIR/line/to_port
    from_port=$BATS_TEST_TMPDIR/line/from_port
    wait_until test -L "$port"
}

port_has() { stty --file="$port" --all | grep --quiet --fixed-strings "$1"; }
