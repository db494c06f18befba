#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv umcb on the virtual board: a device with four sources, and QEMU's educational PCI device without any

load ../../../tests/norv/support
load pci

debug=/sys/kernel/debug/norv_board_umcb

@test "umcb: ADeviceIsListedWithItsSize" {
    norv umcb list
    succeeds
    [[ ${lines[1]} == "     0  0x00001000  -          norv-board-control" ]]
}

@test "umcb: RegistersAreReadByNumberAndByName" {
    norv umcb read 0 0
    succeeds 0x554d4342
    norv umcb read --json norv-board-control 0 --count 2
    prints_json '.device == 0 and .values == [1431126850, 4]'
}

@test "umcb: RegistersThatAreWrittenAreReadBackAndAModeIsToldToTheDriver" {
    norv umcb write 0 0x200 0x12345678
    succeeds ""
    norv umcb read 0 0x200
    succeeds 0x12345678
    norv umcb read --mode 1 0 0x200
    succeeds 0x00000000
}

@test "umcb: AModeThatTheDriverHasNotIsNamedAsTheCause" {
    norv umcb read --mode 9 0 0
    fails "umcb 0: INVALID_ARG: its driver has no such mode, source or type"
}

@test "umcb: InterruptsOfASourceAreWaitedFor" {
    echo 2 >"$debug/source1/raise"
    norv umcb wait --json --count 2 --timeout 60000 --type 1 0 1
    prints_json '.source == 1 and .interrupt >= 1'
    [[ ${#lines[@]} -eq 2 && $(<"$debug/source1/pending") -eq 0 && $(<"$debug/source1/enabled") == N ]]
}

@test "umcb: AnInterruptThatDoesNotComeIsATimeout" {
    norv umcb wait --timeout 1 0 2
    fails "umcb 0 source 2: TIMEOUT: nothing arrived in time"
}

@test "umcb: ASourceThatIsNotThereIsNamedAsTheCause" {
    norv umcb wait 0 4
    fails "umcb 0 source 4: INVALID_ARG: its driver has no such mode, source or type"
}

@test "umcb: ASourceIsOneProgramsAtATime" {
    "$NORV" umcb wait 0 3 &
    wait_until grep --quiet Y "$debug/source3/enabled"
    norv umcb wait 0 3
    fails "umcb 0 source 3: EBUSY: another program uses the source"
    kill -INT $!
    wait $!
}

# Where the driver of UIO devices has it, that one lets go of it first.
@test "umcb: APciDeviceIsServedAndNamedByItsIdentity" {
    local device
    for device in /sys/bus/pci/drivers/uio_pci_mmap/0000:*; do
        [[ ! -e $device ]] || echo "${device##*/}" >/sys/bus/pci/drivers/uio_pci_mmap/unbind
    done
    norv umcb bind "$pci_device"
    succeeds ""
    norv umcb list --json
    prints_json "any(.pci == \"$pci_device\" and .name == \"umcb_pci_mmap\")"
    norv umcb read "$pci_device" 0
    succeeds 0x010000ed
    binding_again_is_answered_as_by_the_kernel umcb umcb_pci_generic
}
