#!/usr/bin/env bats
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
