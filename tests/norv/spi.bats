#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv spi, where there is no slave

load support

@test "ASlaveThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv spi transfer /dev/spidev99.0 1
    fails_in /sys/class/spidev "spi /dev/spidev99.0" "no such slave; are the controller's driver and spidev loaded?"
}

@test "AFileThatIsNoSlaveIsRefused" {
    [[ $NORV != *_in_emulator ]] || skip "qemu-user knows no request of spidev, and refuses all with ENOSYS"
    norv spi transfer /dev/null 1
    fails "spi /dev/null: ENOTTY: not a spidev device"
}

@test "APathThatTheLibraryWouldTruncateIsWrongUsage" {
    norv spi transfer "$(padded 256 /dev nullx)" 1
    is_wrong_usage 'nullx" has more than 255 characters'
}

@test "APercentSignInAPathIsOnlyAPercentSign" {
    norv spi transfer /dev/%s 1
    fails_in /sys/class/spidev "spi /dev/%s" "no such slave; are the controller's driver and spidev loaded?"
}

@test "NothingToSendOrToReadIsWrongUsage" {
    norv spi transfer /dev/spidev99.0
    is_wrong_usage "nothing to send or to read"
}

@test "AModeIsOneOfFour" {
    norv spi transfer --mode 4 /dev/spidev99.0 1
    is_wrong_usage --mode
}

@test "WhatIsSentIsBytes" {
    norv spi transfer /dev/spidev99.0 0x1ff
    is_wrong_usage '"0x1ff" is not a byte'
}
