// SPDX-License-Identifier: MIT
#include "support/kernel_file.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

int standing_in = -1;  // the memory file that holds the content; -1: files are what they are

template <typename function>
function* real(const char* name) {
    return reinterpret_cast<function*>(dlsym(RTLD_NEXT, name));
}

// Each opening has a position of its own.
int open_content() {
    static const auto real_open = real<int(const char*, int, ...)>("open");
    return real_open(("/proc/self/fd/" + std::to_string(standing_in)).c_str(), O_RDWR | O_CLOEXEC);
}

}  // namespace

namespace fuzz {

kernel_file::kernel_file(const uint8_t* data, size_t size) {
    const int content = memfd_create("content", MFD_CLOEXEC);
    require(content >= 0 && write(content, data, size) == static_cast<ssize_t>(size));
    standing_in = content;
}

kernel_file::~kernel_file() {
    close(standing_in);
    standing_in = -1;
}

}  // namespace fuzz

extern "C" {

int open(const char* path, int flags, ...) {
    static const auto real_open = real<int(const char*, int, ...)>("open");
    va_list values;
    va_start(values, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
    va_end(values);
    return standing_in < 0 ? real_open(path, flags, mode) : open_content();
}

FILE* fopen(const char* path, const char* mode) {
    static const auto real_fopen = real<FILE*(const char*, const char*)>("fopen");
    return standing_in < 0 ? real_fopen(path, mode) : fdopen(open_content(), mode);
}

}  // extern "C"
