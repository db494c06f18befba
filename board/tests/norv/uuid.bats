#!/usr/bin/env bats
# norv uuid on the virtual board

load ../../../tests/norv/support

@test "uuid: TheKernelOfTheBoardGivesOne" {
    norv uuid
    succeeds
    [[ ${#output} -eq 36 ]]
}
