#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv spi on the virtual board: the slaves send back what they are sent, and 1, 2, 3 ... for nothing

load ../../../tests/norv/support

wire=/sys/kernel/debug/norv_board_spi/0

@test "spi: WhatIsSentComesBack" {
    norv spi transfer /dev/spidev0.0 0x9f 1 2
    succeeds "9f 01 02"
}

@test "spi: AReadShowsOnlyWhatCameBehindTheBytes" {
    norv spi transfer --json --read 3 /dev/spidev0.0 0x9f
    prints_json '.data | length == 3'
    [[ $(<"$wire/length") == 4 ]]
}

@test "spi: TheSettingsReachTheController" {
    norv spi transfer --speed 250000 --mode 3 --bits 16 /dev/spidev0.0 1 2
    succeeds
    [[ $(<"$wire/speed_hz") == 250000 && $(<"$wire/bits_per_word") == 16 ]]
}

@test "spi: SixteenBitsWorkWhereTheControllerRefusesThem" {
    norv spi transfer --bits 16 /dev/spidev1.0 1 2
    succeeds "01 02"
}

@test "spi: ATransferThatIsTooLongIsNamedWithItsUsualCause" {
    norv spi transfer --read 5000 /dev/spidev0.0
    fails "spi /dev/spidev0.0: EMSGSIZE: longer than spidev accepts at once; load it with a larger bufsiz"
}
