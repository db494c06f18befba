#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# The virtual board with a 64-bit ARM processor.

load support

@test "it runs programs of its processor" {
    board --arch arm64 uname -m
    expect_output aarch64
}

@test "it has the project and the current directory" {
    cd "$project/board/modules"
    board --arch arm64 sh -c "pwd; ls gpio.c '$project/README.md'"
    expect_output "$project/board/modules"$'\n'"$project/README.md"$'\n'"gpio.c"
}

@test "it has the board's modules" {
    board --arch arm64 --module norv_board_gpio cat /sys/class/gpio/gpiochip0/ngpio
    expect_output 32
}

@test "its serial ports have their names" {
    board --arch arm64 sh -c 'exec 3<>/dev/ttyS3 && stty -F /dev/ttyS3 raw -echo && echo word >&3 && head -n 1 <&3'
    expect_output word
}
