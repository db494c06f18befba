#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A session with the tool on the virtual board: every group of commands meets its driver, GROUP.bats for each.
#
#   board/run MODULES... -- norv_session.sh BUILD [GROUP...]
#
# BUILD is the build directory; without groups all are tried.
set -euo pipefail

build=$(cd "$1" && pwd)
shift
export NORV=$build/tools/norv/norv
export NORV_TESTS=$build/board/tests
cd "$(dirname "$0")"

files=("${@/%/.bats}")
[[ $# -gt 0 ]] || files=(*.bats)
exec bats --tap --timing "${files[@]}"
