#!/usr/bin/env bats
# norv can, where there is no interface

load support

@test "AnInterfaceThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv can dump can99
    fails_like "can99: (ENODEV: no such interface; is its driver loaded\?|EBADF: no socket; .+)"
}

@test "AFrameHasAnIdentifierAndAHash" {
    norv can send can99 123
    is_wrong_usage '"123" is no frame like 123#DEADBEEF, 12345678#00 or 123#R'
}

@test "AnIdentifierHasThreeOrEightDigits" {
    norv can send can99 1234#00
    is_wrong_usage '"1234#00" is no frame'
}

@test "AStandardIdentifierHasElevenBits" {
    norv can send can99 800#00
    is_wrong_usage '"800#00" is no frame'
}

@test "BytesOfAFrameHaveTwoDigits" {
    norv can send can99 123#123
    is_wrong_usage '"123" ends in the middle of a byte'
}

@test "AFrameHasEightBytesAtMost" {
    norv can send can99 123#001122334455667788
    is_wrong_usage "more than 8 bytes"
}

@test "AnIdentifierToLookForIsHexadecimal" {
    norv can dump can99 xyz
    is_wrong_usage '"xyz" is no identifier'
}
