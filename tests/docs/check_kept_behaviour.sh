#!/usr/bin/env bash
# Checks that every test that docs/kept-behaviour.md names exists, and that every row names one.
set -euo pipefail
cd "$(dirname "$0")/../.."

page=docs/kept-behaviour.md
# shellcheck disable=SC2016  # these are Markdown's backticks
test_name='`[A-Za-z0-9]+\.[A-Za-z0-9]+`'
failed=0

while IFS=. read -r suite name; do
    if ! grep -rqE "TEST(_F|_P)?\($suite, *$name\)" tests board/tests; then
        echo "FAILED: $page names $suite.$name, which does not exist"
        failed=1
    fi
done < <(grep -oE "$test_name" "$page" | tr -d '\140' | sort -u)

while read -r row; do
    echo "FAILED: $page has a row without a test: $row"
    failed=1
done < <(grep '^| ' "$page" | grep -vE '^\| (family|---)' | grep -vE "$test_name")
exit "$failed"
