#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv i2c on the virtual board: registers at 0x20, an EEPROM at 0x50

load ../../../tests/norv/support

@test "i2c: EverybodyOnTheBusIsFound" {
    norv i2c detect 1
    succeeds
    [[ $output == *$'\n20: 20 21 -- '* && $output == *$'\n50: 50 -- '* ]]
}

@test "i2c: EverybodyOnTheBusAsJson" {
    norv i2c detect --json 1
    prints_json '. == {"bus": 1, "addresses": [32, 33, 80]}'
}

@test "i2c: WhatIsSetIsReadBack" {
    norv i2c set 1 0x20 0x10 0x12 0x34
    succeeds
    norv i2c get 1 0x20 0x10 --count 2
    succeeds "12 34"
}

@test "i2c: ADumpShowsAllRegisters" {
    norv i2c set 1 0x20 0xf0 0x48 0x69
    norv i2c dump 1 0x20
    succeeds
    [[ $(wc -l <<<"$output") -eq 16 && $output == *$'\n00f0: 48 69 '*'  Hi'* ]]
}

@test "i2c: ATransferWritesAndReads" {
    norv i2c set 1 0x20 0x30 1 2 3
    norv i2c transfer 1 w1@0x20 0x31 r2
    succeeds "02 03"
}

@test "i2c: ATransferMayOnlyWriteOrOnlyRead" {
    norv i2c transfer 1 w2@0x20 0x40 0x55
    succeeds ""
    norv i2c transfer 1 w1@0x20 0x40
    norv i2c transfer --json 1 r1@0x20
    prints_json '.data == [85]'
}

@test "i2c: AnAddressWithoutADeviceIsNamedWithItsUsualCause" {
    norv i2c get 1 0x33 0
    fails "i2c 1-0033: ENXIO: no answer; is the address right and the device powered?"
}

@test "i2c: ARefusedByteIsNamedWithItsUsualCause" {
    norv i2c set 1 0x21 2 1
    fails "i2c 1-0021: EREMOTEIO: no answer, or the device refused a byte"
}
