// SPDX-License-Identifier: MIT
// Device and attribute file helpers.
#include "norv_file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/memory.hpp"
#include "core/poll.hpp"
#include "core/status.hpp"

namespace {

using norv::file_path;
using norv::scoped_descriptor;
using norv::status_of;

constexpr uint32_t page_size = 4096;  // the most that an attribute takes

int64_t read_or_write(int32_t descriptor, void* buffer, size_t length, bool write) {
    return write ? ::write(descriptor, buffer, length) : ::read(descriptor, buffer, length);
}

// Writes a text that is longer than a page and may not fit the stack of a thread.
uint32_t write_long_text(int32_t descriptor, size_t size, const char* format, va_list values) {
    const norv::scoped_memory memory(norv_zalloc(size));
    auto* text = static_cast<char*>(memory.get());
    if (text == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    vsnprintf(text, size, format, values);
    return status_of(write(descriptor, text, size));
}

// The transfer of a whole buffer.
class transfer {
  public:
    transfer(int32_t descriptor, void* buffer, uint32_t length, bool write)
        : buffer_(static_cast<char*>(buffer)), total_(length), descriptor_(descriptor), write_(write) {}

    bool complete() const { return done_ >= total_; }
    uint32_t done() const { return static_cast<uint32_t>(done_); }

    // Waits until the descriptor is ready, and reads or writes once.
    uint32_t step(int32_t poll_timeout) {
        const auto events = static_cast<int16_t>(write_ ? POLLOUT : POLLIN);
        int64_t result = norv::poll_once(descriptor_, events, poll_timeout);
        if (result == 0) {
            return NORV_STATUS_TIMEOUT;
        }
        if (result > 0) {
            result = read_or_write(descriptor_, buffer_ + done_, total_ - done_, write_);
        }
        const uint32_t status = status_of(result);
        // quirk 1: a failure whose errno maps to 0 transfers nothing. quirk 8: nor does the end of a file.
        if (status == NORV_STATUS_OK && result > 0) {
            done_ += static_cast<size_t>(result);
        }
        return status;
    }

  private:
    char* buffer_;
    size_t done_ = 0;
    size_t total_;
    int32_t descriptor_;
    bool write_;
};

bool ends_transfer(uint32_t status) {
    return status != NORV_STATUS_OK && status != NORV_STATUS_AGAIN && status != NORV_STATUS_INTERRUPTED;
}

}  // namespace

uint32_t norv_open_device_va(uint32_t flags, int32_t* descriptor, const char* format, va_list values) {
    if (descriptor == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    return norv::open_file(flags, file_path::of(format, values), descriptor);
}

uint32_t norv_open_device(uint32_t flags, int32_t* descriptor, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const uint32_t status = norv_open_device_va(flags, descriptor, format, values);
    va_end(values);
    return status;
}

uint32_t norv_read_device(void* buffer, uint32_t* length, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const file_path path = file_path::of(format, values);
    va_end(values);
    return length == nullptr ? NORV_STATUS_INVALID_ARG : norv::read_bytes(path, buffer, length);
}

uint32_t norv_write_device(const void* buffer, uint32_t* length, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const file_path path = file_path::of(format, values);
    va_end(values);
    return length == nullptr ? NORV_STATUS_INVALID_ARG : norv::write_bytes(path, buffer, length);
}

uint32_t norv_write_string_va(int32_t descriptor, uint32_t maximum, const char* format, va_list values) {
    char text[page_size];
    if (format == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    va_list values_again;
    va_copy(values_again, values);
    const int length = vsnprintf(text, sizeof text, format, values);
    uint32_t status = NORV_STATUS_INVALID_ARG;
    // A text that does not fit the maximum is not written: its length exceeds a buffer of that size.
    if (length >= 0 && static_cast<uint32_t>(length) < maximum) {
        const size_t size = static_cast<size_t>(length) + 1;  // quirk 7: with the NUL
        status = size <= sizeof text ? status_of(write(descriptor, text, size))
                                     : write_long_text(descriptor, size, format, values_again);
    }
    va_end(values_again);
    return status;
}

uint32_t norv_write_string(int32_t descriptor, uint32_t maximum, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const uint32_t status = norv_write_string_va(descriptor, maximum, format, values);
    va_end(values);
    return status;
}

uint32_t norv_iorw_nonblock(int32_t descriptor, void* buffer, uint32_t* length, bool write) {
    if (length == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const int64_t count = read_or_write(descriptor, buffer, *length, write);
    if (count < 0) {
        return norv::errno_status();
    }
    *length = static_cast<uint32_t>(count);
    return NORV_STATUS_OK;
}

uint32_t norv_iorw_block(int32_t descriptor, void* buffer, uint32_t* length, bool write) {
    if (length == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    transfer moving(descriptor, buffer, *length, write);
    while (!moving.complete()) {
        const uint32_t status = moving.step(-1);
        if (ends_transfer(status)) {
            return status;  // quirk 9: the length is left unchanged
        }
    }
    *length = moving.done();
    return NORV_STATUS_OK;
}

uint32_t norv_iorw_timeout(int32_t descriptor, void* buffer, uint32_t* length, int32_t timeout, bool write) {
    if (length == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint64_t start = norv_time_get_ms();
    transfer moving(descriptor, buffer, *length, write);
    uint32_t status = NORV_STATUS_OK;
    while (!moving.complete() && !ends_transfer(status)) {
        // One limit for the whole call: each step gets the rest of it.
        const int64_t left = timeout - static_cast<int64_t>(norv_time_get_ms() - start);
        status = left < 1 ? NORV_STATUS_TIMEOUT : moving.step(static_cast<int32_t>(left));
    }
    *length = moving.done();  // quirk 9: even after a failure
    return status;
}

bool norv_file_access(uint32_t mode, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const file_path path = file_path::of(format, values);
    va_end(values);
    return path.valid() && status_of(access(path.text(), static_cast<int>(mode))) == NORV_STATUS_OK;
}

uint32_t norv_file_mark(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const file_path path = file_path::of(format, values);
    va_end(values);
    if (!path.valid()) {
        return NORV_STATUS_INVALID_ARG;
    }
    scoped_descriptor file;
    // quirk 10: the path is the format of this second call, which expands a '%' in it again.
    return norv::open_file(O_RDWR | O_CREAT | O_SYNC, file_path::expanded(path.text()), file.out());
}

uint32_t norv_file_unmark(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const file_path path = file_path::of(format, values);
    va_end(values);
    return path.valid() ? status_of(remove(path.text())) : NORV_STATUS_INVALID_ARG;
}
