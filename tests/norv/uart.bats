#!/usr/bin/env bats
# norv uart, where there is no port

load support

@test "APortThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv uart lines /dev/ttyNONE
    fails "uart /dev/ttyNONE: NOT_FOUND: no such port"
}

@test "AFileThatIsNoPortIsRefused" {
    norv uart recv /dev/null
    fails "uart /dev/null: ENOTTY: not a serial port"
}

@test "AParityIsOneOfFive" {
    norv uart send --parity maybe /dev/null x
    is_wrong_usage '"maybe" is none of even, mark, none, odd, space'
}

@test "DataBitsAreFiveToEight" {
    norv uart send --data-bits 9 /dev/null x
    is_wrong_usage --data-bits
}

@test "AFileAndTextTogetherAreWrongUsage" {
    norv uart send --file /dev/null /dev/null text
    is_wrong_usage "excludes"
}

@test "BytesToSendAreBytes" {
    norv uart send --hex /dev/null 0x0d newline
    is_wrong_usage '"newline" is no byte'
}

@test "AFileThatIsNotThereIsNamed" {
    norv uart send --file /no/such/file /dev/null
    fails "/no/such/file: NOT_FOUND: no such object"
}
