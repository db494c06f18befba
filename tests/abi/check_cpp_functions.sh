#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that the C++ interface reaches every exported function:
#   check_cpp_functions.sh headers          a header below include/norv/ names it
#   check_cpp_functions.sh tests OBJECT...  an object file of the tests of these headers refers to it (NM: the nm to use)
# or that not_in_cpp.txt says why not.
set -euo pipefail
check=$1
shift
here=$(cd "$(dirname "$0")" && pwd)
root=$here/../..

failed=0
# report WHAT: the names on standard input are failures.
report() {
    local name
    while read -r name; do
        echo "FAILED: $name $1" && failed=1
    done
}

exported=$(grep -hoE '^ +[a-z_0-9]+;' "$root/base/norv_base.map" "$root/src/norv_io_linux.map" | tr -d ' ;' | sort)
case $check in
    # The words of the headers without their comments: a comment calls nothing.
    headers)
        reached=$(sed -e 's,//.*,,' -e 's,/\*.*\*/,,g' "$root"/include/norv/*.hpp | sed '/\/\*/,/\*\//d' |
            grep -oE '\b[a-z_0-9]+\b' | sort -u)
        ;;
    # The names that the object files leave to the libraries.
    tests)
        reached=$("${NM:-nm}" --undefined-only --format=posix "$@" | sed -nE 's/^([a-z_0-9]+) U.*/\1/p' | sort -u)
        ;;
esac
# One line each: the name, then the reason.
exceptions=$(grep -v '^#' "$here/not_in_cpp.txt" || true)
excepted=$(cut -d ' ' -f 1 <<<"$exceptions" | sort)

report "is not reached by the $check of the C++ interface, and not_in_cpp.txt has no reason" \
    < <(comm -23 <(echo "$exported") <(sort -u <(echo "$reached") <(echo "$excepted")))
report "is in not_in_cpp.txt but not exported" < <(comm -23 <(echo "$excepted") <(echo "$exported"))
report 'is in not_in_cpp.txt twice' < <(uniq -d <<<"$excepted")
report 'is in not_in_cpp.txt without a reason' < <(grep -vE '^[a-z_0-9]+ +[^ ]' <<<"$exceptions" || true)
if [[ $check == headers ]]; then
    report 'is in not_in_cpp.txt but reached by a header' < <(comm -12 <(echo "$excepted") <(echo "$reached"))
fi
exit "$failed"
