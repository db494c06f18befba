#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that a family is complete: its source has a unit test, a board test and a page of the same name, and every page
# answers the same questions in the same order.
set -euo pipefail
cd "$(dirname "$0")/../.."

# shellcheck source=families.bash
source tests/docs/families.bash

# What every page has; sections of its own may come between.
sections="## Example
## Needs
## Kernel interfaces
## Statuses
## Behaviour to know"

failed=0

require() {
    [[ -f $1 ]] || { echo "FAILED: $2 has no $1" && failed=1; }
}

for source in src/*/*.cpp; do
    group=$(basename "$(dirname "$source")")
    [[ $group != core ]] || continue
    family=$(family_of "$(basename "$source" .cpp)")
    require "tests/$group/${family}_test.cpp" "$source"
    require "board/tests/$group/${family}_board_test.cpp" "$source"
    require "docs/families/$family.md" "$source"
done

for page in docs/families/*.md; do
    if [[ $(grep -xF "$sections" "$page") != "$sections" ]]; then
        echo "FAILED: $page has not these sections once each, in this order:" && echo "$sections" && failed=1
    fi
    if sed -n '/^## Statuses$/,/^## /p' "$page" | grep -E '\| *\|$'; then
        echo "FAILED: $page names a status without saying what to do about it" && failed=1
    fi
done
exit "$failed"
