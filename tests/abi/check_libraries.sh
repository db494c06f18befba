#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the two built libraries from outside: check_libraries.sh LIBNORV_IO_LINUX LIBNORV_BASE
#  - they export what their linker maps list, and the public headers declare exactly that;
#  - the hardware library exports every name of exported_names.txt and no other: programs are built against them, so a
#    name that went or changed, oddly spelled ones included, breaks these;
#  - they need nothing at run time but the C library and, the one, the other.
set -euo pipefail
cd "$(dirname "$0")/../.."

failed=0

fail() {
    printf 'FAILED: %s\n' "$*"
    failed=1
}

exported_names() { nm --dynamic --defined-only --format=posix "$1" | awk '$2 != "A" {print $1}' | sed 's/@.*//' | sort; }
mapped_names() { grep -oE '^ +[a-z_0-9]+;' "$1" | tr -d ' ;' | sort; }

# A declaration may go over several lines; its name is before the first parenthesis or bracket.
declared_names() {
    cat "$@" | grep -v "^#define" | tr '\n' ' ' | grep -oE 'NORV_API [^;({[]*[[({;]' | grep -oE '[a-z_0-9]+ *[[({;]$' | tr -d ' [({;' | sort
}

same() {
    local what=$1 difference
    difference=$(diff "$2" "$3") || fail "$what"$'\n'"$difference"
}

check_names() {
    local library=$1 map=$2
    shift 2
    same "exported names of $library are not those of $map" <(exported_names "$library") <(mapped_names "$map")
    same "names of $map are not those that the headers declare" <(mapped_names "$map") <(declared_names "$@")
}

check_needed() {
    local library=$1 allowed=$2 needed
    needed=$(readelf --dynamic "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p')
    for name in $needed; do
        [[ $name =~ ^($allowed)$ ]] || fail "$library needs $name"
    done
}

check_soname() {
    grep -qF "Library soname: [$2]" < <(readelf --dynamic "$1") || fail "the soname of $1 is not $2"
}

check_names "$1" src/norv_io_linux.map include/norv_*.h
same "exported names of $1 are not those of tests/abi/exported_names.txt" <(exported_names "$1") <(sort tests/abi/exported_names.txt)
check_names "$2" base/norv_base.map base/include/norv_*.h
# The loader belongs to the C library; on ARM it has the value that the stack protector compares with.
c_library='libc\.so\.6|ld-linux[a-z0-9-]*\.so\.[0-9]+'
check_needed "$1" "$c_library|libm\.so\.6|libnorv_base\.so\.0"
check_needed "$2" "$c_library"
check_soname "$1" libnorv_io_linux.so.0
check_soname "$2" libnorv_base.so.0
exit "$failed"
