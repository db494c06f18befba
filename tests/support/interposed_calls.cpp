// SPDX-License-Identifier: MIT
// The C-library and base-library calls that reach the kernel double. The library under test calls these
// ordinary names, and the dynamic linker finds them here first.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "norv_base.h"
#include "support/interposition.hpp"
#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::answer;
using norv::test::call;
using norv::test::create_descriptor;
using norv::test::device;
using norv::test::open_file;
using norv::test::outside_the_double;
using norv::test::pass;
using norv::test::pass_path;
using kernel_state = norv::test::kernel_double::state;

std::string text_of(const void* bytes, long count) {
    return count > 0 ? std::string(static_cast<const char*>(bytes), static_cast<size_t>(count))
                     : std::string();
}

bool is_attribute(const std::string& path) {
    return path.starts_with("/sys/");
}

// A file of sysfs takes a write as one new value, wherever the file position stands.
long store_attribute(kernel_state& kernel, int descriptor, const std::string& path, const void* bytes,
                     size_t size) {
    const std::string text = text_of(bytes, static_cast<long>(size));
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

template <typename allocation>
void* allocate(const char* name, allocation obtain) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return obtain();
    }
    const std::lock_guard lock(kernel->mutex);
    void* memory = kernel->strikes(name) ? nullptr : obtain();
    if (memory != nullptr) {
        kernel->allocations.insert(memory);
    }
    return memory;
}

int open_in(kernel_state& kernel, const char* path, int flags, mode_t mode) {
    if (kernel.strikes("open", path)) {
        return -1;
    }
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

// How a read or write is carried out: by a model, as an attribute, or by the real kernel.
long move_in(kernel_state& kernel, open_file* file, bool write, int descriptor, void* buffer, size_t size) {
    const outside_the_double guard;
    if (file != nullptr && file->model != nullptr) {
        const long count = write ? file->model->write(buffer, size, file->offset)
                                 : file->model->read(buffer, size, file->offset);
        file->offset += count > 0 ? count : 0;
        return answer(count);
    }
    if (write && file != nullptr && is_attribute(file->path)) {
        return answer(store_attribute(kernel, descriptor, file->path, buffer, size));
    }
    return write ? REAL(write)(descriptor, buffer, size) : REAL(read)(descriptor, buffer, size);
}

long move(const char* name, bool write, int descriptor, void* buffer, size_t size) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return write ? REAL(write)(descriptor, buffer, size) : REAL(read)(descriptor, buffer, size);
    }
    std::unique_lock lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    const std::string path = file != nullptr ? file->path : "";
    if (kernel->strikes(name, path)) {
        return -1;
    }
    size = kernel->shortened(name, size, path);
    if (file == nullptr) {
        lock.unlock();  // it may block, and is none of the board's business
        return write ? REAL(write)(descriptor, buffer, size) : REAL(read)(descriptor, buffer, size);
    }
    call made;
    made.name = name;
    made.path = path;
    made.result = move_in(*kernel, file, write, descriptor, buffer, size);
    made.bytes = text_of(buffer, write ? static_cast<long>(size) : made.result);
    kernel->record(made);
    return made.result;
}

long real_move_at(bool write, int descriptor, void* buffer, size_t size, off_t offset) {
    return write ? REAL(pwrite)(descriptor, buffer, size, offset)
                 : REAL(pread)(descriptor, buffer, size, offset);
}

// A read or write at an offset, which the journal keeps as the request. A model does not notice the
// difference.
long move_at(const char* name, bool write, int descriptor, void* buffer, size_t size, off_t offset) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return real_move_at(write, descriptor, buffer, size, offset);
    }
    const std::lock_guard lock(kernel->mutex);
    open_file* file = kernel->find(descriptor);
    call made;
    made.name = name;
    made.path = file != nullptr ? file->path : "";
    made.request = static_cast<unsigned long>(offset);
    if (kernel->strikes(name, made.path)) {
        made.result = -1;
    } else {
        size = kernel->shortened(name, size, made.path);
        const outside_the_double guard;
        if (file == nullptr || file->model == nullptr) {
            made.result = real_move_at(write, descriptor, buffer, size, offset);
        } else {
            made.result = answer(write ? file->model->write(buffer, size, offset)
                                       : file->model->read(buffer, size, offset));
        }
    }
    made.bytes = text_of(buffer, write ? static_cast<long>(size) : made.result);
    kernel->record(made);
    return made.result;
}

// A control request: a model answers it, or the real kernel.
template <typename passing>
int control(const char* name, int descriptor, unsigned long request, void* argument, passing through) {
    call made;
    made.name = name;
    made.request = request;
    return norv::test::ask(
        made, descriptor, [&](device& model) { return model.ioctl(request, argument); }, through);
}

