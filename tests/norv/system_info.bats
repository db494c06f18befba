#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv stat

load support

@test "TheStateIsShown" {
    norv stat --interval 20
    succeeds
    local pattern='^cpu +[0-9.]+ %.memory +[0-9]+ of [0-9]+ kB available.uptime +[0-9]+ d [0-9:]{8}'
    [[ ${output//$'\n'/.} =~ $pattern ]] || fail "printed: $output"
}

@test "TheStateAsJson" {
    norv stat --interval 20 --json
    prints_json '.cpu_percent >= 0 and .memory_kib.total >= .memory_kib.available and .uptime_s > 0
        and (.network | type == "array") and (.temperatures | type == "array")'
}

@test "OnlyTheInterfaceThatIsAskedForIsShown" {
    norv stat --interval 20 --json --interface lo
    prints_json '[.network[].interface] == ["lo"]'
}

@test "AnInterfaceThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv stat --interface no-such-if
    fails "no-such-if: NOT_FOUND: no such network interface"
    norv stat --interface an-interface-with-a-long-long-name
    fails "an-interface-with-a-long-long-name: EXHAUSTED: too long for the name of a network interface"
}

@test "AnInterfaceHasAName" {
    norv stat --interface ""
    is_wrong_usage "a network interface has a name"
}

@test "AWatchShowsOneSampleBehindTheOtherUntilCtrlC" {
    norv_in_background stat --watch --json --interval 20
    for ((tries = 0; tries < 600; ++tries)); do
        [[ $(wc -l <"$BATS_TEST_TMPDIR/background") -lt 3 ]] || break
        sleep 0.1
    done
    interrupt_background
    background_ends
    [[ $(wc -l <"$BATS_TEST_TMPDIR/background") -ge 3 ]]
}

@test "AnIntervalIsNotTooShort" {
    norv stat --interval 1
    is_wrong_usage --interval
}
