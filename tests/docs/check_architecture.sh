#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the table of docs/architecture.md against src/: its folders, the families in each, and what each includes. The C++
# headers include each other and those of the C interface.
set -euo pipefail
cd "$(dirname "$0")/../.."

# shellcheck source=families.bash
source tests/docs/families.bash
page=docs/architecture.md
failed=0

fail() {
    echo "FAILED: $*"
    failed=1
}

# The column of a folder's row that says what it holds.
row_of() { sed -n "s,^| \`src/$1/\` | \([^|]*\) |.*,\1,p" "$page"; }

# The families whose sources are in a folder, in alphabetical order.
families_in() {
    local source
    for source in src/"$1"/*.cpp; do
        family_of "$(basename "$source" .cpp)"
    done | sort -u | paste --serial --delimiters=' '
}

# Those that a row names: its words before the colon, separated by commas.
families_of_row() { sed 's/:.*//; s/, */\n/g' <<<"$1" | sort | paste --serial --delimiters=' '; }

for directory in src/*/; do
    room=$(basename "$directory")
    row=$(row_of "$room")
    [[ -n $row ]] || fail "$page has no row for src/$room/"
    [[ $room == core || $(families_of_row "$row") == "$(families_in "$room")" ]] ||
        fail "$page names other families in src/$room/ than $(families_in "$room")"
    while read -r included; do
        [[ $included == "$room" || $included == core ]] || fail "src/$room/ includes src/$included/"
    done < <(grep -hoE '#include "[a-z]+/' "$directory"* | sed 's/.*"//; s,/,,' | sort -u)
done
# shellcheck disable=SC2016  # these are Markdown's backticks
while read -r room; do
    [[ -d src/$room ]] || fail "$page has a row for src/$room/, which does not exist"
done < <(sed -nE 's,^\| `src/([a-z]+)/`.*,\1,p' "$page")
while read -r included; do
    [[ ($included == norv/*.hpp || $included == norv_*.h) && (-f include/$included || -f base/include/$included) ]] ||
        fail "the C++ headers include $included"
done < <(grep -hoE '#include "[^"]+' include/norv.hpp include/norv/*.hpp | sed 's/.*"//' | sort -u)
exit "$failed"
