#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks what the Yocto recipe repeats of the project, without bitbake: the license's sum, the options of the build, and
# the version's first two numbers.
set -euo pipefail
cd "$(dirname "$0")/../.."

recipe=packaging/yocto/norv-io-linux_git.bb
failed=0

expect() {
    local what=$1
    shift
    "$@" || { echo "FAILED: $recipe: $what" && failed=1; }
}

expect 'the sum of LICENSE is another' grep -qF "file://LICENSE;md5=$(md5sum <LICENSE | cut -d ' ' -f 1)" "$recipe"
while read -r option; do
    expect "there is no option $option" grep -qF "option($option " CMakeLists.txt
done < <(grep -oE 'NORV_[A-Z_]+' "$recipe")
version=$(sed -nE 's/^project\(norv_io_linux VERSION ([0-9]+\.[0-9]+)\..*/\1/p' CMakeLists.txt)
expect "the version does not begin with $version" grep -qF "PV = \"$version+git\"" "$recipe"
exit "$failed"
