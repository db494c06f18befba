# SPDX-License-Identifier: MIT
# Sourced by the tests of board/run: what tests say, and how they run.
# shellcheck shell=bash
# shellcheck disable=SC2034  # used by the scripts that source this file

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
run=$project/board/run
cd "$project" || exit
mkdir -p build
scratch=$(mktemp --directory --tmpdir="$project/build")
trap 'rm -rf "$scratch"' EXIT

expect() {
    local what=$1 wanted=$2 got=$3
    [[ $got == "$wanted" ]] && return
    printf '    %s: expected "%s", got "%s"\n' "$what" "$wanted" "$got"
    failed=1
}

# Runs the board; afterwards status, out and err hold what came of it. Its input is the file that `input` names.
board() {
    status=0
    "$run" "$@" <"${input:-/dev/null}" >"$scratch/out" 2>"$scratch/err" || status=$?
    out=$(<"$scratch/out")
    err=$(<"$scratch/err")
}

# run_tests FILE [TEST]...: runs the named tests, or all that the file has.
run_tests() {
    local file=$1 name failures=0 tests
    shift
    if [[ $# -gt 0 ]]; then
        tests=("$@")
    else
        mapfile -t tests < <(grep -o '^[A-Z][A-Za-z0-9]*()' "$file" | tr -d '()')
    fi
    for name in "${tests[@]}"; do
        failed=0
        "$name"
        if [[ $failed -eq 0 ]]; then
            printf 'ok      %s\n' "$name"
        else
            printf 'FAILED  %s\n' "$name"
            failures=$((failures + 1))
        fi
    done
    printf '%d tests, %d failed\n' "${#tests[@]}" "$failures"
    [[ $failures -eq 0 ]]
}
