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
# The tool is called hundreds of times, and each call looks for its libraries in many places: in the build directory, which
# the host may change at any time, that takes longer than all the rest.
copy=$(mktemp --directory)
(cd "$build" && cp --parents --dereference tools/norv/norv src/libnorv_io_linux.so.0 base/libnorv_base.so.0 "$copy")
export NORV=$copy/tools/norv/norv
export NORV_TESTS=$build/board/tests
cd "$(dirname "$0")"

files=("${@/%/.bats}")
[[ $# -gt 0 ]] || files=(*.bats)
exec bats --tap --timing "${files[@]}"
