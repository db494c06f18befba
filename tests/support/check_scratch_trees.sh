#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that a test program, run to its end, leaves none of its scratch trees behind.
# check_scratch_trees.sh PROGRAM [ARGUMENT...]
set -euo pipefail

TMPDIR=$(mktemp --directory)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

"$@" >/dev/null
left=$(ls -A "$TMPDIR")
[[ -z $left ]] || { echo "FAILED: $* left in its temporary directory:" && echo "$left" && exit 1; }
