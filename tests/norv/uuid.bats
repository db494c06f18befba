#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uuid

load support

@test "AUuidIsPrinted" {
    norv uuid
    succeeds
    [[ $output =~ ^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[0-9a-f]{4}-[0-9a-f]{12}$ ]]
}

@test "AsManyAsAskedForArePrintedAndDiffer" {
    norv uuid --count 3
    succeeds
    [[ $(sort -u <<<"$output" | wc -l) -eq 3 ]]
}

@test "AUuidAsJson" {
    norv uuid --json
    prints_json '.uuid | length == 36'
}
