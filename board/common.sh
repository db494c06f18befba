# SPDX-License-Identifier: MIT
# Sourced by the scripts of the virtual board: where things are, and how they speak.
# shellcheck shell=bash

board_source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
project=$(dirname "$board_source")
# shellcheck disable=SC2034  # used by the scripts that source this file
project_build=$project/build
board_build=$project/build/board

# What is fetched and built for boards is the same for every checkout, and kept where a user's caches are.
board_cache=${XDG_CACHE_HOME:-${HOME:+$HOME/.cache}}
board_cache=${board_cache:+$board_cache/norv-board}
[[ -n $board_cache ]] && mkdir -p "$board_cache" 2>/dev/null || board_cache=$board_build/cache

say() { printf 'board: %s\n' "$*" >&2; }

# Every CI service sets CI; most, but not all, to "true".
in_continuous_integration() {
    case ${CI:-} in
        '' | 0 | false) return 1 ;;
    esac
}

# The board's processor: x86_64, this machine's own, or arm64. board/run sets it.
architecture=${NORV_BOARD_ARCHITECTURE:-x86_64}

# The board's kernel: a series like 6.1, "newest", or a version; empty for the one of this machine's release.
# shellcheck disable=SC2034
kernel_name=${NORV_BOARD_KERNEL:-}

# Exists when such a board has booted on this machine.
boot_mark() { printf '%s' "$board_build/booted-$architecture"; }

# Held while anything is prepared.
lock_file() { printf '%s' "$board_cache/lock"; }

# Empty for the virtual board proper. board/run sets it.
machine_name=${NORV_BOARD_MACHINE:-}

known_machines() { (cd "$board_source/machines" && printf '%s\n' *.sh) | sed 's/\.sh$//' | paste --serial --delimiters=' '; }

# Takes a machine of board/machines/ in place of the virtual board.
select_machine() {
    machine_name=$1
    # shellcheck disable=SC1090  # one of those in board/machines/
    source "$board_source/machines/$machine_name.sh"
}

[[ -z $machine_name ]] || select_machine "$machine_name"
