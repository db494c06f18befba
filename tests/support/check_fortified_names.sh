#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that a call of the library under test cannot pass by the kernel double because the compiler gave it its
# fortified name: check_fortified_names.sh LIBRARY TEST_PROGRAM. What the program defines under the ordinary name, it has
# to define under the fortified name as well, where the library calls that.
set -euo pipefail

library=$1
program=$2
failed=0

defined=$(nm --dynamic --defined-only --format=posix "$program" | cut -d ' ' -f 1)
is_defined() { grep -qxF -- "$1" <<<"$defined"; }

is_defined open || is_defined open64 || { echo "FAILED: $program defines no call of the C library" && exit 1; }
while read -r fortified; do
    ordinary=$(sed -E 's/^__(.*)_(chk|2)$/\1/' <<<"$fortified")
    if is_defined "$ordinary" && ! is_defined "$fortified"; then
        echo "FAILED: $library calls $fortified; the kernel double stands in for $ordinary alone"
        failed=1
    fi
done < <(nm --dynamic --undefined-only --format=posix "$library" | cut -d ' ' -f 1 | sed 's/@.*//' | grep -E '^__.*(_chk|_2)$')
exit "$failed"
