// SPDX-License-Identifier: MIT
#include "planted.hpp"

#include <cstdio>

#define PLANTED_READ 1
#define PLANTED_WRITE 2
#define PLANTED_TWICE(value) ((value) + (value))

static_assert(sizeof(int) == 4 && 1 + 1 == 2, "nothing in here is a mutant, nor are its \"strings\"");

int planted_sum(int first, int second) {
    int sum = first;
    sum += second;
    return sum;
}

// No test calls it.
int planted_untested(int value) {
    return PLANTED_TWICE(value) - 7;
}

// Of an unsigned number, == 0 and <= 0 are the same.
bool planted_is_small(unsigned value) {
    if (value == 0) {
        return false;
    }
    return value < 10;
}

unsigned planted_steps(unsigned left) {
    volatile unsigned rest = left;
    return count_down(rest);
}

int planted_flags(bool both) {
    if (both) {
        return PLANTED_READ | PLANTED_WRITE;
    }
    return PLANTED_READ;
}

void planted_text(char* buffer, unsigned number) {
    char text[8] = {};
    snprintf(text, sizeof text, "n=%u", number);
    for (const char character : text) {
        *buffer++ = character;
    }
}

#ifndef NORV_TRY
#define NORV_TRY(expression)             \
    do {                                 \
        const int result = (expression); \
        if (result != 0) {               \
            return result;               \
        }                                \
    } while (false)
#endif

int planted_steps_of(int value) {
    NORV_TRY(planted_sum(value, 3));
    const int flags = planted_flags(value < -3) & PLANTED_WRITE;
    NORV_TRY(flags);
    return 4;
}
