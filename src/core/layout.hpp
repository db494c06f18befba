// Record layouts: callers compile them in, so they are pinned beside the code that uses them.
#pragma once

#include <cstddef>

// Holds when `field` comes next after `previous`, without more room between them than its type asks for. Says
// nothing about the size of the types themselves, which may be the base library's.
#define NORV_FOLLOWS(record, previous, field)                                                      \
    (offsetof(record, field) == (offsetof(record, previous) + sizeof(decltype(record::previous)) + \
                                 alignof(decltype(record::field)) - 1) /                           \
                                    alignof(decltype(record::field)) * alignof(decltype(record::field)))
