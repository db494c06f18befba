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

@test "an overlay is merged into its device tree" {
    cat >"$scratch/node.dtso" <<'END'
/dts-v1/;
/plugin/;
#include <dt-bindings/gpio/gpio.h>
&{/} { norv-node { number = <GPIO_ACTIVE_LOW>; }; };
END
    board --arch arm64 --overlay "$scratch/node.dtso" od -An -t x1 /proc/device-tree/norv-node/number
    expect_status 0
    expect_output ' 00 00 00 01'
}

@test "it boots with another device tree" {
    "$runner" --arch arm64 cat /sys/firmware/fdt >"$scratch/own.dtb" 2>/dev/null </dev/null
    fdtput --type s "$scratch/own.dtb" / model 'A board of ours'
    board --arch arm64 --dtb "$scratch/own.dtb" grep --text --count 'A board of ours' /proc/device-tree/model
    expect_status 0
    expect_output 1
}
