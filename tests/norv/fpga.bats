#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv fpga, where there is no such FPGA

load support

no_fpga=2000000000

@test "AnFpgaThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv fpga status "$no_fpga"
    fails_in /sys/class/fpga_manager "fpga $no_fpga" "no such FPGA; is the FPGA manager's driver loaded?"
}

@test "NothingIsAskedWhereThereIsNoFpgaToProgram" {
    norv fpga program --fpga "$no_fpga" design.bin
    fails_in /sys/class/fpga_manager "fpga $no_fpga" "no such FPGA; is the FPGA manager's driver loaded?"
}

@test "AListHasAHeadingAlsoWhereThereAreNoFpgas" {
    norv fpga status
    succeeds
    [[ ${lines[0]} == "FPGA  STATE              NAME" ]]
}

@test "AListAsJsonIsAnArray" {
    norv fpga status --json
    prints_json 'type == "array"'
}

@test "FirmwareOutsideTheKernelsDirectoryIsWrongUsage" {
    norv fpga program --yes /tmp/design.bin
    is_wrong_usage "copy /tmp/design.bin there and give its name"
    norv fpga program --yes ./design.bin
    is_wrong_usage "the kernel takes firmware from /lib/firmware/ only"
    norv fpga program --yes /lib/firmware/
    is_wrong_usage "the kernel takes firmware from /lib/firmware/ only"
    norv fpga program --yes designs/../../../tmp/design.bin
    is_wrong_usage "the kernel takes firmware from /lib/firmware/ only"
    norv fpga program --yes /lib/firmware/../../tmp/design.bin
    is_wrong_usage "the kernel takes firmware from /lib/firmware/ only"
}

@test "AnFpgaHasANumber" {
    norv fpga status -- -1
    is_wrong_usage "FPGA: Value -1 not in range"
    [[ $stderr == *2147483647* ]] || fail "standard error: $stderr"
}
