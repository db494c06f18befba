#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv fpga on the virtual board: fpga0 is sound, fpga1 fails while it is written

load ../../../tests/norv/support

setup() {
    { printf '\252\231\125\146' && head -c 100000 /dev/zero; } >/run/firmware/design.bin # as a bitstream begins
    head -c 1000 /dev/zero >/run/firmware/zeros.bin
}

image() { printf '%s' "$(</sys/class/fpga_manager/fpga0/image)"; }

@test "fpga: AProgrammedFpgaOperates" {
    norv fpga program --yes design.bin
    expect_status 0
    [[ $stderr == "This will program fpga0 with design.bin; its current design stops." ]]
    [[ $(image) == design.bin ]]
    norv fpga status 0
    succeeds
    [[ ${lines[1]} == "   0  operating "* ]]
}

@test "fpga: StatesAsJson" {
    norv fpga program --yes /lib/firmware/design.bin
    expect_status 0
    norv fpga status --json
    prints_json 'length == 2 and .[0].operating and .[0].state == "operating"'
}

@test "fpga: WithoutATerminalAndWithoutYesNothingIsProgrammed" {
    norv fpga program --yes design.bin
    norv fpga program zeros.bin
    is_wrong_usage "nothing was done: standard input is not a terminal; use --yes"
    [[ $(image) == design.bin ]]
}

@test "fpga: AFileThatIsNotThereIsNamedWithItsUsualCause" {
    norv fpga program --yes missing.bin
    expect_status 1
    [[ $stderr == *"fpga 0: NOT_FOUND: no such file where the kernel looks for firmware, in /lib/firmware" ]]
}

@test "fpga: AFileThatIsNoImageIsNamedWithItsUsualCause" {
    norv fpga program --yes zeros.bin
    expect_status 1
    [[ $stderr == *"fpga 0: INVALID_ARG: the driver refused the file; is it an image for this FPGA?" ]]
    norv fpga status --json 0
    prints_json '.[0].operating == false'
}

@test "fpga: AnFpgaThatFailsIsNamed" {
    norv fpga program --yes --fpga 1 design.bin
    expect_status 1
    [[ $stderr == *"norv: fpga 1: "* ]]
}
