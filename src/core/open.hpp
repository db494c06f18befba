// SPDX-License-Identifier: MIT
// Opening a device node with a path from the caller.
#pragma once

#include <cstdint>

#include "norv_file.h"

namespace norv {

// quirk 61, quirk 125: the path is the format, so "%%" in it is one '%' of the file's name.
inline uint32_t open_path(uint32_t flags, int32_t* descriptor, const char* path) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    return norv_open_device(flags, descriptor, path);
#pragma GCC diagnostic pop
}

}  // namespace norv
