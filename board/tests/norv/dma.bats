#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv dma on the virtual board

load ../../../tests/norv/support

debug=/sys/kernel/debug/norv_board_dma

@test "dma: EveryKindOfMemoryIsThere" {
    norv dma kinds 64k
    succeeds
    for kind in cma default kmalloc reserved user; do
        [[ $output =~ $'\n'$kind\ +[1-9][0-9]*\ +good ]] || fail "no $kind in: $output"
    done
}

@test "dma: KindsAsJson" {
    norv dma kinds --json 8192
    prints_json 'length == 5 and all(.size == 8192 and .pieces > 0 and .error == null)'
}

@test "dma: AKindThatHasNotAsMuchIsToldBesideTheOthers" {
    norv dma kinds --json 512k
    prints_json '.[] | select(.kind == "reserved").error == "dma reserved: NO_MEMORY: the driver has no such memory left"'
    prints_json 'any(.kind == "default" and .error == null)'
}

@test "dma: ThePiecesOfABufferAreShownAsTheDriverDescribesThem" {
    norv dma test cma 64k
    succeeds
    [[ $output =~ ^([0-9a-f]{2}\ ){15}[0-9a-f]{2}$ ]] || fail "printed: $output"
}

@test "dma: PiecesAsJson" {
    norv dma test --json default 16k
    prints_json '.kind == "default" and .size == 16384 and all(.pieces[]; length == 16)'
}

@test "dma: MemoryThatIsNotThereIsNamedWithItsUsualCause" {
    norv dma test reserved 512k
    fails "dma reserved: NO_MEMORY: the driver has no such memory left"
}

@test "dma: NothingIsLeftBehind" {
    norv dma kinds
    [[ $(<"$debug/buffers") -eq 0 && $(<"$debug/locks") -eq 0 ]]
}
