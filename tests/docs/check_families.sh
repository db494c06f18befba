#!/usr/bin/env bash
# Checks that a family is whole: its source stands with a unit test, a board test and a page of the same name.
set -euo pipefail
cd "$(dirname "$0")/../.."

# Sources that share the tests and the page of the family behind the colon.
parts=(epoll_loop:epoll epoll_timer:epoll spi_flash_erase:spi_flash spi_flash_transfer:spi_flash
    class_device:uio uevent_parse_devices:uevent_parse uevent_parse_enumeration:uevent_parse)

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
exit "$failed"
