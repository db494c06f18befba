#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that every quirk on docs/quirks.md is marked in a header, at its source line and in a test, and that every mark is a
# quirk on the page.
set -euo pipefail
cd "$(dirname "$0")/../.."

page=docs/quirks.md
failed=0

listed=$(sed -nE 's/^\| ([0-9]+) \|.*/\1/p' "$page" | sort)

repeated=$(uniq -d <<<"$listed")
[[ -z $repeated ]] || { echo "FAILED: $page lists a number twice:" "$repeated" && failed=1; }

# compare PLACE DIRECTORY...: the numbers that files below the directories mark are those of the page.
compare() {
    local place=$1 marked number
    shift
    marked=$(grep -rhoE '\bquirk [0-9]+' "$@" | grep -oE '[0-9]+' | sort -u)
    while read -r number; do
        echo "FAILED: quirk $number is on $page but not marked in $place" && failed=1
    done < <(comm -23 <(uniq <<<"$listed") <(echo "$marked"))
    while read -r number; do
        echo "FAILED: quirk $number is marked in $place but not on $page" && failed=1
    done < <(comm -13 <(uniq <<<"$listed") <(echo "$marked"))
}

compare 'a header' base/include include
compare 'a source' base/src src
compare 'a test' tests board/tests
exit "$failed"
