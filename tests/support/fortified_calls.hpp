// SPDX-License-Identifier: MIT
// The names under which the C library's headers call some of its functions where _FORTIFY_SOURCE makes the
// compiler pass the size of the caller's buffer as well: they end the program when the call would go beyond
// the buffer, and do the function's work otherwise. The libraries are shipped with them.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

// As in the C library's headers, 64-bit file offsets give some of them another name.
#ifdef __USE_FILE_OFFSET64
#define LARGE_FILE_NAME(name) __asm__(name)
#else
#define LARGE_FILE_NAME(name)
#endif

extern "C" {

int __open_2(const char* path, int flags) LARGE_FILE_NAME("__open64_2");
ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t room);
ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t room)
    LARGE_FILE_NAME("__pread64_chk");
ssize_t __recv_chk(int descriptor, void* buffer, size_t size, size_t room, int flags);
int __poll_chk(struct pollfd* requests, nfds_t count, int timeout, size_t room);
ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t room);
char* __realpath_chk(const char* path, char* resolved, size_t room);
char* __fgets_chk(char* text, size_t room, int size, FILE* stream);
size_t __fread_chk(void* buffer, size_t room, size_t size, size_t count, FILE* stream);
int __vsnprintf_chk(char* text, size_t size, int level, size_t room, const char* format, va_list values);

// The C library's way to end a program whose buffer is too small.
[[noreturn]] void __chk_fail();

}  // extern "C"
