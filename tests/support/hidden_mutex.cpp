// SPDX-License-Identifier: MIT
#include "support/hidden_mutex.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "support/thread_sanitizer.hpp"

namespace norv::test {
namespace {

constexpr uint32_t is_free = 0;
constexpr uint32_t taken = 1;
constexpr uint32_t awaited = 2;

thread_local char this_thread;  // its address identifies the thread

// A system call of its own: the C library's mutexes are what the sanitizer sees.
void futex(uint32_t* state, int operation, uint32_t value) {
    const int kept_errno = errno;
    syscall(SYS_futex, state, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
    errno = kept_errno;
}

}  // namespace

void hidden_mutex::wait_until_taken() {
    while (__atomic_exchange_n(&state_, awaited, __ATOMIC_ACQUIRE) != is_free) {
        futex(&state_, FUTEX_WAIT, awaited);
    }
}

void hidden_mutex::lock() {
    if (__atomic_load_n(&owner_, __ATOMIC_RELAXED) == &this_thread) {
        ++depth_;
        return;
    }
    uint32_t expected = is_free;
    if (!__atomic_compare_exchange_n(&state_, &expected, taken, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
        wait_until_taken();
    }
    __atomic_store_n(&owner_, &this_thread, __ATOMIC_RELAXED);
    depth_ = 1;
    hide_accesses();
    hide_synchronisation();
}

void hidden_mutex::unlock() {
    if (--depth_ > 0) {
        return;
    }
    show_synchronisation();
    show_accesses();
    __atomic_store_n(&owner_, nullptr, __ATOMIC_RELAXED);
    if (__atomic_exchange_n(&state_, is_free, __ATOMIC_RELEASE) == awaited) {
        futex(&state_, FUTEX_WAKE, 1);
    }
}

}  // namespace norv::test
