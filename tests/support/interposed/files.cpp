// SPDX-License-Identifier: MIT
// The calls on files and their descriptors' bytes that reach the kernel double. The library under test calls these
// ordinary names, and the dynamic linker finds them here first.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::answer;
using norv::test::byte_transfer;
using norv::test::byte_transfer_at;
using norv::test::bytes_of;
using norv::test::call;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::opening;
using norv::test::outside_the_double;

bool is_attribute(const std::string& path) {
    return path.starts_with("/sys/");
}

// A file of sysfs takes a write as one new value, whatever the file position is.
long store_attribute(kernel_state& kernel, int descriptor, const std::string& path, const void* bytes,
                     size_t size) {
    const std::string text = bytes_of(bytes, static_cast<long>(size));
    const auto reaction = kernel.reactions.find(path);
    if (reaction != kernel.reactions.end()) {
        const int refusal = reaction->second(text);
        if (refusal != 0) {
            return -refusal;
        }
    }
    const size_t length = strnlen(text.data(), size);
    if (ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, text.data(), length, 0) != static_cast<ssize_t>(length)) {
        return -errno;
    }
    lseek(descriptor, static_cast<off_t>(size), SEEK_CUR);
    return static_cast<long>(size);
}

int open_in(kernel_state& kernel, const std::string& path, int flags, mode_t mode) {
    const outside_the_double guard;
    const auto model = kernel.models.find(path);
    if (model == kernel.models.end()) {
        const int descriptor = REAL(open)(kernel.place_of(path).c_str(), flags & ~O_TRUNC, mode);
        kernel.opened(descriptor, path);
        return descriptor;
    }
    const long refusal = model->second->open(flags);
    if (refusal < 0) {
        return answer(static_cast<int>(refusal));
    }
    return norv::test::open_model(kernel, path, model->second);
}

long real_move(bool write, int descriptor, void* buffer, size_t size) {
    return write ? REAL(write)(descriptor, buffer, size) : REAL(read)(descriptor, buffer, size);
}

// How a read or write is carried out: by a model, as an attribute, or by the real kernel.
long move_in(kernel_state& kernel, open_file& file, bool write, int descriptor, void* buffer, size_t size) {
    const outside_the_double guard;
    if (file.model != nullptr) {
        const long count = write ? file.model->write(buffer, size, file.offset)
                                 : file.model->read(buffer, size, file.offset);
        file.offset += count > 0 ? count : 0;
        return answer(count);
    }
    if (write && is_attribute(file.path)) {
        return answer(store_attribute(kernel, descriptor, file.path, buffer, size));
    }
    return real_move(write, descriptor, buffer, size);
}

long move(const char* name, bool write, int descriptor, void* buffer, size_t size) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return real_move(write, descriptor, buffer, size);
    }
    std::unique_lock lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    const off_t position = file != nullptr ? file->offset : 0;
    call made{name, file != nullptr ? file->path : "", byte_transfer{position, ""}};
    if (kernel->strikes(made)) {
        return -1;
    }
    size = kernel->shortened(made, size);
    if (file == nullptr) {
        lock.unlock();  // it may block, and is not a file of the board
        return real_move(write, descriptor, buffer, size);
    }
    made.result = move_in(*kernel, *file, write, descriptor, buffer, size);
    made.details = byte_transfer{position, bytes_of(buffer, write ? static_cast<long>(size) : made.result)};
    kernel->record(made);
    return made.result;
}

long real_move_at(bool write, int descriptor, void* buffer, size_t size, off_t offset) {
    return write ? REAL(pwrite)(descriptor, buffer, size, offset)
                 : REAL(pread)(descriptor, buffer, size, offset);
}

// A read or write at an offset. A model does not notice the difference.
long move_at(const char* name, bool write, int descriptor, void* buffer, size_t size, off_t offset) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return real_move_at(write, descriptor, buffer, size, offset);
    }
    const std::lock_guard lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    call made{name, file != nullptr ? file->path : "", byte_transfer_at{offset, ""}};
    if (kernel->strikes(made)) {
        made.result = -1;
    } else {
        size = kernel->shortened(made, size);
        const outside_the_double guard;
        if (file == nullptr || file->model == nullptr) {
            made.result = real_move_at(write, descriptor, buffer, size, offset);
        } else {
            made.result = answer(write ? file->model->write(buffer, size, offset)
                                       : file->model->read(buffer, size, offset));
        }
    }
    made.details = byte_transfer_at{offset, bytes_of(buffer, write ? static_cast<long>(size) : made.result)};
    kernel->record(made);
    return made.result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list values;
    va_start(values, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(values, int) : 0);
    va_end(values);
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(open)(path, flags, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"open", path, opening{flags}};
    made.result = kernel->strikes(made) ? -1 : open_in(*kernel, path, flags, mode);
    kernel->record(made);
    return static_cast<int>(made.result);
}

int close(int descriptor) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(close)(descriptor);
    }
    const std::lock_guard lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    call made{"close"};
    if (file != nullptr) {
        made.path = file->path;
        if (file->model != nullptr) {
            const outside_the_double guard;
            file->model->close();
        }
        kernel->descriptors.erase(descriptor);
    }
    const int closed = REAL(close)(descriptor);
    if (closed != 0 && errno == EBADF) {
        ADD_FAILURE() << "descriptor " << descriptor << " was closed, but is not open";
    }
    // A failing close has still released the descriptor.
    made.result = kernel->strikes(made) ? -1 : closed;
    kernel->record(made);
    return static_cast<int>(made.result);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
    return move("read", false, descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
    return move("write", true, descriptor, const_cast<void*>(buffer), size);
}

ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    return move_at("pread", false, descriptor, buffer, size, offset);
}

ssize_t pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
    return move_at("pwrite", true, descriptor, const_cast<void*>(buffer), size, offset);
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        open_file* file = kernel->find(descriptor);
        if (kernel->strikes(call{"lseek", file != nullptr ? file->path : ""})) {
            return -1;
        }
        if (file != nullptr && file->model != nullptr) {
            file->offset = whence == SEEK_SET ? offset : file->offset + offset;
            return file->offset;
        }
    }
    return REAL(lseek)(descriptor, offset, whence);
}

}  // extern "C"
