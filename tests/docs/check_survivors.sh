#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that docs/testing.md shows the mutants of tests/mutation/survivors.txt, all with a reason.
set -euo pipefail
cd "$(dirname "$0")/../.."

page=docs/testing.md
failed=0

# The rows of the table below the page's heading.
shown() {
    sed -n '/^### Survivors$/,/^##* /p' "$page" | grep '^|'
}

if ! diff <(shown) <(tools/survivors); then
    echo "FAILED: the table in $page is not what tools/survivors prints"
    failed=1
fi
if tools/survivors | grep -E '\| *\|$'; then
    echo "FAILED: an entry of tests/mutation/survivors.txt lacks its reason"
    failed=1
fi
exit "$failed"
