// SPDX-License-Identifier: MIT
// The calls on directories, on the size of a file and on the text of a path that reach the kernel double.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>

#include "support/interposition.hpp"
#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::listing;
using norv::test::open_file;
using norv::test::outside_the_double;
using norv::test::pass_path;
using kernel_state = norv::test::kernel_double::state;

int make_directory_in(kernel_state& kernel, const char* path, mode_t mode) {
    if (kernel.strikes("mkdir", path)) {
        return -1;
    }
    const outside_the_double guard;
    const int result = REAL(mkdir)(kernel.place_of(path).c_str(), mode);
    const auto* reaction = kernel.reaction_to_directory(path);
    if (result == 0 && reaction != nullptr) {
        (*reaction)(path);
    }
    return result;
}

// A directory that the kernel filled goes with what is in it.
int remove_directory_in(const kernel_state& kernel, const char* path, const char* place) {
    const outside_the_double guard;
    if (kernel.reaction_to_directory(path) != nullptr) {
        std::error_code missing;
        for (const auto& file : std::filesystem::directory_iterator(place, missing)) {
            std::filesystem::remove(file);
        }
    }
    return REAL(rmdir)(place);
}

// A directory lists its entries in the order in which the test made them, what it did not make last: every
// file system has an order of its own, and a test that passes with one of them proves little.
listing list_entries(const kernel_state& kernel, const std::string& path, DIR* directory) {
    listing found;
    while (const dirent* entry = REAL(readdir)(directory)) {
        found.entries.push_back(*entry);
    }
    const auto turn = [&](const dirent& entry) {
        const auto made = kernel.making_order.find(path + "/" + entry.d_name);
        return made == kernel.making_order.end() ? SIZE_MAX : made->second;
    };
    std::stable_sort(found.entries.begin(), found.entries.end(),
                     [&](const dirent& first, const dirent& second) { return turn(first) < turn(second); });
    return found;
}

}  // namespace

extern "C" {

// The journal keeps the mode as the flags.
int mkdir(const char* path, mode_t mode) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(mkdir)(path, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = "mkdir";
    made.path = path;
    made.flags = static_cast<int>(mode);
    made.result = make_directory_in(*kernel, path, mode);
    kernel->record(made);
    return static_cast<int>(made.result);
}

int rmdir(const char* path) noexcept {
    return pass_path("rmdir", path, -1, [&](const char* place) {
        const kernel_state* kernel = active_kernel();
        return kernel == nullptr ? REAL(rmdir)(place) : remove_directory_in(*kernel, path, place);
    });
}

// Programs ask about all sorts of descriptors: only those of the board can fail.
int fstat(int descriptor, struct stat* found) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const open_file* file = kernel->find(descriptor);
        if (file != nullptr && kernel->strikes("fstat", file->path)) {
            return -1;
        }
    }
    return REAL(fstat)(descriptor, found);
}

// Everybody formats: it fails only for a test that names it.
int vsnprintf(char* text, size_t size, const char* format, va_list values) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->planned && kernel->planned->name == "vsnprintf" && kernel->strikes("vsnprintf")) {
            return -1;
        }
    }
    return REAL(vsnprintf)(text, size, format, values);
}

DIR* opendir(const char* path) {
    return pass_path("opendir", path, static_cast<DIR*>(nullptr), [&](const char* place) {
        DIR* directory = REAL(opendir)(place);
        kernel_state* kernel = active_kernel();
        if (directory != nullptr && kernel != nullptr && path != std::string(place)) {
            const outside_the_double guard;
            kernel->opened(dirfd(directory), path);
            kernel->listings[directory] = list_entries(*kernel, path, directory);
        }
        return directory;
    });
}

struct dirent* readdir(DIR* directory) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(readdir)(directory);
    }
    const std::lock_guard lock(kernel->mutex);
    const auto found = kernel->listings.find(directory);
    if (found == kernel->listings.end()) {
        return REAL(readdir)(directory);
    }
    listing& list = found->second;
    const bool at_end = list.next == list.entries.size();
    return at_end || kernel->strikes("readdir") ? nullptr : &list.entries[list.next++];
}

int closedir(DIR* directory) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const outside_the_double guard;
        kernel->descriptors.erase(dirfd(directory));
        kernel->listings.erase(directory);
    }
    return REAL(closedir)(directory);
}

int lstat(const char* path, struct stat* found) noexcept {
    return pass_path("lstat", path, -1, [&](const char* place) { return REAL(lstat)(place, found); });
}

}  // extern "C"
