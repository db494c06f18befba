// SPDX-License-Identifier: MIT
#include <cstring>

#include "planted.hpp"

static bool text_is_right() {
    char text[8];
    planted_text(text, 4000000000);
    return strcmp(text, "n=40000") == 0;
}

int main() {
    const bool sums = planted_sum(2, 3) == 5;
    const bool sizes =
        !planted_is_small(0) && planted_is_small(1) && planted_is_small(9) && !planted_is_small(10);
    const bool steps = planted_steps(2) == 2 && planted_steps(9) == 3;
    const bool flags = planted_flags(true) == 3 && planted_flags(false) == 1;
    const bool words = planted_is_same("a", "a") && !planted_is_same("a", "b") &&
                       planted_is_before("a", "b") && !planted_is_before("b", "a") &&
                       !planted_is_before("a", "a") && planted_smaller(3, 2) == 2;
    const bool tried = planted_steps_of(2) == 5 && planted_steps_of(-3) == 4;
    return sums && tried && sizes && steps && flags && words && text_is_right() ? 0 : 1;
}
