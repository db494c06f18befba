// SPDX-License-Identifier: MIT
// The calls on threads and processors that reach the kernel double.
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::affinity_setting;
using norv::test::bytes_of;
using norv::test::call;
using norv::test::name_setting;
using norv::test::pass_journalled;
using norv::test::schedule_setting;

bool is_caller(pthread_t thread) {
    return pthread_equal(thread, pthread_self()) != 0;
}

}  // namespace

extern "C" {

long sysconf(int name) noexcept {
    if (name != _SC_NPROCESSORS_CONF) {
        return REAL(sysconf)(name);
    }
    const long result = pass_journalled(call{"sysconf"}, -1L, [&] { return REAL(sysconf)(name); });
    if (result > 0 && active_kernel() != nullptr) {
        errno = EBUSY;  // a success may leave any number there
    }
    return result;
}

int sched_setaffinity(pid_t thread, size_t size, const cpu_set_t* processors) noexcept {
    const call made{"sched_setaffinity", "",
                    affinity_setting{thread, bytes_of(processors, static_cast<long>(size))}};
    return pass_journalled(made, -1, [&] { return REAL(sched_setaffinity)(thread, size, processors); });
}

// A planned failure of the pthread_ calls is -1 with errno, as no C library known to us reports it; a test
// that wants their usual positive error number sets it with `answer`.

int pthread_setschedparam(pthread_t thread, int policy, const struct sched_param* parameters) noexcept {
    const call made{"pthread_setschedparam", "",
                    schedule_setting{is_caller(thread), policy, parameters->sched_priority}};
    return pass_journalled(made, -1, [&] { return REAL(pthread_setschedparam)(thread, policy, parameters); });
}

int pthread_setname_np(pthread_t thread, const char* name) noexcept {
    return pass_journalled(call{"pthread_setname_np", "", name_setting{is_caller(thread), name}}, -1,
                           [&] { return REAL(pthread_setname_np)(thread, name); });
}

}  // extern "C"
