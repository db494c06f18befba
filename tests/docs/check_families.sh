#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that a family's name finds all that it consists of: header, source, unit test, board test, example, benchmark,
# source and tests of its commands. A file of a family has its name, or begins with it and an underscore. What a family does
# not have, and what it shares with another family, its page lists with a reason or a link. No file has a name of another
# kind, and every page answers the same questions in the same order.
set -euo pipefail
cd "$(dirname "$0")/../.."

# shellcheck source=families.bash
source tests/docs/families.bash

# What every page has; sections of its own may come between.
sections="## Example
## Needs
## Kernel interfaces
## Statuses
## Behaviour to know"

# Files that no family is named in: they are about several.
others="examples/first_program.c
tests/norv/frame.bats
tests/norv/generated.bats
board/tests/norv/interfaces.bats"

# The base library's pieces are in folders of this name, and have names of their own.
library=base

failed=0

fail() {
    echo "FAILED: $*"
    failed=1
}

require() {
    [[ -f $1 ]] || fail "$2 has no $1"
}

# ---- where a family's files are

# The header of a family: of its own, or that of the family whose name its own begins with.
header_of() {
    local name=$1 header
    while :; do
        for header in include/norv_{,linux_}"$name.h" "$library/include/norv_$name.h"; do
            [[ ! -f $header ]] || { echo "$header" && return; }
        done
        [[ $name == *_* ]] || return 0
        name=${name%_*}
    done
}

# The family of each file that may belong to one; its name without its suffix, and without the word for its kind, says so.
declare -A owners

own() {
    local file stem
    for file in "$@"; do
        stem=${file##*/}
        stem=${stem%.*}
        stem=${stem%_bench}
        stem=${stem%_test}
        owners[$file]=$(family_of "${stem%_board}")
    done
}

# named FAMILY FILE...: the files whose names are the family's.
named() {
    local family=$1 file
    shift
    for file in "$@"; do
        [[ ${owners[$file]} != "$family" ]] || echo "$file"
    done
}

commands() { grep --files-with-matches '^const group ' tools/norv/*.cpp; }

# ---- what a page says of the files that are missing

entry_of() { sed -n "s/^- $2: //p" "docs/families/$1.md"; }

# includes FILE HEADER: directly, or through headers of the libraries. Those of C++ count for the C headers below them, not
# for each other.
includes() {
    local inner
    while read -r inner; do
        [[ $inner != "$2" ]] || return 0
        [[ ! -f include/$inner || $1 == include/*.hpp && $inner == *.hpp ]] || ! includes "include/$inner" "$2" || return 0
    done < <(sed -nE 's,^#include [<"](norv[a-z0-9_/]*\.h(pp)?)[>"],\1,p' "$1")
    return 1
}

# check_kind FAMILY KIND FILE...: the family has such files, or its page says "- KIND: LINK" for one that it shares, or
# "- No KIND: REASON".
check_kind() {
    local family=$1 kind=$2 shared absent found
    shift 2
    shared=$(entry_of "$family" "$kind")
    absent=$(entry_of "$family" "No ${kind,}")
    found=$(named "$family" "$@")
    case ${found:+f}${shared:+s}${absent:+a} in
        f | a) ;;
        s) check_shared "$family" "$kind" "$shared" ;;
        '') fail "$family has no ${kind,}, and docs/families/$family.md does not say where it is or why there is none" ;;
        *) fail "docs/families/$family.md has an entry too many on its ${kind,}: $found" ;;
    esac
}

check_shared() {
    local path header
    path=$(sed -nE 's,.*\]\(\.\./\.\./([a-z0-9_/.]+)\).*,\1,p' <<<"$3")
    header=$(basename "$(header_of "$1")")
    [[ -f $path ]] || { fail "docs/families/$1.md names no file for its ${2,}" && return; }
    includes "$path" "$header" || fail "docs/families/$1.md names $path for its ${2,}, which does not include $header"
}

# ---- families

mapfile -t command_sources < <(commands)
files=(src/*/*.cpp tests/*/*_test.cpp board/tests/*/*_board_test.cpp bench/*/*_bench.cpp examples/*.c "${command_sources[@]}"
    tests/norv/*.bats board/tests/norv/*.bats)
own "${files[@]}"

for page in docs/families/*.md; do
    family=$(basename "$page" .md)
    header=$(header_of "$family")
    [[ -n $header ]] || fail "$family has no header"
    [[ $(head -n 1 "$page") == *"\`$(basename "$header")\`"* ]] || fail "the title of $page does not name ${header:-a header}"
    if [[ $family != "$library" ]]; then
        sources=(src/*/"$family.cpp")
        [[ -f ${sources[0]} ]] || { fail "$page has no ${sources[0]}" && continue; }
        group=$(basename "$(dirname "${sources[0]}")")
        require "tests/$group/${family}_test.cpp" "$page"
        check_kind "$family" 'Board test' board/tests/"$group"/*_board_test.cpp
        check_kind "$family" Benchmark bench/"$group"/*_bench.cpp
    else
        [[ -n $(compgen -G "$library/src/*.cpp") && -n $(compgen -G "tests/$library/*_test.cpp") &&
            -n $(compgen -G "bench/$library/*_bench.cpp") ]] || fail "a source, a test or a benchmark of $library is missing"
        check_kind "$family" 'Board test'
    fi
    check_kind "$family" Example examples/*.c
    check_kind "$family" 'Tool command' "${command_sources[@]}"
done

# ---- files

for header in include/norv_*.h; do
    case $header in
        include/norv_io_linux.h | include/norv_flash_types.h) continue ;; # all of them; what two families share
    esac
    grep --quiet "^# .*\`$(basename "$header")\`" docs/families/*.md || fail "$header has no page in docs/families/"
done

for file in "${files[@]}"; do
    case $file in
        src/core/* | tests/support/* | tests/docs/* | tests/"$library"/* | board/tests/machines/* | bench/"$library"/*) continue ;;
        tests/cpp/* | bench/cpp/*) continue ;; # the headers of C++
    esac
    [[ -n ${owners[$file]} ]] || grep --quiet --line-regexp --fixed-strings "$file" <<<"$others" ||
        fail "the name of $file is not that of a family"
done

for source in "${command_sources[@]}"; do
    name=$(basename "$source" .cpp)
    require "tests/norv/$name.bats" "$source"
    require "board/tests/norv/$name.bats" "$source"
done

# ---- pages

for page in docs/families/*.md; do
    if [[ $(grep -xF "$sections" "$page") != "$sections" ]]; then
        fail "$page has not these sections once each, in this order:" && echo "$sections"
    fi
    for language in c cpp; do
        sed -n '/^## Example$/,/^## /p' "$page" | grep --quiet --line-regexp "\`\`\`$language" ||
            fail "$page has no example in the language $language"
    done
    if sed -n '/^## Statuses$/,/^## /p' "$page" | grep -E '\| *\|$'; then
        fail "$page names a status without saying what to do about it"
    fi
done
exit "$failed"
