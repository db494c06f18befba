#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the table of the kernels in docs/kernels.md: that it is what tools/board-kernels makes of the recorded results, and
# that every test has run on every kernel, and passed. Then tools/board-kernels itself, in a copy of what it reads, where its tests are shell commands and
# board/run prints the kernel's name.
set -euo pipefail
cd "$(dirname "$0")/../.."
scratch=$(mktemp --directory)
trap 'rm -rf "$scratch"' EXIT
failed=0

fails() {
    printf 'FAILED: %s\n' "$*"
    failed=1
}

# ---- the table ----

mkdir -p "$scratch"/{tools,docs,board}
cp tools/board-kernels "$scratch/tools/"
cp docs/kernels.md "$scratch/docs/"
cp -r board/tests "$scratch/board/"
"$scratch/tools/board-kernels" --table
cmp --quiet docs/kernels.md "$scratch/docs/kernels.md" ||
    fails "docs/kernels.md does not have the table that the recorded results make: tools/board-kernels --table"

while read -r row; do
    fails "a test has not passed on a kernel (tools/board-kernels --tests REGEX build/release KERNEL): $row"
done < <(grep -E '\| (FAILED|not run) \|' docs/kernels.md)

while IFS=: read -r name _; do
    grep --quiet "^| $name |" docs/kernels.md || fails "board/tests/kernel-notes.txt has a note on $name, which is not a test"
done < <(grep '^[^#]' board/tests/kernel-notes.txt)

# ---- its maker ----

cd "$scratch"
rm -r board/tests
mkdir -p board/tests/{sysfs,norv,udev} build
touch board/tests/sysfs/{gpio,led,pwm,sysfs}_board_test.cpp
printf 'led: blinks\nled: and dims\n' >board/tests/kernel-notes.txt
# shellcheck disable=SC2016  # expanded by that script
printf '#!/bin/sh\necho "$2.0-1-amd64" | sed s/newest/7.3/\n' >board/run
chmod +x board/run
# On 6.1 a family fails, and on 6.12 the board crashes before the last one.
cat >build/sysfs <<'EOF'
echo 'passed  gpio, 1 s'
case $NORV_BOARD_KERNEL in
    6.1) printf 'FAILED  led, 1 s: status 1\npassed  pwm, 1 s\n' && exit 1 ;;
    6.12) printf 'passed  led, 1 s\n' && exit 125 ;;
esac
printf 'passed  led, 1 s\npassed  pwm, 1 s\npassed  sysfs, 1 s\n'
EOF
printf '@test "%s"\n' "can: A" "can: B" >board/tests/norv/can.bats
printf '@test "%s"\n' "gpio: A" >board/tests/norv/gpio.bats
printf '@test "%s"\n' "rights: A" >board/tests/udev/rights.bats
# On 5.10 a test fails, and on 6.12 the last one is not reached.
cat >build/norv_session.sh <<'EOF'
printf 'ok 1 can: A in 1ms\n'
case $NORV_BOARD_KERNEL in
    5.10) printf 'not ok 2 can: B in 1ms\nok 3 gpio: A in 1ms\n' && exit 1 ;;
    6.12) exit 124 ;;
esac
printf 'ok 2 can: B in 1ms\nok 3 gpio: A in 1ms\n'
EOF
echo "echo 'ok 1 rights: A'" >build/udev_session.sh
cat >build/CTestTestfile.cmake <<'EOF'
add_test(board.sysfs sh sysfs)
add_test(board.examples true)
add_test(board.norv1.session sh norv_session.sh build can)
add_test(board.norv2.session sh norv_session.sh build gpio)
add_test(board.udev.session sh -c "test $NORV_BOARD_KERNEL != newest || exit 77; sh udev_session.sh" _session.sh build)
set_tests_properties(board.udev.session PROPERTIES SKIP_RETURN_CODE 77)
set_tests_properties(board.sysfs board.examples board.norv1.session board.norv2.session board.udev.session
    PROPERTIES LABELS board)
add_test(unit false)
EOF

expect_rows() {
    local row
    while read -r row; do
        grep --quiet --line-regexp --fixed-strings -- "$row" docs/kernels.md || fails "no row of the table is: $row"
    done
}

# expect_status STATUS ARGUMENT...
expect_status() {
    local expected=$1 status=0
    shift
    tools/board-kernels "$@" >output 2>&1 || status=$?
    [[ $status -eq $expected ]] || fails "tools/board-kernels $* ended with $status, not $expected: $(<output)"
}

expect_status 1 build
expect_rows <<'EOF'
| | 5.10 | 6.1 | 6.12 | 7.3 | what differs |
| Debian's kernel | 5.10.0-1 | 6.1.0-1 | 6.12.0-1 | 7.3.0-1 | |
| gpio | passed | passed | passed | passed |  |
| led | passed | FAILED | passed | passed | blinks; and dims |
| pwm | passed | passed | FAILED | passed |  |
| sysfs | passed | FAILED | FAILED | passed |  |
| examples | passed | passed | passed | passed |  |
| norv | FAILED | passed | FAILED | passed |  |
| udev | passed | passed | passed | FAILED |  |
EOF

# What does not run keeps its result, and another kernel is not recorded.
echo "echo 'passed  led, 1 s'; exit 1" >build/sysfs
expect_status 1 --tests '^board\.sysfs' build 6.12 6.6
expect_rows <<'EOF'
| | 5.10 | 6.1 | 6.12 | 7.3 | what differs |
| gpio | passed | passed | FAILED | passed |  |
| udev | passed | passed | passed | FAILED |  |
EOF
! grep --quiet '^6\.6 ' board/tests/kernel-results.txt || fails "the results on 6.6 were recorded"

# Where a kernel cannot be had, no test begins.
echo 'exit 77' >board/run
expect_status 77 build 5.10
[[ ! -s output ]] || fails "tests began: $(<output)"

expect_status 2
expect_status 2 no/such/build
exit "$failed"
