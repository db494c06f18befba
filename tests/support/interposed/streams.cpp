// SPDX-License-Identifier: MIT
// The calls on streams, of files and of programs, that reach the kernel double.
#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdio>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::journalled;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::program_start;
using norv::test::stream_opening;
using norv::test::stream_reading;

// A call on an open stream of the board's files, which can fail.
template <typename result, typename passing>
result pass_stream(const char* name, FILE* stream, result failure, passing through) {
    kernel_state* kernel = stream != nullptr ? active_kernel() : nullptr;
    if (kernel == nullptr) {
        return through();
    }
    const std::lock_guard lock(kernel->mutex);
    const open_file* file = kernel->find(fileno(stream));
    return file != nullptr && kernel->strikes(call{name, file->path}) ? failure : through();
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
    if (kernel->strikes(call{"getline", file->path})) {
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

// Streams of the board's files are watched like descriptors, others are not.
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
    call made{"fopen", path, stream_opening{mode}};
    FILE* stream = kernel->strikes(made) ? nullptr : REAL(fopen)(place.c_str(), mode);
    if (stream != nullptr) {
        kernel->opened(fileno(stream), path);
    }
    made.result = journalled(stream);
    kernel->record(made);
    return stream;
}

int fclose(FILE* stream) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(fclose)(stream);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"fclose", kernel->path_of(fileno(stream))};
    const bool watched = kernel->descriptors.erase(fileno(stream)) != 0;
    // A failing close has still released the stream.
    const int closed = REAL(fclose)(stream);
    made.result = watched && kernel->strikes(made) ? EOF : closed;
    kernel->record(made);
    return static_cast<int>(made.result);
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

size_t fread(void* buffer, size_t size, size_t count, FILE* stream) {
    return norv::test::pass_journalled(call{"fread", "", stream_reading{size * count}}, size_t{0},
                                       [&] { return REAL(fread)(buffer, size, count, stream); });
}

// ---- programs

FILE* popen(const char* command, const char* mode) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(popen)(command, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"popen", "", program_start{command, mode}};
    FILE* stream = kernel->strikes(made) ? nullptr : REAL(popen)(command, mode);
    if (stream != nullptr) {
        kernel->opened(fileno(stream), "popen");
    }
    made.result = journalled(stream);
    kernel->record(made);
    return stream;
}

int pclose(FILE* stream) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(pclose)(stream);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"pclose"};
    if (kernel->descriptors.erase(fileno(stream)) == 0) {
        ADD_FAILURE() << "a program's stream was closed that is not open";
    }
    // A failing close has still released the stream.
    const int ended = REAL(pclose)(stream);
    made.result = kernel->strikes(made) ? -1 : ended;
    kernel->record(made);
    return static_cast<int>(made.result);
}

}  // extern "C"
