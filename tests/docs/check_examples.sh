#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that the code on the pages is code that is built and run: each block is a verbatim part of the example, or of the
# unit test, that its page named last, and the tour of the virtual board runs every example.
set -euo pipefail
cd "$(dirname "$0")/../.."

failed=0

fail() {
    echo "FAILED: $*"
    failed=1
}

# check_block PAGE EXAMPLE BLOCK
check_block() {
    local source
    [[ -f $2 ]] || { fail "$1 shows code without naming an example before" && return; }
    source=$(<"$2")
    [[ $source == *"$3"* ]] || fail "$1 shows code that is not in $2:"$'\n'"$3"
}

# Every ```c and ```cpp block of a page, or those that begin with the given line, with the example whose link came last, or
# that one.
check_page() {
    local page=$1 begins=${2:-} example=${3:-} line block='' in_block=false blocks=0
    local -a lines
    mapfile -t lines <"$page"
    for line in "${lines[@]}"; do
        if $in_block; then
            if [[ $line == '```' ]]; then
                check_block "$page" "$example" "$block"
                in_block=false
            else
                block+=${block:+$'\n'}$line
            fi
        elif [[ (-n $begins && $line == "$begins") || (-z $begins && ($line == '```c' || $line == '```cpp')) ]]; then
            in_block=true block='' blocks=$((blocks + 1))
        elif [[ $line =~ .*\]\((\.\./)+((examples|examples/cpp|tests/docs)/[a-z0-9_]+\.(c|h|cpp))\) ]]; then
            example=${BASH_REMATCH[2]}
        fi
    done
    [[ $blocks -gt 0 ]] || fail "$page shows no code"
}

for page in docs/families/*.md docs/cpp.md docs/first-program.md docs/kernel-double.md; do
    check_page "$page"
done

# The front page's C is shorter than what runs.
check_page README.md '```cpp' tests/docs/cpp_page_test.cpp

for source in examples/*.c; do
    example=$(basename "$source" .c)
    grep -qF "\"\$build/examples/$example\"" tools/demo-tour || fail "tools/demo-tour does not run $example"
done

# Those in C++ that show families run once for each.
for source in examples/cpp/*.cpp; do
    example=$(basename "$source" .cpp)
    mapfile -t families < <(sed -n '/^constexpr family families/,/;$/p' "$source" | grep -oE '\{"[a-z0-9_]+"' | tr -d '{"')
    for family in "${families[@]}"; do
        grep -qE "^shows .* $example $family( |\$)" tools/demo-tour-cpp ||
            fail "tools/demo-tour-cpp does not run $example $family"
    done
    [[ ${#families[@]} -gt 0 ]] || grep -qF "\"\$examples/$example\"" tools/demo-tour-cpp ||
        fail "tools/demo-tour-cpp does not run $example"
done
grep -qF "tools/demo-tour-cpp \"\$build\"" tools/demo-tour || fail 'tools/demo-tour does not run the examples in C++'
exit "$failed"
