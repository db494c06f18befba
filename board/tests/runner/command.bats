#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# What a command on the virtual board finds, and what becomes of its output and its status.

load support

@test "the command's exit status is the runner's" {
    board sh -c 'exit 42'
    expect_status 42
}

@test "a command that dies by a signal has the status that a shell gives" {
    # shellcheck disable=SC2016 # expanded on the board
    board sh -c 'kill -SEGV $$'
    expect_status 139
}

@test "a missing command has the status that a shell gives" {
    board no-such-command
    expect_status 127
}

@test "standard output and standard error are kept apart" {
    board sh -c 'echo to output; echo to errors >&2'
    expect_output 'to output'
    expect 'standard error' 'to errors' "$stderr"
}

@test "standard output and standard error keep their order in one place" {
    run "$runner" sh -c 'echo 1; echo 2 >&2; echo 3; echo 4 >&2' </dev/null
    expect_output $'1\n2\n3\n4'
}

@test "a long output arrives whole" {
    "$runner" seq 200000 >"$scratch/output" </dev/null
    expect 'sum of the output' "$(seq 200000 | sha256sum)" "$(sha256sum <"$scratch/output")"
}

@test "output arrives while the command runs" {
    local first board_pid status=0
    exec {lines}< <(exec "$runner" sh -c 'echo first; exec sleep 1000' </dev/null 3>&-)
    board_pid=$!
    read -r -u "$lines" first
    expect 'first line' first "$first"
    kill -0 "$board_pid"
    kill -TERM "$board_pid"
    wait "$board_pid" || status=$?
    expect status 143 "$status"
}

@test "input arrives whole and ends" {
    seq 200000 >"$scratch/numbers"
    "$runner" sh -c 'sha256sum </dev/stdin; cat </dev/stdin' <"$scratch/numbers" >"$scratch/output"
    expect 'sum of the input' "$(sha256sum <"$scratch/numbers")" "$(<"$scratch/output")"
}

@test "without input a command reads nothing" {
    board cat
    expect_status 0
    # shellcheck disable=SC2016 # expanded by the inner shell
    run bash -c '"$1" sh -c "cat; echo read" <&-' bash "$runner"
    expect_status 0
    expect_output read
}

@test "input that is not read does not hold the board" {
    run timeout 120 "$runner" echo whole < <(exec sleep 1000 3>&-)
    expect_status 0
    expect_output whole
}

@test "arguments arrive unchanged" {
    board printf '<%s>' 'a b' '' "it's" "\$HOME \\ *" $'two\nlines'
    expect_output "<a b><><it's><\$HOME \\ *><two"$'\n'"lines>"
}

@test "the environment is passed on" {
    # shellcheck disable=SC2016 # expanded on the board
    NORV_TEST_WORD=$'it\'s\ntwo lines' board sh -c 'printf %s "$NORV_TEST_WORD"'
    expect_output $'it\'s\ntwo lines'
}

@test "the command runs as root in the current directory" {
    cd "$project/board/modules"
    board sh -c 'id -u; pwd; ls gpio.c'
    expect_output "0"$'\n'"$project/board/modules"$'\n'"gpio.c"
}

@test "a current directory below /tmp is visible" {
    local directory
    directory=$(mktemp --directory --tmpdir="$BATS_TEST_TMPDIR")
    echo here >"$directory/file"
    cd "$directory"
    board cat file
    expect_output here
}

@test "a command in /tmp is visible" {
    local script
    script=$(mktemp --tmpdir="$BATS_TEST_TMPDIR")
    # shellcheck disable=SC2016 # expanded on the board
    printf '#!/bin/sh\necho here; touch "$0.new"\n' >"$script"
    chmod +x "$script"
    board "$script"
    expect_status 0
    expect_output here
    [[ ! -e $script.new ]]
}

@test "the time limit ends the board and keeps what was printed" {
    board --time-limit 10 sh -c 'echo before; sleep 1000; echo after'
    expect_status 124
    expect_output before
}

