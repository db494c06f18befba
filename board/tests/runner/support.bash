# SPDX-License-Identifier: MIT
# What the tests of board/run have in common.

bats_require_minimum_version 1.5.0

project=$(cd "$BATS_TEST_DIRNAME/../../.." && pwd -P)
runner=$project/board/run

# Below the build directory: /tmp is the board's own on the board.
setup() {
    cd "$project"
    scratch=$(mktemp --directory --tmpdir="$project/build")
}

teardown() { rm -rf "$scratch"; }

# board ARGUMENT...: runs the board, which sets status, output and stderr as bats' `run` does. Its input is the file that
# `input` names.
board() { run --separate-stderr "$runner" "$@" <"${input:-/dev/null}"; }

# expect WHAT WANTED GOT
expect() {
    [[ $3 == "$2" ]] || fail "$(printf '%s: expected "%s", got "%s"' "$@")"
}

# expect_status STATUS
# shellcheck disable=SC2154 # set by run
expect_status() { [[ $status -eq $1 ]] || fail "exit status $status instead of $1; standard error: $stderr"; }

# expect_output TEXT
# shellcheck disable=SC2154 # set by run
expect_output() {
    expect 'standard output' "$1" "$output"
}

# expect_message PATTERN: standard error matches it.
expect_message() {
    # shellcheck disable=SC2053,SC2154 # a pattern; set by run
    [[ $stderr == $1 ]] || fail "standard error: $stderr"
}

fail() {
    echo "$1" >&2
    return 1
}

# copy_project: makes a copy of what board/run needs, in which no board has booted, and lets `board` use it.
copy_project() {
    copy=$scratch/copy
    mkdir "$copy"
    cp --recursive "$project/board" "$project/tools" "$copy/"
    runner=$copy/board/run
    cd "$copy"
}

# stand_in PROGRAM: an executable, from standard input, that is found before the program of that name.
stand_in() {
    mkdir --parents "$scratch/bin"
    cat >"$scratch/bin/$1"
    chmod +x "$scratch/bin/$1"
    PATH=$scratch/bin:$PATH
}
