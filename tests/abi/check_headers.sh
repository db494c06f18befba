#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that norv_io_linux.h and norv.hpp each include the other public headers of their language, once and in
# alphabetical order.
set -euo pipefail
cd "$(dirname "$0")/../../include"

# check HEADER: it includes the headers that standard input lists.
check() {
    diff <(LC_ALL=C sort) <(sed --quiet 's/^#include "\(.*\)"$/\1/p' "$1") ||
        { echo "FAILED: $1 (>) does not include the public headers (<)" && failed=1; }
}

failed=0
check norv_io_linux.h < <(printf '%s\n' norv_*.h | grep --invert-match '^norv_io_linux\.h$')
check norv.hpp < <(printf '%s\n' norv/*.hpp)
exit "$failed"
