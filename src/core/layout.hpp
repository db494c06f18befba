// SPDX-License-Identifier: MIT
// Record layouts: they are part of the ABI, so each is asserted in one line next to the code that uses the record.
//
//     NORV_LAYOUT(norv_cpu_usage_t, NORV_32_64(16, 24), file, usage, last_idle, last_total);
//     NORV_OFFSETS(norv_spi_config_t, 12, mode, 0, max_speed_hz, 4, bits_per_word, 8, lsb_first, 9);
//
// The first states the size and the order of the fields, the second the size and the offset of each field. The size of a
// record that contains records of the base library is not asserted, because another base library has other records:
// their lines have its sizeof in place of a number.
#pragma once

#include <cstddef>

// The first field is at the record's start, and each other follows the one before it with no more padding than its
// type requires.
#define NORV_LAYOUT(record, size, first, ...)                                   \
    static_assert(sizeof(record) == (size) && NORV_AT(record, first, 0) &&      \
                      NORV_EXPAND(NORV_ALL_FOLLOW(record, first, __VA_ARGS__)), \
                  "the layout of " #record)

#define NORV_OFFSETS(record, size, ...)                                                      \
    static_assert(sizeof(record) == (size) && NORV_EXPAND(NORV_ALL_AT(record, __VA_ARGS__)), \
                  "the layout of " #record)

// A number for 32-bit processors, and one for 64-bit processors.
#define NORV_32_64(narrow, wide) (sizeof(void*) == 8 ? (wide) : (narrow))

#define NORV_FOLLOWS(record, previous, field)                                                      \
    (offsetof(record, field) == (offsetof(record, previous) + sizeof(decltype(record::previous)) + \
                                 alignof(decltype(record::field)) - 1) /                           \
                                    alignof(decltype(record::field)) * alignof(decltype(record::field)))
#define NORV_AT(record, field, offset) (offsetof(record, field) == (offset))

// A macro does not expand itself: each of these leaves the name of the next step, and NORV_EXPAND takes the steps, up
// to 27 of them.
#define NORV_ALL_FOLLOW(record, previous, field, ...) \
    NORV_FOLLOWS(record, previous, field)             \
    __VA_OPT__(&&NORV_REST_FOLLOWS NORV_PARENTHESES(record, field, __VA_ARGS__))
#define NORV_REST_FOLLOWS() NORV_ALL_FOLLOW
#define NORV_ALL_AT(record, field, offset, ...) \
    NORV_AT(record, field, offset) __VA_OPT__(&&NORV_REST_AT NORV_PARENTHESES(record, __VA_ARGS__))
#define NORV_REST_AT() NORV_ALL_AT
#define NORV_PARENTHESES ()
#define NORV_EXPAND(...) NORV_EXPAND_9(NORV_EXPAND_9(NORV_EXPAND_9(__VA_ARGS__)))
#define NORV_EXPAND_9(...) NORV_EXPAND_3(NORV_EXPAND_3(NORV_EXPAND_3(__VA_ARGS__)))
#define NORV_EXPAND_3(...) NORV_EXPAND_1(NORV_EXPAND_1(NORV_EXPAND_1(__VA_ARGS__)))
#define NORV_EXPAND_1(...) __VA_ARGS__
