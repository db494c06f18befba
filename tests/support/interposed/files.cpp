// SPDX-License-Identifier: MIT
// The calls on files and their descriptors' bytes that reach the kernel double. The library under test calls
// these ordinary names, and the dynamic linker finds them here first.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "support/interposition.hpp"
#include "support/thread_sanitizer.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::answer;
using norv::test::byte_transfer;
using norv::test::byte_transfer_at;
using norv::test::bytes_of;
using norv::test::call;
using norv::test::calling_out;
using norv::test::device;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::opening;
using norv::test::outside_the_double;
using norv::test::was_read;
using norv::test::was_written;

bool is_attribute(const std::string& path) {
    return path.starts_with("/sys/");
}

// A file of sysfs takes a write as one new value, whatever the file position is.
long store_attribute(kernel_state& kernel, int descriptor, const std::string& path, const void* bytes,
                     size_t size) {
    const outside_the_double guard;
    const std::string text = bytes_of(bytes, static_cast<long>(size));
    const auto reaction = kernel.reactions.find(path);
    if (reaction != kernel.reactions.end()) {
        const calling_out reacting;
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

long ask_to_open(device& model, int flags) {
    const calling_out guard;
    return model.open(flags);
}

int open_in(kernel_state& kernel, const std::string& path, int flags, mode_t mode) {
    const auto model = kernel.models.find(path);
    if (model == kernel.models.end()) {
        const int descriptor = REAL(open)(kernel.place_of(path).c_str(), flags & ~O_TRUNC, mode);
        kernel.opened(descriptor, path);
        return descriptor;
    }
    const long refusal = ask_to_open(*model->second, flags);
    if (refusal < 0) {
        return answer(static_cast<int>(refusal));
    }
    return norv::test::open_model(kernel, path, model->second);
}

long real_move(bool write, int descriptor, void* buffer, size_t size) {
    return write ? REAL(write)(descriptor, buffer, size) : REAL(read)(descriptor, buffer, size);
}

long move_of_model(device& model, bool write, void* buffer, size_t size, off_t offset) {
    const calling_out guard;
    return answer(write ? model.write(buffer, size, offset) : model.read(buffer, size, offset));
}

// How a read or write is carried out: by a model, as an attribute, as a file of the scratch tree, or by the
// real kernel. Only the last of these synchronises threads: the sanitizer would let every file do that.
long move_in(kernel_state& kernel, open_file& file, bool write, int descriptor, void* buffer, size_t size) {
    if (file.model != nullptr) {
        const long count = move_of_model(*file.model, write, buffer, size, file.offset);
        file.offset += count > 0 ? count : 0;
        return count;
    }
    if (write && is_attribute(file.path)) {
        return answer(store_attribute(kernel, descriptor, file.path, buffer, size));
    }
    if (kernel.place_of(file.path) != file.path) {
        return real_move(write, descriptor, buffer, size);
    }
    const calling_out guard;
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
        made.result = file == nullptr || file->model == nullptr
                          ? real_move_at(write, descriptor, buffer, size, offset)
                          : move_of_model(*file->model, write, buffer, size, offset);
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
            const calling_out guard;
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
    const long count = move("read", false, descriptor, buffer, size);
    was_written(buffer, count);
    return count;
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
    const long count = move("write", true, descriptor, const_cast<void*>(buffer), size);
    was_read(buffer, count);
    return count;
}

ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    const long count = move_at("pread", false, descriptor, buffer, size, offset);
    was_written(buffer, count);
    return count;
}

ssize_t pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
    const long count = move_at("pwrite", true, descriptor, const_cast<void*>(buffer), size, offset);
    was_read(buffer, count);
    return count;
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
