#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# The wires of the virtual board's serial ports and GPIO chip. These tests run on the board, with norv_board_gpio loaded.

bats_require_minimum_version 1.5.0

gpio=/sys/class/gpio

teardown() {
    local line
    for line in "$gpio"/gpio[0-9]*; do
        [[ ! $line =~ /gpio([0-9]+)$ ]] || echo "${BASH_REMATCH[1]}" >"$gpio/unexport"
    done
}

# ---- the serial ports ----

# wired FROM TO: a word that is sent to one port comes out of another.
wired() {
    local word
    stty -F "$1" raw -echo
    stty -F "$2" raw -echo
    exec 5<>"$1" 6<>"$2"
    echo word >&5
    read -r -t 10 -u 6 word
    exec 5>&- 6>&-
    [[ $word == word ]]
}

@test "the first serial port is wired to the second" {
    wired /dev/ttyS1 /dev/ttyS2
}

@test "the second serial port is wired to the first" {
    wired /dev/ttyS2 /dev/ttyS1
}

@test "the third serial port is wired to itself" {
    wired /dev/ttyS3 /dev/ttyS3
}

# ---- the GPIO chip ----

# export_lines LINE...
export_lines() {
    local line
    cd "$gpio"
    for line in "$@"; do
        echo "$line" >export
    done
}

@test "driving a line drives its neighbour" {
    local level
    export_lines 16 17
    echo out >gpio16/direction
    echo in >gpio17/direction
    for level in 1 0 1; do
        echo $level >gpio16/value
        [[ $(<gpio17/value) == "$level" ]]
    done
}

@test "the odd line drives the even one too" {
    export_lines 16 17
    echo high >gpio17/direction
    [[ $(<gpio16/value) == 1 ]]
}

@test "pairs are separate" {
    export_lines 15 16 18
    echo high >gpio16/direction
    [[ $(cat gpio15/value gpio18/value) == $'0\n0' ]]
}

# signals EDGE: for each level that is written to line 16, whether line 17, set to that edge, signals.
signals() {
    export_lines 16 17
    echo out >gpio16/direction
    echo in >gpio17/direction
    echo "$1" >gpio17/edge
    perl -e '
        open my $wire, "<", "gpio17/value" or die;
        sysread $wire, my $level, 2;
        for my $next (0, 1, 1, 0, 1) {
            open my $driver, ">", "gpio16/value" or die; syswrite $driver, $next; close $driver;
            vec(my $signalled = "", fileno $wire, 1) = 1;
            printf "%d:%d ", $next, scalar select undef, undef, $signalled, 0.2;
            sysseek $wire, 0, 0; sysread $wire, $level, 2;
        }'
}

@test "rising edges signal" {
    [[ $(signals rising) == '0:0 1:1 1:0 0:0 1:1 ' ]]
}

@test "falling edges signal" {
    [[ $(signals falling) == '0:0 1:0 1:0 0:1 1:0 ' ]]
}

@test "both edges signal" {
    [[ $(signals both) == '0:0 1:1 1:0 0:1 1:1 ' ]]
}

@test "nothing signals without an edge setting" {
    [[ $(signals none) == '0:0 1:0 1:0 0:0 1:0 ' ]]
}

@test "line 29 is an input only" {
    export_lines 28 29
    echo high >gpio28/direction
    [[ $(<gpio29/value) == 1 ]]
    run bash -c 'echo out >gpio29/direction'
    [[ $status -ne 0 && $output == *'Operation not permitted'* ]]
    [[ $(<gpio29/direction) == in ]]
}

@test "line 31 cannot be requested" {
    run bash -c "echo 31 >$gpio/export"
    [[ $status -ne 0 && $output == *'Device or resource busy'* ]]
}

@test "the chip goes away and comes back" {
    cd "$gpio"
    modprobe --remove norv_board_gpio
    [[ $(ls) == $'export\nunexport' ]]
    modprobe norv_board_gpio base=64
    [[ $(<gpiochip64/ngpio) == 32 ]]
    modprobe --remove norv_board_gpio
    modprobe norv_board_gpio
}
