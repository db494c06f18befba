#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks tools/mutation with a small library whose mutants are known: what it changes, how it judges, when it fails.
set -euo pipefail
cd "$(dirname "$0")/../.."

planted=$(mktemp -d)
trap 'rm -rf "$planted"' EXIT
failed=0

fail() {
    echo "FAILED: $*"
    failed=1
}

# Runs the tool over the planted library; its exit status is kept.
mutation() {
    status=0
    output=$(tools/mutation --project "$planted" "$@" 2>"$planted/log") || status=$?
}

# check_verdict VERDICT ID
check_verdict() {
    local verdict
    verdict=$(jq --raw-output --arg id "$2" 'select(.id == $id).verdict' "$planted/build/mutation/results.jsonl")
    [[ $verdict == "$1" ]] || fail "$2 is '$verdict', not '$1'"
}

# check_status STATUS WHAT
check_status() {
    [[ $status == "$1" ]] || { fail "$2: exit status $status, not $1" && cat "$planted/log" && echo "$output"; }
}

check_list() {
    mutation --list
    diff tests/mutation/planted_mutants.txt - <<<"$output" || fail "these are other mutants than expected"
    mutation --list --files '*.hpp' --sample 5
    [[ $(wc -l <<<"$output") == 5 && $output != *planted.cpp* ]] || fail "a sample of 5 from one file: $output"
}

check_verdicts() {
    mutation --threshold 50
    check_status 0 "a run above its threshold"
    check_verdict killed 'src/planted.cpp:14:9 assignment += -> -='
    check_verdict survived 'src/planted.cpp:20:33 arithmetic - -> +'
    check_verdict equivalent 'src/planted.cpp:25:15 relational == -> <='
    check_verdict duplicate 'src/planted.cpp:28:20 constant 10 -> 11'
    check_verdict 'timed out' 'src/steps.hpp:10:21 logical && -> ||'
    check_verdict accepted 'src/steps.hpp:9:5 narrowing unsigned -> unsigned char'
    check_verdict 'not compiled' 'src/planted.hpp:8:40 constant 2 -> 1'
}

# What is kept of the run before needs no program to run.
check_resumption() {
    mutation --resume --threshold 99
    check_status 1 "a run below its threshold"
    [[ $output == *"fewer than 99 %"* ]] || fail "the threshold is not named: $output"
    grep -q tested "$planted/log" && fail "mutants are tested again: $(<"$planted/log")"
    return 0
}

check_one() {
    mutation --only 'src/planted.cpp:14:9 assignment += -> -='
    [[ $output == *"+    sum -= second;"*"killed planted_test exit status 1"* ]] || fail "one mutant shows: $output"
    mutation --only 'src/planted.cpp:2:1 arithmetic + -> -'
    check_status 1 "a mutant that does not exist"
}

check_stale_entries() {
    sed --in-place 's/unsigned char steps/unsigned short steps/' "$planted/tests/mutation/survivors.txt"
    mutation --resume
    check_status 1 "a stale entry"
    [[ $output == *"count_down: unsigned steps = 0; -> unsigned short steps = 0;: no such mutant"* ]] ||
        fail "a stale entry shows: $output"
}

cp -r tests/mutation/planted/. "$planted"
cmake -G Ninja -S "$planted" -B "$planted/build/release" >"$planted/log" || cat "$planted/log"
cmake --build "$planted/build/release" >"$planted/log" || cat "$planted/log"
check_list
check_verdicts
check_resumption
check_one
check_stale_entries
exit "$failed"
