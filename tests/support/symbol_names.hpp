// SPDX-License-Identifier: MIT
// The names by which the C library exports its calls. Where a 32-bit processor has 64-bit file offsets and
// time, the C library's headers give some calls another name, in what the library under test calls and in
// what this program defines: only who looks one up by name has to know it.
#pragma once

#include <features.h>

#include <array>
#include <string_view>

namespace norv::test {

struct renamed_call {
    std::string_view name;
    const char* symbol;
};

#if defined(__USE_FILE_OFFSET64) && __SIZEOF_POINTER__ == 4
constexpr std::array renamed_calls = {
    renamed_call{"clock_gettime", "__clock_gettime64"},
    renamed_call{"fcntl", "__fcntl_time64"},
    renamed_call{"fopen", "fopen64"},
    renamed_call{"fstat", "__fstat64_time64"},
    renamed_call{"ioctl", "__ioctl_time64"},
    renamed_call{"lseek", "lseek64"},
    renamed_call{"lstat", "__lstat64_time64"},
    renamed_call{"mmap", "mmap64"},
    renamed_call{"open", "open64"},
    renamed_call{"pread", "pread64"},
    renamed_call{"pwrite", "pwrite64"},
    renamed_call{"readdir", "readdir64"},
    renamed_call{"scandir", "scandir64"},
    renamed_call{"setsockopt", "__setsockopt64"},
    renamed_call{"stat", "__stat64_time64"},
    renamed_call{"timerfd_settime", "__timerfd_settime64"},
};
#else
constexpr std::array<renamed_call, 0> renamed_calls = {};
#endif

constexpr const char* symbol_of(const char* name) {
    for (const auto& renamed : renamed_calls) {
        if (renamed.name == name) {
            return renamed.symbol;
        }
    }
    return name;
}

}  // namespace norv::test
