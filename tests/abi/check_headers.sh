#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that norv_io_linux.h includes each other public header, once and in alphabetical order.
set -euo pipefail
cd "$(dirname "$0")/../../include"

diff <(printf '%s\n' norv_*.h | grep --invert-match '^norv_io_linux\.h$' | LC_ALL=C sort) \
    <(sed --quiet 's/^#include "\(.*\)"$/\1/p' norv_io_linux.h) ||
    { echo "FAILED: norv_io_linux.h (>) does not include the public headers (<)"; exit 1; }
