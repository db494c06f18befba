#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compiles the examples in the C++ headers: check_cpp_header_examples.sh CXX. tests/docs/cpp_header_examples.hpp declares
# what they leave to the reader. A status that an example drops is an error here, too.
set -euo pipefail
cd "$(dirname "$0")/../.."

compiler=$1
warnings=(-Wall -Wextra -Werror -Wno-unused-variable -Wno-unused-but-set-variable -Wno-unused-parameter -Wno-unused-function)

# The code of a header's first comment as one function, a coroutine if it waits, in a namespace of the header's own. A
# function that the code defines goes before that one. "..." stands for the reader's code.
code_of() {
    awk -v header="$1" '
        /^ \*     / {
            line = substr($0, 8)
            gsub(/^ *\.\.\.$|\.\.\. /, "", line)
            place = "#line " NR " \"" header "\"\n"
            if (line ~ /^norv::task<.*\{$/) in_function = 1
            if (in_function) functions = functions place line "\n"
            else code = code place line "\n"
            if (line ~ /^}/) in_function = 0
        }
        /\*\// { exit }
        END {
            if (code ~ /co_await/) printf "%snorv::task<norv::status> example() {\n%sco_return norv::ok;\n}\n", functions, code
            else printf "%snorv::status example() {\n%sreturn norv::ok;\n}\n", functions, code
        }' "$1"
}

{
    echo '#include "tests/docs/cpp_header_examples.hpp"'
    for header in include/norv.hpp include/norv/*.hpp; do
        printf 'namespace { namespace example_of_%s {\n' "$(basename "$header" .hpp)"
        code_of "$header"
        echo '}}'
    done
} | "$compiler" -xc++ -std=c++20 "${warnings[@]}" -Iinclude -Ibase/include -I. -fsyntax-only - ||
    { echo 'FAILED: an example in a C++ header does not compile' && exit 1; }
