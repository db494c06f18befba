#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv flash, where there is no flash

load support

@test "AnEmmcThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv flash info --emmc /dev/no-emmc
    fails "/dev/no-emmc: NOT_FOUND: no such device; is the flash driver loaded, and for an eMMC the path right?"
}

@test "AFileThatIsNoBlockDeviceIsRefused" {
    norv flash info --emmc /dev/null
    fails "/dev/null: ENOTTY: not a block device"
}

@test "AnEraseNeedsALength" {
    norv flash erase
    is_wrong_usage "--length is required"
}

@test "AReadNeedsALength" {
    norv flash read -
    is_wrong_usage "--length is required"
}

@test "AnEmptyFileIsNotWritten" {
    norv flash write /dev/null
    is_wrong_usage "/dev/null has nothing to write after that offset"
}

@test "AFileThatIsNotThereIsNamed" {
    norv flash write /no/such/image
    fails "/no/such/image: NOT_FOUND: no such object"
}
