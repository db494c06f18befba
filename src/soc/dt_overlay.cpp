// SPDX-License-Identifier: MIT
// Device-tree overlays through configfs.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_dt.h"

namespace {

using norv::status_of;

// The overlay's directory in configfs.
norv::file_path directory_of(const char* name) {
    if (name == nullptr) {
        return {};
    }
    return {"/sys/kernel/config/device-tree/overlays/%s", name};
}

uint32_t read_applied(const char* name, bool* applied) {
    char text[256];
    const uint32_t status = norv::read_text({"/sys/kernel/config/device-tree/overlays/%s/status", name}, text,
                                            norv::last_byte::dropped);
    *applied = status == NORV_STATUS_OK && strcmp(text, "applied") == 0;
    return status;
}

// Copies the overlay's file into the dtbo attribute: one read, one write.
uint32_t copy_file(const char* path, const norv::file_path& directory) {
    norv::scoped_descriptor file;
    *file.out() = open(path, O_RDONLY | O_CLOEXEC);
    NORV_TRY(status_of(file.get()));
    struct stat found {};
    NORV_TRY(status_of(fstat(file.get(), &found)));
    const auto size = static_cast<size_t>(found.st_size);
    const norv::scoped_memory content(norv_malloc(size));
    if (content.get() == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const int64_t count = read(file.get(), content.get(), size);
    NORV_TRY(status_of(count));
    norv::close_descriptor(*file.out());
    // quirk 1: a failed read whose errno has the status 0 has read nothing.
    auto length = static_cast<uint32_t>(std::max(count, int64_t{0}));
    return norv::write_bytes({"%s/dtbo", directory.text()}, content.get(), &length);
}

}  // namespace

uint32_t norv_dt_load_overlay(const char* name, const char* path) {
    const norv::file_path directory = directory_of(name);
    if (!directory.valid() || path == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 73: an existing directory is a failure because mkdir(2) says so.
    NORV_TRY(status_of(mkdir(directory.text(), 0777)));
    // quirk 72: the directory stays after a failure, so that the kernel's view can be inspected.
    NORV_TRY(copy_file(path, directory));
    // The kernel accepts any file; only the status shows whether it was applied.
    bool applied = false;
    NORV_TRY(read_applied(name, &applied));
    return applied ? NORV_STATUS_OK : NORV_STATUS_NOT_APPLIED;
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
    const norv::file_path directory = directory_of(name);
    return directory.valid() ? status_of(rmdir(directory.text())) : NORV_STATUS_INVALID_ARG;
}
