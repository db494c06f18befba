#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# board/run --machine: NORV_TEST_MACHINE names the machine. What the other boards have in common with these machines is tested
# there.

load support

machine=${NORV_TEST_MACHINE:?names no machine: zynq or zynqmp}

# soc ARGUMENT...: runs the machine as `board` does.
soc() { board --machine "$machine" "$@"; }

# tree_source FILE, overlay_source FILE: sources of device trees below $scratch, from standard input. An overlay has the first
# two lines already.
tree_source() { cat >"$scratch/$1"; }
overlay_source() { { printf '/dts-v1/;\n/plugin/;\n' && cat; } >"$scratch/$1"; }

# ---- a command

@test "output, errors and status arrive apart" {
    cd "$project/board/modules"
    # shellcheck disable=SC2016 # the shell on the board expands it
    NORV_TEST_WORD=$'it\'s\ntwo lines' soc sh -c \
        'pwd; id -u; ls gpio.c; printf "%s\n" "$NORV_TEST_WORD" "$@"; echo to errors >&2; exit 42' - 'a b' ''
    expect_status 42
    # The last argument prints an empty line, which `run` drops.
    expect_output "$project/board/modules"$'\n0\ngpio.c\nit\'s\ntwo lines\na b'
    expect 'standard error' 'to errors' "$stderr"
}

@test "output of both kinds keeps its order and arrives whole" {
    "$runner" --machine "$machine" sh -c 'echo 1; echo 2 >&2; echo 3; seq 100000; echo 4 >&2' \
        >"$scratch/out" 2>&1 </dev/null
    { seq 3 && seq 100000 && echo 4; } | cmp - "$scratch/out"
}

@test "the time limit ends the machine and keeps what was printed" {
    soc --time-limit 5 sh -c 'echo before; sleep 1000; echo after'
    expect_status 124
    expect_output before
    expect_message '*longer than 5 s'
}

@test "a crash of the kernel is reported" {
    soc sh -c 'echo c >/proc/sysrq-trigger; sleep 1000'
    expect_status 125
    expect_message '*sysrq triggered crash*the board crashed while the command ran'
}

@test "a module that is refused ends the run" {
    soc --module no-such-module true
    expect_status 125
    expect_message '*refused the module no-such-module'
}

# The copies of the host's files are memory: a second copy of them would be 90 MiB.
@test "nothing is copied that is not named" {
    soc ls -d /host
    expect_status 2
}

@test "a file that is named is there" {
    local directory
    directory=$(mktemp --directory --tmpdir=/tmp)
    echo content >"$directory/a file"
    soc --file "$directory/a file" cat "$directory/a file"
    rm -r "$directory"
    expect_output content
}

# ---- device trees

@test "overlays of both forms are merged one after the other" {
    overlay_source first.dtso <<'END'
#include <dt-bindings/gpio/gpio.h>
&uart0 { norv-label; };
&{/} { norv-first { number = <GPIO_ACTIVE_LOW>; }; };
END
    overlay_source second.dtso <<<'&{/norv-first} { norv-second; };'
    dtc --quiet --symbols --out "$scratch/second.dtbo" "$scratch/second.dtso"
    soc --overlay "$scratch/first.dtso" --overlay "$scratch/second.dtbo" sh -c \
        'cd /proc/device-tree/norv-first && od -An -t x1 number; ls; ls ../axi/serial*/norv-label | wc -l'
    expect_status 0
    expect_output $' 00 00 00 01\nname\nnorv-second\nnumber\n1'
}

# What `sh` runs on the machine to print the model that its tree names.
print_model="tr -d '\\0' </proc/device-tree/model"

@test "a device tree in place of the machine's is booted" {
    "$runner" --machine "$machine" cat /sys/firmware/fdt >"$scratch/own.dtb" 2>/dev/null </dev/null
    fdtput --type s "$scratch/own.dtb" / model 'A board of ours'
    overlay_source own.dtso <<<'&uart0 { norv-overlay; };'
    soc --dtb "$scratch/own.dtb" --overlay "$scratch/own.dtso" sh -c \
        "$print_model; ls /proc/device-tree/axi/serial*/norv-overlay | wc -l"
    expect_status 0
    expect_output 'A board of ours1'
}

