#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# board/tests/run-families: the families of a group, one after the other on one board.

load support

# program NAME: an executable script, from standard input.
program() {
    { echo '#!/bin/sh'; cat; } >"$scratch/$1"
    chmod +x "$scratch/$1"
}

@test "families run one after the other, whatever the results" {
    program passes <<<'ls -d /sys/module/norv_board_*'
    program fails <<<'ls -d /sys/module/norv_board_*; exit 3'
    program hangs <<<'trap "" TERM; while :; do sleep 1000; done'
    cat >"$scratch/families" <<END
limit=5
family first '$scratch/passes' norv_board_led 'mtdram total_size=256' nandsim
family second '$scratch/fails' norv_board_gpio
family third '$scratch/hangs'
family fourth '$scratch/passes' no-such-module
family fifth '$scratch/passes' norv_board_led 'mtdram total_size=128'
END
    board board/tests/run-families "$scratch/families"
    expect_status 1
    expect results "/sys/module/norv_board_led
/sys/module/norv_board_gpio
/sys/module/norv_board_led
passed  first
FAILED  second: status 3
FAILED  third: killed; the limit is 5 s
FAILED  fourth: the kernel refused the module no-such-module
passed  fifth" "$(grep -E '^(passed|FAILED|/sys)' <<<"$output" | sed 's/, [0-9]* s//')"
}

@test "a family that holds its module fails" {
    program holds <<<'setsid sleep 1000 </dev/mtdblock0 & sleep 1'
    echo "family holder '$scratch/holds' mtdblock 'mtdram total_size=256'" >"$scratch/families"
    board board/tests/run-families "$scratch/families"
    expect_status 1
    [[ $output == *'FAILED  holder'*'the module mtdram does not unload'* ]]
}

@test "one family runs alone" {
    program says <<<'echo this one'
    program fails <<<'exit 3'
    printf "family %s '$scratch/%s'\n" first fails second says third fails >"$scratch/families"
    board board/tests/run-families "$scratch/families" second
    expect_status 0
    [[ $output == *'this one'*'passed  second'* && $output != *first* ]]
    board board/tests/run-families "$scratch/families" fourth
    expect_status 1
}
