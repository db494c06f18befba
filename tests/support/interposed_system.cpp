// SPDX-License-Identifier: MIT
// The calls on clocks, threads and programs that reach the kernel double.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/sysinfo.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "support/interposition.hpp"
#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::create_descriptor;
using norv::test::pass_journalled;
using kernel_state = norv::test::kernel_double::state;

template <typename record>
std::string bytes_of(const record* content, size_t size = sizeof(record)) {
    return {reinterpret_cast<const char*>(content), size};
}

}  // namespace

extern "C" {

// ---- clocks ----

int timerfd_create(int clock, int flags) noexcept {
    return create_descriptor("timerfd_create", [&] { return REAL(timerfd_create)(clock, flags); });
}

// The journal keeps the setting's bytes.
int timerfd_settime(int descriptor, int flags, const struct itimerspec* setting,
                    struct itimerspec* previous) noexcept {
    call made;
    made.name = "timerfd_settime";
    made.flags = flags;
    made.bytes = bytes_of(setting);
    return pass_journalled(made, -1,
                           [&] { return REAL(timerfd_settime)(descriptor, flags, setting, previous); });
}

// The C library reads this clock without entering the kernel, and everybody else reads it too: it fails only
// for a test that names it.
int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
    kernel_state* kernel = clock == CLOCK_MONOTONIC ? active_kernel() : nullptr;
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        if (kernel->planned && kernel->planned->name == "clock_gettime" && kernel->strikes("clock_gettime")) {
            return -1;
        }
        if (kernel->clock) {
            *time = *kernel->clock;
            return 0;
        }
    }
    return REAL(clock_gettime)(clock, time);
}

int sysinfo(struct sysinfo* information) noexcept {
    call made;
    made.name = "sysinfo";
    const int result = pass_journalled(made, -1, [&] { return REAL(sysinfo)(information); });
    const kernel_state* kernel = active_kernel();
    if (result == 0 && kernel != nullptr && kernel->uptime) {
        information->uptime = *kernel->uptime;
    }
    return result;
}

// ---- threads ----

long sysconf(int name) noexcept {
    if (name != _SC_NPROCESSORS_CONF) {
        return REAL(sysconf)(name);
    }
    call made;
    made.name = "sysconf";
    const long result = pass_journalled(made, -1L, [&] { return REAL(sysconf)(name); });
    if (result > 0 && active_kernel() != nullptr) {
        errno = EBUSY;  // a success may leave anything there
    }
    return result;
}

// The journal keeps the thread as the flags, the set's size as the request, and the set's bytes.
int sched_setaffinity(pid_t thread, size_t size, const cpu_set_t* processors) noexcept {
    call made;
    made.name = "sched_setaffinity";
    made.flags = thread;
    made.request = size;
    made.bytes = bytes_of(processors, size);
    return pass_journalled(made, -1, [&] { return REAL(sched_setaffinity)(thread, size, processors); });
}

// A planned failure of the pthread_ calls is -1 with errno, as no C library known to us reports it; a test
// that wants their usual positive error number sets it with `answer`.

// The journal keeps the class as the flags and the priority as the request.
int pthread_setschedparam(pthread_t thread, int policy, const struct sched_param* parameters) noexcept {
    call made;
    made.name = "pthread_setschedparam";
    made.path = pthread_equal(thread, pthread_self()) != 0 ? "the calling thread" : "another thread";
    made.flags = policy;
    made.request = static_cast<unsigned long>(parameters->sched_priority);
    return pass_journalled(made, -1, [&] { return REAL(pthread_setschedparam)(thread, policy, parameters); });
}

int pthread_setname_np(pthread_t thread, const char* name) noexcept {
    call made;
    made.name = "pthread_setname_np";
    made.path = pthread_equal(thread, pthread_self()) != 0 ? "the calling thread" : "another thread";
    made.bytes = name;
    return pass_journalled(made, -1, [&] { return REAL(pthread_setname_np)(thread, name); });
}

// ---- programs ----

// The journal keeps the command as the path.
FILE* popen(const char* command, const char* mode) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(popen)(command, mode);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = "popen";
    made.path = command;
    made.bytes = mode;
    FILE* stream = kernel->strikes("popen") ? nullptr : REAL(popen)(command, mode);
    if (stream != nullptr) {
        made.result = fileno(stream);
        kernel->opened(fileno(stream), command);
    }
    kernel->record(made);
    return stream;
}

int pclose(FILE* stream) {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(pclose)(stream);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = "pclose";
    if (kernel->descriptors.erase(fileno(stream)) == 0) {
        ADD_FAILURE() << "a program's stream was closed that is not open";
    }
    // A failing close has still given the stream back.
    const int ended = REAL(pclose)(stream);
    made.result = kernel->strikes("pclose") ? -1 : ended;
    kernel->record(made);
    return static_cast<int>(made.result);
}

// The journal keeps the number of bytes that were asked for as the request.
size_t fread(void* buffer, size_t size, size_t count, FILE* stream) {
    call made;
    made.name = "fread";
    made.request = size * count;
    return pass_journalled(made, size_t{0}, [&] { return REAL(fread)(buffer, size, count, stream); });
}

}  // extern "C"
