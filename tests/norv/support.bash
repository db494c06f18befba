# SPDX-License-Identifier: MIT
# What the tests of the tool have in common. NORV is the tool under test; each test runs it with `norv ARGUMENT...`,
# which sets status, output (standard output) and stderr, as bats' `run` does.

bats_require_minimum_version 1.5.0

norv() { run --separate-stderr "$NORV" "$@"; }

# succeeds [TEXT]: the exit status is 0, and nothing went to standard error; TEXT is all that was printed.
succeeds() {
    expect_status 0
    [[ -z $stderr ]] || fail "standard error: $stderr"
    [[ $# -eq 0 || $output == "$1" ]] || fail "printed: $output"
}

# fails TEXT: the exit status is 1, and standard error is "norv: TEXT".
fails() {
    expect_status 1
    # shellcheck disable=SC2154 # set by run
    [[ $stderr == "norv: $1" ]] || fail "standard error: $stderr"
}

# fails_like PATTERN: the same with a regular expression.
fails_like() {
    expect_status 1
    [[ $stderr =~ ^norv:\ $1 ]] || fail "standard error: $stderr"
}

# fails_in PATH THING CAUSE: the same, with the status NOT_FOUND and its usual cause. On a machine without the path the cause
# is that.
fails_in() {
    if [[ -e $1 ]]; then
        fails "$2: NOT_FOUND: $3"
    else
        fails_like "$2: NOT_FOUND: no $1; .*CONFIG_.+\\?$"
    fi
}

# is_wrong_usage TEXT: the exit status is 2, nothing was printed, and standard error contains TEXT.
is_wrong_usage() {
    expect_status 2
    [[ -z $output ]] || fail "printed: $output"
    [[ $stderr == *"$1"* ]] || fail "standard error: $stderr"
}

# prints_json FILTER: every line that was printed is JSON for which the jq filter is true.
prints_json() {
    expect_status 0
    jq --exit-status "$1" <<<"$output" >/dev/null || fail "printed: $output"
}

# norv_in_background ARGUMENT...: starts the tool; its output is looked at with `appears`, its end with `background_ends`.
norv_in_background() {
    "$NORV" "$@" <&0 >"$BATS_TEST_TMPDIR/background" 2>&1 3>&- &
    background=$!
}

# norv_behind ARGUMENT...: as `norv_in_background`, but on this test's processor, and only while the test itself waits: on the
# slowest host the tool does not end before the test has looked at it.
norv_behind() {
    taskset --cpu-list --pid 0 "$BASHPID" >/dev/null
    chrt --idle 0 "$NORV" "$@" >"$BATS_TEST_TMPDIR/background" 2>&1 3>&- &
    background=$!
}

# wait_until COMMAND...: waits until the command succeeds.
wait_until() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" 2>/dev/null || return 0
        sleep 0.1
    done
    return 1
}

# file_has FILE TEXT: waits until TEXT is in the file.
file_has() { wait_until grep --quiet --text --fixed-strings -- "$2" "$1" || fail "no $2 in: $(<"$1")"; }

# appears TEXT: waits until the tool in the background has printed TEXT.
appears() { file_has "$BATS_TEST_TMPDIR/background" "$1"; }

# background_ends [STATUS]: waits for the end of the tool in the background.
background_ends() {
    status=0
    wait "$background" || status=$?
    stderr=$(<"$BATS_TEST_TMPDIR/background")
    expect_status "${1:-0}"
}

interrupt_background() { kill -INT "$background"; }

# norv_into FILE ARGUMENT...: as `norv`, with standard output going to the file.
norv_into() {
    # shellcheck disable=SC2016 # expanded by the inner shell
    run --separate-stderr bash -c 'file=$1; shift; exec "$NORV" "$@" >"$file"' bash "$@"
}

expect_status() {
    # shellcheck disable=SC2154 # set by run
    [[ $status -eq $1 ]] || fail "exit status $status; standard error: $stderr"
}

fail() {
    echo "$1" >&2
    return 1
}

# padded LENGTH FIRST LAST: a path of LENGTH characters, with slashes between its two parts.
padded() { printf '%s%*s%s' "$2" $(($1 - ${#2} - ${#3})) "" "$3" | tr ' ' /; }
