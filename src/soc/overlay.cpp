// SPDX-License-Identifier: MIT
// Device-tree overlays through configfs.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_dt.h"

namespace {

using norv::status_of;

// The path of the overlay's directory in configfs. quirk 6: truncated silently.
class overlay_directory {
  public:
    explicit overlay_directory(const char* name)
        : valid_(name != nullptr &&
                 snprintf(path_, sizeof path_, "/sys/kernel/config/device-tree/overlays/%s", name) >= 0) {}

    bool valid() const { return valid_; }
    const char* path() const { return path_; }

  private:
    char path_[256];
    bool valid_;
};

uint32_t read_applied(const char* name, bool* applied) {
    char text[256];
    // The last byte is dropped: quirk 5.
    const uint32_t status = norv::read_text(text, "/sys/kernel/config/device-tree/overlays/%s/status", name);
    *applied = status == NORV_STATUS_OK && strcmp(text, "applied") == 0;
    return status;
}

// Copies the overlay's file into the dtbo attribute: one read, one write.
uint32_t copy_file(const char* path, const overlay_directory& directory) {
    norv::scoped_descriptor file;
    *file.out() = open(path, O_RDONLY | O_CLOEXEC);
    uint32_t status = status_of(file.get());
    if (status != NORV_STATUS_OK) {
        return status;
    }
    struct stat found {};
    status = status_of(fstat(file.get(), &found));
    if (status != NORV_STATUS_OK) {
        return status;
    }
    const auto size = static_cast<size_t>(found.st_size);
    const norv::scoped_memory content(norv_malloc(size));
    if (content.get() == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const int64_t count = read(file.get(), content.get(), size);
    status = status_of(count);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    norv::close_descriptor(*file.out());
    // quirk 1: a failed read whose errno has the status 0 has read nothing.
    auto length = static_cast<uint32_t>(std::max(count, int64_t{0}));
    return norv_write_device(content.get(), &length, "%s/dtbo", directory.path());
}

}  // namespace

uint32_t norv_dt_load_overlay(const char* name, const char* path) {
    const overlay_directory directory(name);
    if (!directory.valid() || path == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 73: an existing directory is a failure because mkdir(2) says so.
    uint32_t status = status_of(mkdir(directory.path(), 0777));
    if (status == NORV_STATUS_OK) {
        // quirk 72: the directory stays after a failure, so that the kernel's view can be inspected.
        status = copy_file(path, directory);
    }
    if (status != NORV_STATUS_OK) {
        return status;
    }
    // The kernel accepts any file; only the status shows whether it was applied.
    bool applied = false;
    status = read_applied(name, &applied);
    return status == NORV_STATUS_OK && !applied ? NORV_STATUS_NOT_APPLIED : status;
}

uint32_t norv_dt_has_overlay(const char* name, bool* applied) {
    if (name == nullptr || applied == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 74: an overlay whose status cannot be read is not applied.
    read_applied(name, applied);
    return NORV_STATUS_OK;
}

uint32_t norv_dt_unload_overlay(const char* name) {
    const overlay_directory directory(name);
    return directory.valid() ? status_of(rmdir(directory.path())) : NORV_STATUS_INVALID_ARG;
}
