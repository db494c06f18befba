#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv stat on the virtual board

load ../../../tests/norv/support

@test "system_info: TheStateOfTheBoardWithItsTemperatures" {
    norv stat --interval 50 --json
    prints_json '.memory_kib.total > 100000 and ([.network[].interface] | index("lo"))
        and ([.temperatures[].name] | index("PS") and index("PL"))'
}

@test "system_info: TheScreenIsDrawnAgainOnATerminal" {
    run script --quiet --return --command "timeout --foreground --signal INT 3 $NORV stat --watch --interval 50" /dev/null
    [[ $output == *$'\033[H\033[J'cpu* ]]
}