// Takes a mapping off the double's list; what is not on it, or is a file's, is the real kernel's as well.
int unmap_in(kernel_state& kernel, void* address, size_t size) {
    // Only a test that names it makes it fail: most callers could not do anything about that.
    if (kernel.planned && kernel.planned->name == "munmap" && kernel.strikes("munmap")) {
        return -1;
    }
    const auto found = kernel.mappings.find(address);
    const bool of_model = found != kernel.mappings.end() && found->second == 0;
    if (found != kernel.mappings.end()) {
        kernel.mappings.erase(found);
    }
    return of_model ? 0 : REAL(munmap)(address, size);
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
    call made;
    made.name = "open";
    made.path = path;
    made.flags = flags;
    made.result = open_in(*kernel, path, flags, mode);
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
    call made;
    made.name = "close";
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
    // A failing close has still given the descriptor back.
    made.result = kernel->strikes("close", made.path) ? -1 : closed;
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
        if (kernel->strikes("lseek")) {
            return -1;
        }
        open_file* file = kernel->find(descriptor);
        if (file != nullptr && file->model != nullptr) {
            file->offset = whence == SEEK_SET ? offset : file->offset + offset;
            return file->offset;
        }
    }
    return REAL(lseek)(descriptor, offset, whence);
}

int poll(struct pollfd* requests, nfds_t count, int timeout) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->strikes("poll")) {
            return -1;
        }
        open_file* file = count == 1 ? kernel->find(requests->fd) : nullptr;
        if (file != nullptr && file->model != nullptr) {
            call made;
            made.name = "poll";
            made.path = file->path;
            made.flags = requests->events;
            made.request = static_cast<unsigned long>(timeout);
            kernel->record(made);
            const outside_the_double guard;
            const long ready = file->model->poll(requests->events, timeout);
            requests->revents = static_cast<short>(ready > 0 ? ready : 0);
            return static_cast<int>(answer(ready > 0 ? 1L : ready));
        }
    }
    return REAL(poll)(requests, count, timeout);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list values;
    va_start(values, request);
    void* argument = va_arg(values, void*);
    va_end(values);
    return control("ioctl", descriptor, request, argument,
                   [&] { return REAL(ioctl)(descriptor, request, argument); });
}

// The calls on a terminal are ioctls of the kernel, and that is how a model gets them: TCGETS and TCSETS with
// the C library's termios, TCFLSH with the queue's number in place of the argument.

int isatty(int descriptor) noexcept {
    termios settings = {};
    return control("isatty", descriptor, TCGETS, &settings, [&] { return REAL(isatty)(descriptor) - 1; }) + 1;
}

int tcgetattr(int descriptor, struct termios* settings) noexcept {
    return control("tcgetattr", descriptor, TCGETS, settings,
                   [&] { return REAL(tcgetattr)(descriptor, settings); });
}

int tcsetattr(int descriptor, int when, const struct termios* settings) noexcept {
    // The C library remembers an input speed of 0 in the topmost input flag, which never leaves it.
    constexpr tcflag_t input_speed_is_zero = 1U << 31U;
    termios sent = *settings;
    sent.c_iflag &= ~input_speed_is_zero;
    return control("tcsetattr", descriptor, TCSETS + static_cast<unsigned long>(when), &sent,
                   [&] { return REAL(tcsetattr)(descriptor, when, settings); });
}

int tcflush(int descriptor, int queue) noexcept {
    return control("tcflush", descriptor, TCFLSH, reinterpret_cast<void*>(static_cast<intptr_t>(queue)),
                   [&] { return REAL(tcflush)(descriptor, queue); });
}

void* mmap(void* address, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    kernel_state* kernel = active_kernel();
    open_file* file = nullptr;
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        file = kernel->find(descriptor);
        if (file != nullptr && kernel->strikes("mmap")) {
            return MAP_FAILED;
        }
        if (file != nullptr) {
            const outside_the_double guard;
            const intptr_t place = file->model != nullptr
                                       ? answer(file->model->map(size, protection, flags, offset))
                                       : reinterpret_cast<intptr_t>(REAL(mmap)(address, size, protection,
                                                                               flags, descriptor, offset));
            auto* mapped = reinterpret_cast<void*>(place);
            if (mapped != MAP_FAILED) {
                kernel->mappings[mapped] = file->model != nullptr ? 0 : size;
            }
            return mapped;
        }
    }
    return REAL(mmap)(address, size, protection, flags, descriptor, offset);
}

