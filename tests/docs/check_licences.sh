#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that every source and script names its licence: GPL-2.0 for the kernel modules, MIT for all others, as
# packaging/debian/copyright says.
set -euo pipefail
cd "$(dirname "$0")/../.."

failed=0

# check LICENCE: reads names of files, which have a line that names this licence.
check() {
    local file
    while read -r file; do
        echo "FAILED: $file has no line SPDX-License-Identifier: $1"
        failed=1
    done < <(xargs grep --files-without-match --extended-regexp "^(//|/\*|#) SPDX-License-Identifier: $1( \*/)?$")
}

modules='^board/(soc/)?modules/.*\.[ch]$'
check GPL-2.0 < <(tools/sources | grep --extended-regexp "$modules")
check MIT < <(tools/sources | grep --extended-regexp --invert-match "$modules" &&
    tools/scripts sh && tools/scripts python3 && git ls-files -- '*.bats' '*.bash' '*.sh')
exit "$failed"
