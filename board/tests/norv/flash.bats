#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv flash on the virtual board: 4 MiB like NOR at 0, 4 MiB NAND at 0x400000 with its blocks 3, 4 and 255 bad, 8 MiB NAND
# at 0x800000 with its blocks 0 and 44 bad, 4 MiB NAND at 0x1000000 whose page at 0x13a0000 loses its data; a card as eMMC.
# The NAND takes milliseconds for a page, so that Ctrl-C finds an operation under way.

load ../../../tests/norv/support

card=/dev/mmcblk0

setup() { image=$BATS_TEST_TMPDIR/image; }

@test "flash: ThePartitionsOfTheSpiFlash" {
    norv flash info --json
    prints_json '.flash == "SPI flash" and .size == 16777216 + 4194304 and (.partitions | length) == 4'
    norv flash info
    [[ $output == *$'\n'"0x00400000     4194304 bytes  erase block 16384"* ]]
}

@test "flash: WhatIsWrittenIsReadBack" {
    random 300000
    norv flash write --yes --address 0x20000 "$image"
    expect_status 0
    # shellcheck disable=SC2154 # set by norv
    [[ $stderr == *"write: 100 % (293.0 KiB of 293.0 KiB)"* ]]
    holds 0x20000 300000
}

@test "flash: AnErasedAreaIsEmptyAndNothingElseIsErased" {
    random 262144
    norv flash write --yes "$image"
    norv flash erase --yes --address 0x20000 --length 0x20000
    expect_status 0
    norv flash read "$image.back" --length 0x40000
    cmp --bytes 131072 "$image" "$image.back"
    [[ -z $(tail --bytes 131072 "$image.back" | tr -d '\377') ]]
}

@test "flash: WithoutATerminalItNeedsYesAndDoesNothing" {
    norv flash write --yes "$0"
    norv flash erase --length 0x20000
    is_wrong_usage "This will erase 131072 bytes from 0x0 to 0x20000 of the flash (SPI flash)."
    [[ $stderr == *"use --yes"* ]]
    norv flash read - --length 2
    [[ $output == "#!" ]]
}

@test "flash: AtATerminalItAsks" {
    norv flash write --yes "$0"
    run at_terminal n flash erase --length 0x20000
    [[ $status -eq 1 && $output == *"Continue? [y/N]"*"cancelled: nothing was done"* ]]
    run at_terminal y flash erase --length 0x20000
    [[ $status -eq 0 && $output == *"erase  [#########################] 100 %"* ]]
    norv flash read - --length 2
    [[ $output != "#!" ]]
}

@test "flash: AnAreaThatIsNotAlignedIsRefusedBeforeAnythingIsErased" {
    norv flash erase --yes --address 0x100 --length 0x20000
    fails "SPI flash: RANGE: outside the flash, or not at multiples of its erase block; see norv flash info"
    norv flash erase --yes --length 0x100
    fails "SPI flash: RANGE: outside the flash, or not at multiples of its erase block; see norv flash info"
}

@test "flash: AnAreaBeyondTheFlashIsRefused" {
    norv flash read - --address 0x1000000 --length 0x1000000
    fails "SPI flash: RANGE: the area is not inside the flash; see norv flash info"
}

@test "flash: DataGoesAroundBadBlocksAsFarAsTheEndAllows" {
    random 49152
    norv flash write --yes --address 0x408000 --end 0x420000 "$image"
    expect_status 0
    holds 0x408000 49152
}

@test "flash: AFileThatTheGoodBlocksCannotHoldIsRefusedBeforeAnythingIsErased" {
    random 16384
    norv flash write --yes --address 0x408000 "$image"
    head -c 49152 /dev/urandom >"$image.larger"
    norv flash write --yes --address 0x408000 "$image.larger"
    fails "SPI flash: EXHAUSTED: the good blocks from 0x408000 to 0x414000 hold only 16384 of 49152 bytes; --end makes the area longer"
    norv flash write --yes --address 0x408000 --end 0x418000 "$image.larger"
    fails "SPI flash: EXHAUSTED: the good blocks from 0x408000 to 0x418000 hold only 32768 of 49152 bytes; --end makes the area longer"
    holds 0x408000 16384
}

