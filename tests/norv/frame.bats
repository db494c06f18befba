#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# What all commands have in common: help, exit statuses, the words of errors.

load support

@test "HelpListsEveryGroup" {
    norv --help
    succeeds
    for group in "${groups[@]}"; do
        [[ $output == *$'\n'"  $group "* ]] || fail "no $group in: $output"
    done
}

@test "EveryGroupAndCommandHasHelp" {
    local words
    "$NORV" --describe | jq --raw-output '.commands[] | .name, (.name + " " + .commands[].name)' >"$BATS_TEST_TMPDIR/commands"
    while read -r -a words; do
        norv "${words[@]}" --help
        succeeds
        [[ $output == *"Usage: norv ${words[*]} "* ]] || fail "printed: $output"
    done <"$BATS_TEST_TMPDIR/commands"
}

@test "TheVersionIsTold" {
    norv --version
    succeeds
    [[ $output =~ ^norv\ [0-9]+\.[0-9]+\.[0-9]+$ ]]
}

@test "WithoutACommandItIsWrongUsage" {
    norv
    is_wrong_usage "subcommand is required"
}

@test "AnUnknownCommandIsWrongUsage" {
    norv teleport
    is_wrong_usage "Try: norv --help"
}

@test "AnUnknownOptionIsWrongUsageAndNamesTheCommand" {
    norv uuid --no-such-option
    is_wrong_usage "Try: norv uuid --help"
}

@test "AGroupWithoutACommandIsWrongUsage" {
    norv gpio
    is_wrong_usage "Try: norv gpio --help"
}

@test "AFailedWriteOfTheOutputIsAFailure" {
    local command
    local -a words
    for command in uuid --help --version --describe "gpio --help" "led list --json" "stat --interval 20" "usb list"; do
        read -r -a words <<<"$command"
        norv_into /dev/full "${words[@]}"
        fails "standard output: EXHAUSTED: no space left on the device"
    done
}

@test "AWatchWhoseOutputCannotBeWrittenEnds" {
    norv_into /dev/full stat --watch --interval 20
    fails "standard output: EXHAUSTED: no space left on the device"
}

@test "AClosedOutputIsAFailure" {
    # shellcheck disable=SC2016 # expanded by the inner shell
    run --separate-stderr bash -c 'exec "$NORV" uuid <&- >&-'
    fails "standard output: EBADF: it is closed"
}

@test "AReaderThatGoesAwayEndsItWithoutAMessage" {
    # shellcheck disable=SC2016 # expanded by the inner shell
    run --separate-stderr bash -c '"$NORV" stat --watch --interval 20 | head -n 1; exit "${PIPESTATUS[0]}"'
    expect_status 141
    [[ -z $stderr ]] || fail "standard error: $stderr"
}

@test "ControlCharactersInAnErrorAreEscaped" {
    norv overlay status $'\e[31m\xc2\x9b\xffü'
    expect_status 1
    [[ $stderr == 'norv: overlay \x1b[31m\xc2\x9b\xffü: NOT_FOUND: no '* ]] || fail "standard error: $stderr"
    norv uuid $'\e[31m'
    is_wrong_usage 'uuid: The following argument was not expected: \x1b[31m'
}

@test "PositionalsHavePlainNames" {
    "$NORV" --describe | jq --exit-status '[.. | .positional? // empty | select(. != "")] | length > 0 and all(test("^[A-Z]+$"))'
}

@test "DefaultsArePrintable" {
    "$NORV" --describe | jq --exit-status '[.. | .default? // empty] | length > 0 and all(test("^[ -~]*$"))'
}

setup() {
    mapfile -t groups < <("$NORV" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z0-9]*\) .*/\1/p')
    [[ ${#groups[@]} -gt 1 ]]
}
