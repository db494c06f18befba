// SPDX-License-Identifier: MIT
// The fortified names of the calls that reach the kernel double: after the C library's check they call the
// double under the ordinary name.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "support/fortified_calls.hpp"

namespace {

void require(bool fits) {
    if (!fits) {
        __chk_fail();
    }
}

// An open of these flags takes a third argument, which these names do not pass.
bool creates(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

}  // namespace

extern "C" {

int __open_2(const char* path, int flags) {
    require(!creates(flags));
    return open(path, flags);
}

ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t room) {
    require(size <= room);
    return read(descriptor, buffer, size);
}

ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t room) {
    require(size <= room);
    return pread(descriptor, buffer, size, offset);
}

ssize_t __recv_chk(int descriptor, void* buffer, size_t size, size_t room, int flags) {
    require(size <= room);
    return recv(descriptor, buffer, size, flags);
}

int __poll_chk(struct pollfd* requests, nfds_t count, int timeout, size_t room) {
    require(count <= room / sizeof *requests);
    return poll(requests, count, timeout);
}

ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t room) {
    require(size <= room);
    return readlink(path, buffer, size);
}

char* __realpath_chk(const char* path, char* resolved, size_t room) {
    require(room >= PATH_MAX);
    return realpath(path, resolved);
}

char* __fgets_chk(char* text, size_t room, int size, FILE* stream) {
    require(size >= 0 && static_cast<size_t>(size) <= room);
    return fgets(text, size, stream);
}

size_t __fread_chk(void* buffer, size_t room, size_t size, size_t count, FILE* stream) {
    require(size == 0 || count <= room / size);
    return fread(buffer, size, count, stream);
}

int __vsnprintf_chk(char* text, size_t size, int, size_t room, const char* format, va_list values) {
    require(size <= room);
    return vsnprintf(text, size, format, values);
}

}  // extern "C"
