#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv mtd, where there is no flash

load support

@test "APartitionThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv mtd info mtd99
    fails_in /sys/class/mtd mtd99 "no such partition; see norv mtd list"
}

@test "APathAndANumberNameTheSamePartition" {
    norv mtd info /dev/mtd99
    fails_like "mtd99: NOT_FOUND: .*"
    norv mtd info 99
    fails_like "mtd99: NOT_FOUND: .*"
}

@test "WhatIsNoPartitionIsWrongUsage" {
    norv mtd badblocks /dev/sda
    is_wrong_usage '"/dev/sda" is not a partition like mtd0'
}

@test "AListAsJsonIsAnArray" {
    norv mtd list --json
    prints_json 'type == "array"'
}