@test "two boards run at the same time" {
    local first status=0
    "$runner" sh -c 'echo one >/tmp/file; sleep 1; cat /tmp/file; exit 11' >"$scratch/first" 2>&1 </dev/null 3>&- &
    first=$!
    board sh -c 'echo two >/tmp/file; sleep 1; cat /tmp/file; exit 22'
    expect_status 22
    expect_output two
    status=0
    wait "$first" || status=$?
    expect 'status of the first board' 11 "$status"
    expect 'output of the first board' one "$(<"$scratch/first")"
}

@test "what is written to the build directory stays, and nothing else does" {
    board sh -c "echo result >'$scratch/result'; echo stray >'$project/board/stray'; cat '$project/board/stray'"
    expect 'the file on the host' result "$(<"$scratch/result")"
    expect_output stray
    [[ ! -e $project/board/stray ]]
}

@test "what is written to a named directory stays instead" {
    mkdir "$scratch/out put"
    board --writable "$scratch/out put" sh -c "echo result >'$scratch/out put/result'; echo stray >build/stray"
    expect_status 0
    expect 'the file on the host' result "$(<"$scratch/out put/result")"
    [[ ! -e $project/build/stray ]]
}

@test "a program may change the board's system, which leaves the host's unchanged" {
    board sh -c 'echo board >/etc/hostname; mkdir /var/lib/daemon; rm /etc/passwd; cat /etc/hostname; ls /etc/passwd'
    expect_output board
    [[ -s /etc/passwd && ! -e /var/lib/daemon ]]
}

@test "what the command leaves running does not hold the board" {
    board sh -c 'sleep 1000 & echo done'
    expect_status 0
    expect_output 'done'
}

@test "the standard streams can be opened by name" {
    board sh -c 'echo named >/dev/stdout; echo errors >/dev/stderr'
    expect_output named
    expect 'standard error' errors "$stderr"
}

@test "a reader that goes away ends the board" {
    expect 'first line' y "$("$runner" yes 2>/dev/null </dev/null | head -n 1)"
}

@test "a kernel panic fails the run and shows the log" {
    board sh -c 'echo c >/proc/sysrq-trigger; sleep 1000'
    expect_status 125
    expect_message '*Kernel panic*'
}

@test "an unknown module is refused" {
    board --module no-such-module true
    expect_status 125
    expect_message '*refused the module no-such-module*'
}

@test "a stock module is loaded with its parameters" {
    board --module 'i2c-stub chip_addr=0x50' cat /sys/bus/i2c/devices/i2c-0/name
    expect_output 'SMBus stub driver'
}

@test "a module's file is loaded with its parameters, after the modules that it needs" {
    # The file of a module of the board's, for the kernel that the board boots.
    find "$("$project/board/prepare")" -name norv_board_i2c.ko -exec cp {} "$scratch/mine.ko" \;
    cd "$scratch"
    board --module './mine.ko bus=7' cat /sys/bus/i2c/devices/i2c-7/name
    expect_status 0
    expect_output norv-board-i2c
}

@test "udev sets up the devices before the command" {
    board --udev udevadm info --query=property --property=ID_BUS /dev/ttyS1
    expect_status 0
    expect_output ID_BUS=pci
}

@test "a command runs at a terminal of the same size" {
    { sleep 20; echo; } >"$scratch/keys"
    run script --quiet --return \
        --command "stty cols 99 rows 33; $runner --interactive bash -c 'tty; stty size; exit 5'" /dev/null <"$scratch/keys"
    expect_status 5
    [[ $output == *'/dev/hvc0'*'33 99'* ]]
}

@test "the kernel loads protocol modules by itself" {
    # shellcheck disable=SC2016 # these are perl's variables
    board perl -e 'use Socket; socket(my $s, 29, SOCK_RAW, 1) or die "$!"; print "CAN"'
    expect_output CAN
}

@test "a killed runner leaves no emulator behind" {
    local board_pid name=norv-run-test-$$ state
    exec {lines}< <(exec "$runner" --qemu-arg -name --qemu-arg "$name" sh -c 'echo up; exec sleep 1000' </dev/null 3>&-)
    board_pid=$!
    read -r -u "$lines" state
    expect 'the board' up "$state"
    kill -KILL "$board_pid"
    cat <&"$lines" # until the emulator's end
    expect 'emulators left' '' "$(grep --files-with-matches --no-messages "[n]${name#n}" /proc/[0-9]*/cmdline || true)"
}
