// SPDX-License-Identifier: MIT
// Queries of sysfs.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdio>

namespace norv {

// Returns whether the formatted path is a directory: that of a line or channel exists while it is exported. A
// path of `path_size` characters or more is truncated.
template <size_t path_size = 256, typename... values>
bool is_directory(const char* format, values... path_values) {
    char path[path_size];
    snprintf(path, sizeof path, format, path_values...);
    struct stat found;
    return stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace norv
