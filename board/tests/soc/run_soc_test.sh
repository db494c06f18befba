#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tests board/run --machine: run_soc_test.sh MACHINE [TEST]... Each test is a function whose name says what holds. What the
# other boards have in common with these machines is tested there (board/tests/runner/).
set -uo pipefail

# shellcheck source=../run_support.sh
source "$(dirname "${BASH_SOURCE[0]}")/../run_support.sh"
machine=$1
shift

# ---- a command

OutputErrorsAndStatusArriveApart() {
    cd "$project/board/modules" || return
    # shellcheck disable=SC2016  # the shell on the board expands it
    NORV_TEST_WORD=$'it\'s\ntwo lines' board --machine "$machine" sh -c \
        'pwd; id -u; ls gpio.c; printf "%s\n" "$NORV_TEST_WORD" "$@"; echo to errors >&2; exit 42' - 'a b' ''
    cd "$project" || return
    expect status 42 "$status"
    expect 'standard output' "$project/board/modules"$'\n0\ngpio.c\nit\'s\ntwo lines\na b' "$out"
    expect 'standard error' 'to errors' "$err"
}

OutputOfBothKindsKeepsItsOrderAndArrivesWhole() {
    status=0
    "$run" --machine "$machine" sh -c 'echo 1; echo 2 >&2; echo 3; seq 100000; echo 4 >&2' >"$scratch/out" 2>&1 || status=$?
    expect status 0 "$status"
    expect 'sum of the output' "$({ seq 3; seq 100000; echo 4; } | sha256sum)" "$(sha256sum <"$scratch/out")"
}

TheTimeLimitEndsTheMachineAndKeepsWhatWasPrinted() {
    board --machine "$machine" --time-limit 5 sh -c 'echo before; sleep 1000; echo after'
    expect status 124 "$status"
    expect 'standard output' before "$out"
    [[ $err == *'longer than 5 s' ]]
    expect 'message' 0 $?
}

ACrashOfTheKernelIsReported() {
    board --machine "$machine" sh -c 'echo c >/proc/sysrq-trigger; sleep 1000'
    expect status 125 "$status"
    [[ $err == *'sysrq triggered crash'*'the board crashed while the command ran' ]]
    expect 'messages' 0 $?
}

AModuleThatIsRefusedEndsTheRun() {
    board --machine "$machine" --module no-such-module true
    expect status 125 "$status"
    [[ $err == *'refused the module no-such-module' ]]
    expect 'message' 0 $?
}

# The copies of the host's files are memory: a second copy of them would be 90 MiB.
NothingIsCopiedThatIsNotNamed() {
    board --machine "$machine" ls -d /host
    expect status 2 "$status"
}

AFileThatIsNamedIsThere() {
    local directory
    directory=$(mktemp --directory --tmpdir=/tmp)
    echo content >"$directory/a file"
    board --machine "$machine" --file "$directory/a file" cat "$directory/a file"
    rm -r "$directory"
    expect 'standard output' content "$out"
}

# ---- what is refused before anything starts

AnUnknownMachineIsOneLineWithTheKnownOnes() {
    board --machine pdp11 true
    expect status 2 "$status"
    expect 'standard error' "board: 'pdp11' is not a known machine; there are zynq zynqmp" "$err"
}

WhatTheseMachinesCannotDoIsWrongUsage() {
    board --machine "$machine" --writable "$scratch" true
    expect 'status of --writable' 2 "$status"
    board --file "$scratch" true
    expect 'status of --file without a machine' 2 "$status"
    board --machine "$machine" --file /no-such-file true
    expect 'status of a file that does not exist' 2 "$status"
}

# ---- the kernel

# A copy of the project that has nothing in its cache, and a directory whose programs come first.
fresh_copy() {
    copy=$scratch/$1
    mkdir -p "$copy" "$copy.bin"
    cp -r board tools packaging "$copy/"
}

# stand_in PROGRAM: puts a script, from standard input, in the place of a program.
stand_in() {
    { echo '#!/bin/bash'; cat; } >"$copy.bin/$1"
    chmod +x "$copy.bin/$1"
}

WithoutNetworkAndCacheOneLineNamesThePackage() {
    fresh_copy offline
    stand_in apt-get <<<'echo "E: no network" >&2; exit 100'
    stand_in apt-cache <<<'exit 0'
    XDG_CACHE_HOME=$copy/cache CI='' PATH="$copy.bin:$PATH" run=$copy/board/run board --machine "$machine" true
    expect status 77 "$status"
    expect 'lines' 1 "$(grep --count linux-source "$scratch/err")"
    expect 'lines that do not name it' 'board: the board cannot be prepared on this machine' \
        "$(grep --invert-match linux-source "$scratch/err")"
}

AKernelThatDoesNotBuildShowsTheEndOfItsLog() {
    fresh_copy broken
    mkdir -p "$copy/build/board/linux" "$copy/cache/norv-board/linux"
    echo 6.1.0 | tee "$copy/build/board/linux/norv-version" >"$copy/cache/norv-board/linux/norv-version"
    stand_in make <<<'seq 1000; echo "kernel/sched.c: error: it is broken" >&2; exit 2'
    XDG_CACHE_HOME=$copy/cache PATH="$copy.bin:$PATH" run=$copy/board/run board --machine "$machine" true
    expect status 125 "$status"
    [[ $err == *$'\n999\n1000\nkernel/sched.c: error: it is broken\n'*"does not build; the whole log is $copy"* ]]
    expect 'messages' 0 $?
    expect 'lines of the log' 1 "$(grep --count '^1000$' "${err##*the whole log is }")"
    expect 'lines that are shown' 0 "$(grep --count '^900$' "$scratch/err")"
}

# ---- running them

# The first run may have much to say: packages, sources, the kernel.
NORV_BOARD_MACHINE=$machine board/prepare >/dev/null || exit

run_tests "${BASH_SOURCE[0]}" "$@"
