#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that what the documents link to in the repository exists, headings included. Code is left out.
set -euo pipefail
cd "$(dirname "$0")/../.."

failed=0

# The anchors of a page's headings.
anchors() {
    grep -E '^#+ ' "$1" | sed -E 's/^#+ //' | tr '[:upper:]' '[:lower:]' | tr -cd 'a-z0-9_ \n-' | tr ' ' '-'
}

# check_link PAGE TARGET
check_link() {
    local file anchor
    file=$(dirname "$1")/${2%%#*}
    [[ $2 != '#'* ]] || file=$1
    [[ -e $file ]] || { echo "FAILED: $1 links to $2, which does not exist" && failed=1 && return; }
    [[ $2 == *'#'* ]] || return 0
    anchor=${2#*#}
    grep -qxF -- "$anchor" < <(anchors "$file") || { echo "FAILED: $1 links to $2, and there is no such heading" && failed=1; }
}

pages=$(git ls-files --cached --others --exclude-standard -- '*.md')
while IFS= read -r page; do
    while IFS= read -r target; do
        check_link "$page" "$target"
    done < <(awk '/^```/ { code = !code } !code' "$page" | grep -oE '\]\([^)]+\)' | sed -E 's/^\]\(|\)$//g' | grep -vE '^[a-z]+:|\.html$')
done <<<"$pages"
exit "$failed"
