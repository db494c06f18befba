// SPDX-License-Identifier: MIT
// Record layouts: they are part of the ABI, so they are asserted next to the code that uses them.
#pragma once

#include <cstddef>

// True if `field` follows `previous` with no more padding than its type requires. The sizes of the types are
// not compared, because they may be those of another base library.
#define NORV_FOLLOWS(record, previous, field)                                                      \
    (offsetof(record, field) == (offsetof(record, previous) + sizeof(decltype(record::previous)) + \
                                 alignof(decltype(record::field)) - 1) /                           \
                                    alignof(decltype(record::field)) * alignof(decltype(record::field)))