# A board's source may include what those of the kernel's boards include.
@test "a source in place of the machine's tree is compiled" {
    local makers=zynqmp-zcu102-rev1.0.dts
    [[ $machine != zynq ]] || makers=zynq-zc702.dts
    tree_source own.dts <<END
#include "$makers"
/ { model = "A board of ours"; };
END
    soc --dtb "$scratch/own.dts" sh -c "$print_model"
    expect_status 0
    expect_output 'A board of ours'
}

# refuses_tree MESSAGE OPTION FILE: what is wrong with a tree ends the run before the machine starts.
refuses_tree() {
    soc "$2" "$scratch/$3" true
    expect "status of $2 $3" 2 "$status"
    expect "last line for $2 $3" "board: '$scratch/$3' $1" "${stderr##*$'\n'}"
}

@test "a tree that is wrong is named with what is wrong" {
    overlay_source labels.dtso <<<'&nowhere { a; }; &uart0 { b; }; &elsewhere { c; };'
    overlay_source path.dtso <<<'&{/nowhere} { a; };'
    tree_source broken.dts <<<'/dts-v1/; / { broken'
    tree_source plain.dts <<<'/dts-v1/; / { };'
    printf '\320\015\376\355 and no more' >"$scratch/short.dtb"
    refuses_tree 'does not fit the device tree, which lacks the labels: elsewhere nowhere' --overlay labels.dtso
    refuses_tree 'does not fit the device tree' --overlay path.dtso
    refuses_tree 'is not an overlay: it has no fragments' --overlay plain.dts
    refuses_tree 'is not a device tree: it is neither a blob nor a source that compiles' --overlay broken.dts
    refuses_tree 'is not a device tree: it is neither a blob nor a source that compiles' --dtb short.dtb
    refuses_tree 'is an overlay; --overlay merges it into a device tree' --dtb labels.dtso
}

# ---- what is refused before anything starts

@test "an unknown machine is one line with the known ones" {
    board --machine pdp11 true
    expect_status 2
    expect 'standard error' "board: 'pdp11' is not a known machine; there are zynq zynqmp" "$stderr"
}

@test "what these machines cannot do is wrong usage" {
    soc --writable "$scratch" true
    expect 'status of --writable' 2 "$status"
    board --file "$scratch" true
    expect 'status of --file without a machine' 2 "$status"
    soc --file /no-such-file true
    expect 'status of a file that does not exist' 2 "$status"
    soc --overlay /no-such-file true
    expect 'status of an overlay that does not exist' 2 "$status"
}

# ---- the kernel

# own_cache: a copy of the project, with a cache in which nothing is.
own_cache() {
    copy_project
    cp --recursive "$project/packaging" "$copy/"
    export XDG_CACHE_HOME=$copy/cache
}

@test "without network and cache one line names the package" {
    own_cache
    stand_in apt-get <<<$'#!/bin/sh\necho "E: no network" >&2; exit 100'
    stand_in apt-cache <<<$'#!/bin/sh\nexit 0'
    CI='' soc true
    expect_status 77
    expect 'lines that name it' 1 "$(grep --count linux-source <<<"$stderr")"
    expect 'lines that do not name it' 'board: the board cannot be prepared on this machine' \
        "$(grep --invert-match linux-source <<<"$stderr")"
}

@test "a kernel that does not build shows the end of its log" {
    own_cache
    mkdir --parents build/board/linux cache/norv-board/linux
    echo 6.1.0 | tee build/board/linux/norv-version >cache/norv-board/linux/norv-version
    stand_in make <<<$'#!/bin/sh\nseq 1000; echo "kernel/sched.c: error: it is broken" >&2; exit 2'
    soc true
    expect_status 125
    expect_message $'*\n999\n1000\nkernel/sched.c: error: it is broken\n'"*does not build; the whole log is $copy*"
    expect 'lines of the log' 1 "$(grep --count '^1000$' "${stderr##*the whole log is }")"
    expect 'lines that are shown' 0 "$(grep --count '^900$' <<<"$stderr" || true)"
}