// The journal keeps the size as the request.
int munmap(void* address, size_t size) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(munmap)(address, size);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = "munmap";
    made.request = size;
    made.result = unmap_in(*kernel, address, size);
    kernel->record(made);
    return static_cast<int>(made.result);
}

int access(const char* path, int mode) noexcept {
    return pass_path("access", path, -1, [&](const char* place) { return REAL(access)(place, mode); });
}

int stat(const char* path, struct stat* found) noexcept {
    using stat_call = int (*)(const char*, struct stat*);
    static const auto real_stat =
        reinterpret_cast<stat_call>(dlsym(RTLD_NEXT, norv::test::symbol_of("stat")));
    return pass_path("stat", path, -1, [&](const char* place) { return real_stat(place, found); });
}

int remove(const char* path) noexcept {
    using remove_call = int (*)(const char*);
    static const auto real_remove = reinterpret_cast<remove_call>(dlsym(RTLD_NEXT, "remove"));
    return pass_path("remove", path, -1, [&](const char* place) { return real_remove(place); });
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

int epoll_create(int size) noexcept {
    return create_descriptor("epoll_create", [&] { return REAL(epoll_create)(size); });
}

int epoll_ctl(int instance, int operation, int descriptor, struct epoll_event* event) noexcept {
    return pass("epoll_ctl", -1, [&] { return REAL(epoll_ctl)(instance, operation, descriptor, event); });
}

int epoll_wait(int instance, struct epoll_event* events, int maximum, int timeout) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        call made;
        made.name = "epoll_wait";
        made.request = static_cast<unsigned long>(timeout);
        kernel->record(made);
    }
    return pass("epoll_wait", -1, [&] { return REAL(epoll_wait)(instance, events, maximum, timeout); });
}

int eventfd(unsigned int count, int flags) noexcept {
    return create_descriptor("eventfd", [&] { return REAL(eventfd)(count, flags); });
}

int eventfd_read(int descriptor, eventfd_t* value) {
    return pass("eventfd_read", -1, [&] { return REAL(eventfd_read)(descriptor, value); });
}

int eventfd_write(int descriptor, eventfd_t value) {
    return pass("eventfd_write", -1, [&] { return REAL(eventfd_write)(descriptor, value); });
}

uint32_t norv_get_status_by_errno(uint32_t error_number) {
    const kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const auto found = kernel->errno_statuses.find(static_cast<int>(error_number));
        if (found != kernel->errno_statuses.end()) {
            return found->second;
        }
    }
    return REAL(norv_get_status_by_errno)(error_number);
}

uint32_t norv_mutex_init(norv_mutex_t* mutex) {
    return pass("norv_mutex_init", NORV_STATUS_NO_MEMORY, [&] { return REAL(norv_mutex_init)(mutex); });
}

uint32_t norv_mutex_lock(norv_mutex_t* mutex) {
    const uint32_t status =
        pass("norv_mutex_lock", NORV_STATUS_BAD_STATE, [&] { return REAL(norv_mutex_lock)(mutex); });
    if (const kernel_state* kernel = active_kernel(); kernel != nullptr && status == NORV_STATUS_OK) {
        kernel->on_lock(true);
    }
    return status;
}

// A failing unlock has still unlocked. It fails only for a test that names it: most callers have nobody to
// tell.
uint32_t norv_mutex_unlock(norv_mutex_t* mutex) {
    if (const kernel_state* kernel = active_kernel()) {
        kernel->on_lock(false);
    }
    const uint32_t status = REAL(norv_mutex_unlock)(mutex);
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return status;
    }
    const std::lock_guard lock(kernel->mutex);
    const bool meant = kernel->planned && kernel->planned->name == "norv_mutex_unlock";
    return meant && kernel->strikes("norv_mutex_unlock") ? NORV_STATUS_BAD_STATE : status;
}

uint32_t norv_event_init(norv_event_t* event) {
    return pass("norv_event_init", NORV_STATUS_NO_MEMORY, [&] { return REAL(norv_event_init)(event); });
}

void* norv_malloc(size_t size) {
    return allocate("norv_malloc", [&] { return REAL(norv_malloc)(size); });
}

void* norv_zalloc(size_t size) {
    return allocate("norv_zalloc", [&] { return REAL(norv_zalloc)(size); });
}

void norv_free(void* memory) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr && memory != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const outside_the_double guard;
        if (kernel->allocations.erase(memory) == 0) {
            ADD_FAILURE() << "memory was released that is not allocated";
        }
    }
    REAL(norv_free)(memory);
}

}  // extern "C"
