// SPDX-License-Identifier: MIT
// The calls on streams and on names of files that reach the kernel double.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/types.h>
#include <unistd.h>

#include "support/interposition.hpp"
#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::open_file;
using norv::test::outside_the_double;
using norv::test::pass_path;
using kernel_state = norv::test::kernel_double::state;

// A call on an open stream of the board's files, which can fail.
template <typename result, typename passing>
result pass_stream(const char* name, FILE* stream, result failure, passing through) {
    kernel_state* kernel = stream != nullptr ? active_kernel() : nullptr;
    if (kernel == nullptr) {
        return through();
    }
    const std::lock_guard lock(kernel->mutex);
    const open_file* file = kernel->find(fileno(stream));
    return file != nullptr && kernel->strikes(name, file->path) ? failure : through();
}

// The line's memory is the caller's to release. Only lines of the board's files can fail.
template <typename reading>
ssize_t read_line(char** line, FILE* stream, reading read) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return read();
    }
    const std::lock_guard lock(kernel->mutex);
    const open_file* file = kernel->find(fileno(stream));
    if (file == nullptr) {
        return read();
    }
    if (kernel->strikes("getline", file->path)) {
        return -1;
    }
    kernel->allocations.erase(*line);
    const ssize_t length = read();
    if (*line != nullptr) {
        kernel->allocations.insert(*line);
    }
    return length;
}

}  // namespace

extern "C" {

// Streams of the board's files are watched like descriptors; others are none of the board's business. The
// journal keeps the mode as the bytes.
FILE* fopen(const char* path, const char* mode) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(fopen)(path, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    const std::string place = kernel->place_of(path);
    if (place == path) {
        return REAL(fopen)(path, mode);
    }
    call made;
    made.name = "fopen";
    made.path = path;
    made.bytes = mode;
    kernel->record(made);
    FILE* stream = kernel->strikes("fopen", path) ? nullptr : REAL(fopen)(place.c_str(), mode);
    if (stream != nullptr) {
        kernel->opened(fileno(stream), path);
    }
    return stream;
}

int fclose(FILE* stream) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(fclose)(stream);
    }
    const std::lock_guard lock(kernel->mutex);
    const open_file* file = kernel->find(fileno(stream));
    const std::string path = file != nullptr ? file->path : "";
    const bool watched = kernel->descriptors.erase(fileno(stream)) != 0;
    call made;
    made.name = "fclose";
    made.path = path;
    kernel->record(made);
    // A failing close has still given the stream back.
    const int closed = REAL(fclose)(stream);
    return watched && kernel->strikes("fclose", path) ? EOF : closed;
}

char* fgets(char* text, int size, FILE* stream) {
    return pass_stream("fgets", stream, static_cast<char*>(nullptr),
                       [&] { return REAL(fgets)(text, size, stream); });
}

int fseek(FILE* stream, long offset, int whence) {
    return pass_stream("fseek", stream, -1, [&] { return REAL(fseek)(stream, offset, whence); });
}

int fflush(FILE* stream) {
    return pass_stream("fflush", stream, EOF, [&] { return REAL(fflush)(stream); });
}

// With optimisation the C library's header turns a getline into the second of these.
ssize_t getline(char** line, size_t* size, FILE* stream) {
    return read_line(line, stream, [&] { return REAL(getline)(line, size, stream); });
}

ssize_t __getdelim(char** line, size_t* size, int delimiter, FILE* stream) {
    return read_line(line, stream, [&] { return REAL(__getdelim)(line, size, delimiter, stream); });
}

// ---- names of files: what the real kernel reports is told as the board has it ----

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    return pass_path("readlink", path, ssize_t{-1}, [&](const char* place) -> ssize_t {
        char target[PATH_MAX];
        const ssize_t length = REAL(readlink)(place, target, sizeof target);
        if (length < 0) {
            return length;
        }
        const std::string found(target, static_cast<size_t>(length));
        const kernel_state* kernel = active_kernel();
        return static_cast<ssize_t>((kernel != nullptr ? kernel->name_of(found) : found).copy(buffer, size));
    });
}

// What is allocated for the name is the caller's to release.
char* realpath(const char* path, char* resolved) noexcept {
    return pass_path("realpath", path, static_cast<char*>(nullptr), [&](const char* place) -> char* {
        char* found = REAL(realpath)(place, resolved);
        kernel_state* kernel = active_kernel();
        if (found == nullptr || kernel == nullptr) {
            return found;
        }
        // The name on the board is the shorter one: it fits.
        strcpy(found, kernel->name_of(found).c_str());
        if (resolved == nullptr) {
            kernel->allocations.insert(found);
        }
        return found;
    });
}

}  // extern "C"
