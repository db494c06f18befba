// Looking around in sysfs.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdio>

namespace norv {

// Tells whether the formatted path is a directory: this is how an exported line or channel shows itself. A
// path of `path_size` characters or more is cut.
template <size_t path_size = 256, typename... values>
bool is_directory(const char* format, values... path_values) {
    char path[path_size];
    snprintf(path, sizeof path, format, path_values...);
    struct stat found;
    return stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace norv
