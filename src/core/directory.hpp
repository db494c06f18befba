// Listing directories.
#pragma once

#include <dirent.h>

#include <cstdint>
#include <cstdlib>

#include "core/status.hpp"

namespace norv {

// The entries of a directory in alphabetical order, released at the end of the scope.
class directory_entries {
  public:
    explicit directory_entries(const char* path)
        : count_(scandir(path, &entries_, nullptr, alphasort)), status_(status_of(count_)) {}
    ~directory_entries() {
        for (const dirent* entry : *this) {
            // scandir(3) allocates them with the C library's malloc.
            free(const_cast<dirent*>(entry));
        }
        free(entries_);
    }
    directory_entries(const directory_entries&) = delete;
    directory_entries& operator=(const directory_entries&) = delete;

    bool listed() const { return count_ >= 0; }
    // The errno status when the directory could not be listed.
    uint32_t status() const { return status_; }
    dirent* const* begin() const { return entries_; }
    dirent* const* end() const { return entries_ + (listed() ? count_ : 0); }

  private:
    dirent** entries_ = nullptr;
    int count_;
    uint32_t status_;
};

}  // namespace norv