@test "flash: AReadWithUncorrectableErrorsFailsAndNamesThePartition" {
    random 32768
    norv flash write --yes --address 0x139c000 "$image"
    expect_status 1
    [[ $stderr == *"SPI flash: VERIFY_FAILED: what was read back differs; is the flash worn out or write-protected?" ]]
    norv flash read "$image.back" --address 0x139c000 --length 32768
    expect_status 1
    [[ ${stderr##*$'\n'} == "norv: SPI flash: EBADMSG: uncorrectable errors (mtd3: 2); the data that was read is damaged" ]]
    [[ $(stat --format %s "$image.back") -eq 32768 ]]
    cmp --bytes 16384 "$image" "$image.back"
    norv flash read "$image.back" --address 0x139c000 --length 16384
    expect_status 0
}

@test "flash: CtrlCCancelsAWriteAndTheCommandThatIsToldGoesOn" {
    random 1048576
    norv_behind flash write --yes --address 0x800000 --end 0x920000 "$image"
    appears "write: 10 %"
    interrupt_background
    background_ends 1
    appears "bytes are written and verified; resume with:"
    go_on
    holds 0x800000 1048576
}

@test "flash: CtrlCCancelsAReadAndTheCommandThatIsToldGoesOn" {
    # The read continues after the image, for longer than the test takes from one look to the next.
    random 1048576
    norv flash write --yes --address 0x800000 --end 0x920000 "$image"
    norv_behind flash read "$image.back" --address 0x800000 --length 3145728
    appears "read: 10 %"
    interrupt_background
    background_ends 1
    [[ $(stat --format %s "$image.back") -lt 3145728 ]]
    go_on
    [[ $(stat --format %s "$image.back") -eq 3145728 ]]
    cmp --bytes=1048576 "$image" "$image.back"
}

@test "flash: AnEmmcKeepsWhatIsBehindTheFile" {
    wait_for_card
    tr '\0' x </dev/zero | head -c 400000 | dd of=$card conv=fsync status=none
    random 5000
    norv flash write --yes --emmc $card --address 0x1000 "$image"
    expect_status 0
    cmp --bytes 5000 --ignore-initial 0x1000:0 $card "$image"
    [[ $(head -c 4096 $card | tr -d x) == "" ]]
    [[ $(head -c 400000 $card | tail -c +9097 | tr -d x) == "" ]]
}

@test "flash: AnEmmcIsErasedUpToTheEndOfTheAreaAndNoFurther" {
    wait_for_card
    tr '\0' x </dev/zero | head -c 400000 | dd of=$card conv=fsync status=none
    norv flash erase --yes --emmc $card --length $((131072 + 4096))
    expect_status 0
    [[ $(head -c 135168 $card | tr -d '\0') == "" ]]
    [[ $(head -c 400000 $card | tail -c +135169 | tr -d x) == "" ]]
}

@test "flash: AnEmmcIsReadBack" {
    wait_for_card
    random 200000
    norv flash write --yes --emmc $card --address 0x100000 "$image"
    norv flash read "$image.back" --emmc $card --address 0x100000 --length 200000
    expect_status 0
    cmp "$image" "$image.back"
    norv flash info --json --emmc $card
    prints_json '.size == 16777216'
}

# ---- what they have in common ----

random() { head -c "$1" /dev/urandom >"$image"; }

# holds ADDRESS LENGTH: the SPI flash has the image there.
holds() {
    norv flash read "$image.back" --address "$1" --length "$2"
    expect_status 0
    cmp "$image" "$image.back"
}

# Runs the command that the tool in the background has printed.
go_on() {
    local command
    command=$(sed -n 's/^    norv //p' "$BATS_TEST_TMPDIR/background")
    eval "norv $command"
    expect_status 0
}

at_terminal() {
    local answer=$1
    shift
    script --quiet --return --command "$NORV $*" /dev/null <<<"$answer"
}

wait_for_card() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        [[ ! -b $card ]] || return 0
        sleep 0.1
    done
    fail "no $card"
}
