// SPDX-License-Identifier: MIT
// Listing directories.
#pragma once

#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "core/status.hpp"

namespace norv {

// The entries of a directory in alphabetical order, released at the end of the scope.
class directory_entries {
  public:
    // With a filter, only those for which it does not return 0.
    explicit directory_entries(const char* path, int (*filter)(const dirent*) = nullptr)
        : found_(scandir(path, &entries_, filter, alphasort)), status_(status_of(found_)) {}
    ~directory_entries() {
        for (const dirent* entry : *this) {
            // scandir(3) allocates them with the C library's malloc.
            free(const_cast<dirent*>(entry));
        }
        free(entries_);
    }
    directory_entries(const directory_entries&) = delete;
    directory_entries& operator=(const directory_entries&) = delete;

    bool listed() const { return found_ >= 0; }
    int count() const { return std::max(found_, 0); }
    // The errno status if the directory could not be listed.
    uint32_t status() const { return status_; }
    dirent* const* begin() const { return entries_; }
    dirent* const* end() const { return entries_ + count(); }

  private:
    dirent** entries_ = nullptr;
    int found_;  // negative if the directory could not be listed
    uint32_t status_;
};

}  // namespace norv
