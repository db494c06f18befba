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

# ---- device trees

# Source files below $scratch: FILE, from standard input. An overlay in there has the first two lines already.
tree_source() { cat >"$scratch/$1"; }
overlay_source() { { printf '/dts-v1/;\n/plugin/;\n' && cat; } >"$scratch/$1"; }

OverlaysOfBothFormsAreMergedOneAfterTheOther() {
    overlay_source first.dtso <<'END'
#include <dt-bindings/gpio/gpio.h>
&uart0 { norv-label; };
&{/} { norv-first { number = <GPIO_ACTIVE_LOW>; }; };
END
    overlay_source second.dtso <<<'&{/norv-first} { norv-second; };'
    dtc --quiet --symbols --out "$scratch/second.dtbo" "$scratch/second.dtso"
    board --machine "$machine" --overlay "$scratch/first.dtso" --overlay "$scratch/second.dtbo" sh -c \
        'cd /proc/device-tree/norv-first && od -An -t x1 number; ls; ls ../axi/serial*/norv-label | wc -l'
    expect status 0 "$status"
    expect 'standard output' $' 00 00 00 01\nname\nnorv-second\nnumber\n1' "$out"
}

# What `sh` runs on the machine to show the model that its tree names.
show_model="tr -d '\\0' </proc/device-tree/model"

ADeviceTreeInPlaceOfTheMachinesIsBooted() {
    "$run" --machine "$machine" cat /sys/firmware/fdt >"$scratch/own.dtb" 2>/dev/null
    fdtput --type s "$scratch/own.dtb" / model 'A board of ours'
    overlay_source own.dtso <<<'&uart0 { norv-overlay; };'
    board --machine "$machine" --dtb "$scratch/own.dtb" --overlay "$scratch/own.dtso" sh -c \
        "$show_model; ls /proc/device-tree/axi/serial*/norv-overlay | wc -l"
    expect status 0 "$status"
    expect 'standard output' 'A board of ours1' "$out"
}

# A board's source may include what those of the kernel's boards include.
ASourceInPlaceOfTheMachinesTreeIsCompiled() {
    tree_source own.dts <<END
#include "$(if [[ $machine == zynq ]]; then echo zynq-zc702.dts; else echo zynqmp-zcu102-rev1.0.dts; fi)"
/ { model = "A board of ours"; };
END
    board --machine "$machine" --dtb "$scratch/own.dts" sh -c "$show_model"
    expect status 0 "$status"
    expect 'standard output' 'A board of ours' "$out"
}

# refused_tree MESSAGE OPTION FILE: what is wrong with a tree ends the run before the machine starts.
refused_tree() {
    board --machine "$machine" "$2" "$scratch/$3" true
    expect "status of $2 $3" 2 "$status"
    expect "last line for $2 $3" "board: '$scratch/$3' $1" "${err##*$'\n'}"
}

ATreeThatIsWrongIsNamedWithWhatIsWrong() {
    overlay_source labels.dtso <<<'&nowhere { a; }; &uart0 { b; }; &elsewhere { c; };'
    overlay_source path.dtso <<<'&{/nowhere} { a; };'
    tree_source broken.dts <<<'/dts-v1/; / { broken'
    tree_source plain.dts <<<'/dts-v1/; / { };'
    printf '\320\015\376\355 and no more' >"$scratch/short.dtb"
    refused_tree 'does not fit the device tree, which lacks the labels: elsewhere nowhere' --overlay labels.dtso
    refused_tree 'does not fit the device tree' --overlay path.dtso
    refused_tree 'is not an overlay: it has no fragments' --overlay plain.dts
    refused_tree 'is not a device tree: it is neither a blob nor a source that compiles' --overlay broken.dts
    refused_tree 'is not a device tree: it is neither a blob nor a source that compiles' --dtb short.dtb
    refused_tree 'is an overlay; --overlay merges it into a device tree' --dtb labels.dtso
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
    board --machine "$machine" --overlay /no-such-file true
    expect 'status of an overlay that does not exist' 2 "$status"
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
