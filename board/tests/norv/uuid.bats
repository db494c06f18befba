#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv uuid on the virtual board

load ../../../tests/norv/support

@test "uuid: TheKernelOfTheBoardGivesOne" {
    norv uuid
    succeeds
    [[ ${#output} -eq 36 ]]
}
