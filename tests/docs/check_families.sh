#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that a family is whole: its source stands with a unit test, a board test and a page of the same name, and that
# every page answers the same questions in the same order.
set -euo pipefail
cd "$(dirname "$0")/../.."

# Sources that share the tests and the page of the family behind the colon.
parts=(attribute:file epoll_loop:epoll epoll_timer:epoll spi_flash_erase:spi_flash spi_flash_transfer:spi_flash
    class_device:uio uevent_parse_devices:uevent_parse uevent_parse_enumeration:uevent_parse)

# What every page has; sections of its own may stand between.
sections="## Example
## Needs
## Kernel interfaces
## Statuses
## Behaviour to know"

failed=0

family_of() {
    local part
    for part in "${parts[@]}"; do
        [[ $1 != "${part%%:*}" ]] || { echo "${part##*:}" && return; }
    done
    echo "$1"
}

require() {
    [[ -f $1 ]] || { echo "FAILED: $2 has no $1" && failed=1; }
}

for source in src/*/*.cpp; do
    group=$(basename "$(dirname "$source")")
    family=$(family_of "$(basename "$source" .cpp)")
    require "tests/$group/${family}_test.cpp" "$source"
    require "board/tests/$group/${family}_board_test.cpp" "$source"
    require "docs/families/$family.md" "$source"
done

for page in docs/families/*.md; do
    if [[ $(grep -xF "$sections" "$page") != "$sections" ]]; then
        echo "FAILED: $page has not these sections once each, in this order:" && echo "$sections" && failed=1
    fi
    if sed -n '/^## Statuses$/,/^## /p' "$page" | grep -E '\| *\|$'; then
        echo "FAILED: $page names a status without saying what to do about it" && failed=1
    fi
done
exit "$failed"
