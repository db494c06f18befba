#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv i2c, where there is no such bus

load support

no_bus=99

@test "ABusThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv i2c get "$no_bus" 0x50 0
    fails_in /sys/class/i2c-dev "i2c bus 99" "no such bus; are the adapter's driver and i2c-dev loaded?"
}

@test "AnAddressHasSevenBits" {
    norv i2c get "$no_bus" 0x80 0
    is_wrong_usage ADDRESS
}

@test "ARegisterHasEightBits" {
    norv i2c get "$no_bus" 0x50 256
    is_wrong_usage REGISTER
}

@test "AValueIsAByte" {
    norv i2c set "$no_bus" 0x50 0 256
    is_wrong_usage '"256" is not a byte'
    norv i2c set "$no_bus" 0x50 0 +1
    is_wrong_usage '"+1" is not a byte'
}

@test "TheFirstMessageOfATransferNeedsAnAddress" {
    norv i2c transfer "$no_bus" r1
    is_wrong_usage "needs an address"
}

@test "AMessageNeedsAllItsBytes" {
    norv i2c transfer "$no_bus" w2@0x50 1
    is_wrong_usage "w2@0x50 must be followed by 2 bytes"
}

@test "ATransferOfTwoWritesIsNotPossible" {
    norv i2c transfer "$no_bus" w1@0x50 1 w1 2
    is_wrong_usage "can only be a read"
}

@test "AMessageIsWrittenAsForI2ctransfer" {
    norv i2c transfer "$no_bus" x2@0x50
    is_wrong_usage '"x2@0x50" is not a message like w2@0x50 or r16'
    norv i2c transfer "$no_bus" ""
    is_wrong_usage '"" is not a message like w2@0x50 or r16'
    norv i2c transfer "$no_bus" @0x50
    is_wrong_usage '"@0x50" is not a message like w2@0x50 or r16'
}
