#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compiles the examples in the public headers: check_header_examples.sh CC. tests/docs/header_examples.h declares what they
# leave to the reader.
set -euo pipefail
cd "$(dirname "$0")/../.."

compiler=$1
warnings=(-Wall -Wextra -Werror -Wno-unused -Wno-unused-parameter)
failed=0

# The code of a header, as C. Code is indented by four, after an empty line, and continues until the next text. Code that
# defines a function is taken unchanged up to its end, statements make a function.
code_of() {
    awk '
        function finish() {
            if (code == "") return
            if (has_functions) print code
            else printf "void example%d(void)\n{\n%s}\n", ++count, code
            code = ""
            has_functions = 0
        }
        /^ \*     / && (code != "" || previous == " *") {
            code = code substr($0, 8) "\n"
            if ($0 == " *     {") has_functions = 1
            if ($0 == " *     }" && has_functions) finish()
        }
        !/^ \*     / && $0 != " *" { finish() }
        { previous = $0 }' "$1"
}

for header in base/include/norv_*.h include/norv_*.h; do
    if ! { echo '#include "tests/docs/header_examples.h"' && code_of "$header"; } |
        "$compiler" -xc -std=gnu11 "${warnings[@]}" -Iinclude -Ibase/include -I. -fsyntax-only -; then
        echo "FAILED: an example in $header does not compile"
        failed=1
    fi
done
exit "$failed"
