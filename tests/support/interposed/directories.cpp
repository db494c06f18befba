// SPDX-License-Identifier: MIT
// The calls on directories that reach the kernel double.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::calling_out;
using norv::test::directory_making;
using norv::test::kernel_state;
using norv::test::listing;
using norv::test::outside_the_double;
using norv::test::pass_path;

int make_directory_in(kernel_state& kernel, const char* path, mode_t mode) {
    const int result = REAL(mkdir)(kernel.place_of(path).c_str(), mode);
    const auto* reaction = kernel.reaction_to_directory(path);
    if (result == 0 && reaction != nullptr) {
        const calling_out guard;
        (*reaction)(path);
    }
    return result;
}

// A directory that the kernel filled is removed with what is in it.
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

int mkdir(const char* path, mode_t mode) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(mkdir)(path, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"mkdir", path, directory_making{mode}};
    made.result = kernel->strikes(made) ? -1 : make_directory_in(*kernel, path, mode);
    kernel->record(made);
    return static_cast<int>(made.result);
}

int rmdir(const char* path) noexcept {
    return pass_path("rmdir", path, -1, [&](const char* place) {
        const kernel_state* kernel = active_kernel();
        return kernel == nullptr ? REAL(rmdir)(place) : remove_directory_in(*kernel, path, place);
    });
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
    return at_end || kernel->strikes(call{"readdir", kernel->path_of(dirfd(directory))})
               ? nullptr
               : &list.entries[list.next++];
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

// The list and its entries are the caller's to release.
int scandir(const char* path, struct dirent*** entries, int (*filter)(const struct dirent*),
            int (*compare)(const struct dirent**, const struct dirent**)) {
    kernel_state* kernel = active_kernel();
    const int count = pass_path("scandir", path, -1, [&](const char* place) {
        const outside_the_double guard;
        if (kernel != nullptr && kernel->answers.contains("scandir")) {
            *entries = nullptr;
            return static_cast<int>(kernel->answers["scandir"]);
        }
        return REAL(scandir)(place, entries, filter, compare);
    });
    if (kernel != nullptr && count >= 0) {
        const std::lock_guard lock(kernel->mutex);
        kernel->allocations.insert(*entries);
        kernel->allocations.insert(*entries, *entries + count);
    }
    return count;
}

}  // extern "C"
