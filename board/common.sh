# Sourced by the scripts of the virtual board: where things are, and how they speak.
# shellcheck shell=bash

board_source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
project=$(dirname "$board_source")
# shellcheck disable=SC2034  # used by the scripts that source this file
project_build=$project/build
board_build=$project/build/board

say() { printf 'board: %s\n' "$*" >&2; }

# Every CI service sets CI; most, but not all, to "true".
in_continuous_integration() {
    case ${CI:-} in
        '' | 0 | false) return 1 ;;
    esac
}

# The board's processor: x86_64, this machine's own, or arm64. board/run sets it.
architecture=${NORV_BOARD_ARCHITECTURE:-x86_64}

# The kernel is the one whose headers are installed, the newest of them, or its build for the board's processor.
kernel_version() {
    local headers version
    headers=$(printf '%s\n' /usr/src/linux-headers-[0-9]*-amd64 |
        grep -v -e '-rt-amd64$' -e '-cloud-amd64$' | sort --version-sort | tail -n 1)
    [[ -d $headers ]] || return 1
    version=${headers#/usr/src/linux-headers-}
    [[ $architecture == x86_64 ]] || version=${version%amd64}$architecture
    printf '%s' "$version"
}

# The directory that holds boot/ and lib/modules/ of the unpacked kernel package.
kernel_directory() { printf '%s' "$board_build/kernel/$1"; }

initramfs_file() { printf '%s' "$board_build/initramfs-$architecture.gz"; }

# Exists when such a board has booted on this machine.
boot_mark() { printf '%s' "$board_build/booted-$architecture"; }

# What the board has in place of the host's files where these are another processor's: a small Debian system, unpacked.
# Empty where the board uses the host's.
system_directory() { [[ $architecture == x86_64 ]] || printf '%s' "$board_build/system/$architecture"; }
