# Sourced by the scripts of the virtual board: where things are, and how they speak.
# shellcheck shell=bash

board_source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
project=$(dirname "$board_source")
# shellcheck disable=SC2034  # used by the scripts that source this file
project_build=$project/build
board_build=$project/build/board

say() { printf 'board: %s\n' "$*" >&2; }

# The kernel is the one whose headers are installed, the newest of them.
kernel_version() {
    local headers
    headers=$(printf '%s\n' /usr/src/linux-headers-[0-9]*-amd64 |
        grep -v -e '-rt-amd64$' -e '-cloud-amd64$' | sort --version-sort | tail -n 1)
    [[ -d $headers ]] || return 1
    printf '%s' "${headers#/usr/src/linux-headers-}"
}

# The directory that holds boot/ and lib/modules/ of the unpacked kernel package.
kernel_directory() { printf '%s' "$board_build/kernel/$1"; }
