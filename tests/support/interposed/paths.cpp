// SPDX-License-Identifier: MIT
// The calls on names and properties of files that reach the kernel double. What the real kernel reports is
// returned with the names that the board has.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::pass_path;

}  // namespace

extern "C" {

int access(const char* path, int mode) noexcept {
    return pass_path("access", path, -1, [&](const char* place) { return REAL(access)(place, mode); });
}

int stat(const char* path, struct stat* found) noexcept {
    using stat_call = int (*)(const char*, struct stat*);
    static const auto real_stat =
        reinterpret_cast<stat_call>(dlsym(RTLD_NEXT, norv::test::symbol_of("stat")));
    return pass_path("stat", path, -1, [&](const char* place) { return real_stat(place, found); });
}

int lstat(const char* path, struct stat* found) noexcept {
    return pass_path("lstat", path, -1, [&](const char* place) { return REAL(lstat)(place, found); });
}

// Programs call it on all sorts of descriptors: only those of the board can fail.
int fstat(int descriptor, struct stat* found) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const open_file* file = kernel->find(descriptor);
        if (file != nullptr && kernel->strikes(call{"fstat", file->path})) {
            return -1;
        }
    }
    return REAL(fstat)(descriptor, found);
}

int remove(const char* path) noexcept {
    using remove_call = int (*)(const char*);
    static const auto real_remove = reinterpret_cast<remove_call>(dlsym(RTLD_NEXT, "remove"));
    return pass_path("remove", path, -1, [&](const char* place) { return real_remove(place); });
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    return pass_path("readlink", path, ssize_t{-1}, [&](const char* place) -> ssize_t {
        char target[PATH_MAX];
        const ssize_t length = REAL(readlink)(place, target, sizeof target);
        if (length < 0) {
            return length;
        }
        const std::string found(target, static_cast<size_t>(length));
        const kernel_state* kernel = active_kernel();
        return static_cast<ssize_t>((kernel != nullptr ? kernel->name_of(found) : found).copy(buffer, size));
    });
}

// What is allocated for the name is the caller's to release.
char* realpath(const char* path, char* resolved) noexcept {
    return pass_path("realpath", path, static_cast<char*>(nullptr), [&](const char* place) -> char* {
        char* found = REAL(realpath)(place, resolved);
        kernel_state* kernel = active_kernel();
        if (found == nullptr || kernel == nullptr) {
            return found;
        }
        // The name on the board is the shorter one: it fits.
        strcpy(found, kernel->name_of(found).c_str());
        if (resolved == nullptr) {
            kernel->allocations.insert(found);
        }
        return found;
    });
}

}  // extern "C"
