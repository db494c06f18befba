#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uio on the virtual board: a device with an interrupt, one without, and QEMU's educational PCI device

load ../../../tests/norv/support
load pci

debug=/sys/kernel/debug/norv_board_uio

setup_file() { norv_uio_is_bound || "$NORV" uio bind "$pci_device"; }

@test "uio: DevicesAreListedWithTheirSizes" {
    norv uio list
    succeeds
    [[ $output == *"0x00001000  -          norv-board-regs"* ]]
    [[ $output == *"0x00002000  -          norv-board-memory"* ]]
}

@test "uio: DevicesAsJson" {
    norv uio list --json
    prints_json 'any(.name == "norv-board-regs" and .size == 4096 and .pci == null)'
}

@test "uio: ARegisterIsRead" {
    norv uio read norv-board-regs 0
    succeeds 0x4e4f5256
}

@test "uio: ADeviceMayBeNamedByItsNumber" {
    number=$("$NORV" uio list --json | jq '.[] | select(.name == "norv-board-regs").device')
    norv uio read "$number" 0
    succeeds 0x4e4f5256
}

@test "uio: RegistersThatAreWrittenAreReadBack" {
    norv uio write norv-board-memory 0x1000 1 0x22222222 0xffffffff 4 5
    succeeds ""
    norv uio read norv-board-memory 0x1000 --count 5
    succeeds $'00001000: 00000001 22222222 ffffffff 00000004\n00001010: 00000005'
}

@test "uio: RegistersAsJson" {
    norv uio write norv-board-memory 0x20 7 8
    norv uio read --json norv-board-memory 0x20 --count 2
    prints_json '.offset == 32 and .values == [7, 8]'
}

@test "uio: AFixedAddressIsAccessedAgainAndAgain" {
    norv uio write norv-board-memory 0x44 0
    norv uio write --fixed norv-board-memory 0x40 1 2 3
    norv uio read --fixed norv-board-memory 0x40 --count 2
    succeeds "00000040: 00000003 00000003"
    norv uio read norv-board-memory 0x44
    succeeds 0x00000000
}

@test "uio: RegistersOutsideTheDeviceAreNotTouched" {
    norv uio read norv-board-regs 0xffc
    succeeds
    norv uio read norv-board-regs 0xffc --count 2
    is_wrong_usage "registers end at 0x1004, but uio "
    norv uio write norv-board-regs 0x1000 1
    is_wrong_usage "registers end at 0x1004, but uio "
    norv uio read norv-board-regs 2
    is_wrong_usage "0x2 is not a multiple of 4"
}

@test "uio: InterruptsAreWaitedFor" {
    echo 2 >"$debug/raise"
    norv uio wait --json --count 2 --timeout 60000 norv-board-regs
    prints_json '.interrupt >= 1'
    [[ ${#lines[@]} -eq 2 && $(<"$debug/pending") -eq 0 && $(<"$debug/enabled") == N ]]
}

@test "uio: AnInterruptThatDoesNotComeIsATimeoutAndTheInterruptIsDisabledAgain" {
    norv uio wait --timeout 1 norv-board-regs
    fails_like "uio [0-9]+: TIMEOUT: nothing arrived in time"
    [[ $(<"$debug/enabled") == N ]]
}

@test "uio: CtrlCEndsAWaitAndTheInterruptIsDisabledAgain" {
    "$NORV" uio wait --count 0 norv-board-regs &
    wait_until grep --quiet Y "$debug/enabled"
    kill -INT $!
    wait $!
    [[ $(<"$debug/enabled") == N ]]
}

@test "uio: ADeviceWithoutAnInterruptIsNamedWithItsUsualCause" {
    norv uio wait norv-board-memory
    fails_like "uio [0-9]+: DEVICE_ERROR: it has no interrupt, or its driver cannot mask it"
}

@test "uio: APciDeviceIsNamedByItsIdentity" {
    norv uio list --json
    prints_json "any(.pci == \"$pci_device\" and .name == \"uio_pci_mmap\")"
    norv uio read "$pci_device" 0
    succeeds 0x010000ed
}

@test "uio: AnIdentityThatTheDriverKnowsHasTheKernelsAnswer" {
    binding_again_is_answered_as_by_the_kernel uio uio_pci_mmap
}

norv_uio_is_bound() { "$NORV" uio list | grep --quiet "$pci_device"; }
