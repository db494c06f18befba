#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv can, where there is no interface

load support

@test "AnInterfaceThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv can dump can99
    fails_like "can99: (ENODEV: no such interface; is its driver loaded\?|EBADF: no CAN socket; .+)"
}

@test "AFrameHasAnIdentifierAndAHash" {
    norv can send can99 123
    is_wrong_usage '"123" is not a frame like 123#DEADBEEF, 12345678#00 or 123#R'
}

@test "ANameThatTheLibraryWouldTruncateIsWrongUsage" {
    norv can dump sixteen-letters0
    is_wrong_usage '"sixteen-letters0" is not the name of a network interface'
    norv can send sixteen-letters0 123#
    is_wrong_usage '"sixteen-letters0" is not the name of a network interface'
}

@test "AnIdentifierHasThreeOrEightDigits" {
    norv can send can99 1234#00
    is_wrong_usage '"1234#00" is not a frame'
    norv can send can99 +12#00
    is_wrong_usage '"+12#00" is not a frame'
    norv can send can99 0x123456#00
    is_wrong_usage '"0x123456#00" is not a frame'
}

@test "AStandardIdentifierHasElevenBits" {
    norv can send can99 800#00
    is_wrong_usage '"800#00" is not a frame'
}

@test "BytesOfAFrameHaveTwoDigits" {
    norv can send can99 123#123
    is_wrong_usage '"123" ends in the middle of a byte'
    norv can send can99 123#+1
    is_wrong_usage '"+1" is not a byte'
}

@test "AFrameHasEightBytesAtMost" {
    norv can send can99 123#001122334455667788
    is_wrong_usage "more than 8 bytes"
}

@test "AnIdentifierToLookForIsHexadecimal" {
    norv can dump can99 xyz
    is_wrong_usage '"xyz" is not an identifier'
    norv can dump can99 +1
    is_wrong_usage '"+1" is not an identifier'
}
