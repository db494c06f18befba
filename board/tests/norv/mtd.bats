#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv mtd on the virtual board: mtd0 is like NOR, mtd1 to mtd3 are a NAND chip with bad blocks

load ../../../tests/norv/support

@test "mtd: AllPartitionsAreListed" {
    norv mtd list --json
    prints_json 'map(.partition) == ["mtd0", "mtd1", "mtd2", "mtd3"] and map(.type)[1] == "nand" and .[0].size == 4194304'
    norv mtd list
    [[ $(wc -l <<<"$output") -eq 4 ]]
}

@test "mtd: TheGeometryOfAPartition" {
    norv mtd info --json 1
    prints_json '.erase_size == 16384 and .write_size == 512 and .nand and .writeable'
    norv mtd info /dev/mtd0
    [[ $output == *"erase block 131072"* && $output == *"NAND        no"* ]]
}

@test "mtd: TheBadBlocksOfAPartition" {
    norv mtd badblocks --json mtd1
    prints_json '. == {"partition": "mtd1", "blocks": 256, "bad": [49152, 65536, 4177920]}'
    norv mtd badblocks mtd1
    [[ $output == "0x0000c000  block 3"$'\n'* && $output == *"3 bad of 256 blocks" ]]
}

@test "mtd: FlashWithoutBadBlocksHasNone" {
    norv mtd badblocks mtd0
    succeeds "0 bad of 32 blocks"
}
