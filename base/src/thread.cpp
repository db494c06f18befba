// SPDX-License-Identifier: MIT
// Threads: the identifier of the calling thread, and the watchdog by which one thread checks on another.
#include "norv_base.h"

namespace {

// Milliseconds that may wrap: only differences are used, which are right across the wrap.
uint32_t current_ms() {
    return static_cast<uint32_t>(norv_time_get_ms());
}

}  // namespace

uint64_t norv_get_curr_pthread_id() {
    return static_cast<uint64_t>(pthread_self());
}

void norv_thread_watchdog_start(norv_thread_watchdog_t* watchdog, uint32_t limit) {
    watchdog->limit = limit;
    __atomic_store_n(&watchdog->last_report, current_ms(), __ATOMIC_RELAXED);
}

uint32_t norv_thread_keep_alive(void* handle) {
    if (handle == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    auto* watchdog = static_cast<norv_thread_watchdog_t*>(handle);
    __atomic_store_n(&watchdog->last_report, current_ms(), __ATOMIC_RELAXED);
    return NORV_STATUS_OK;
}

uint32_t norv_thread_watchdog_check(const norv_thread_watchdog_t* watchdog) {
    // Acquire: the clock must be read after the report; one made in between would seem to be in the future.
    const uint32_t last_report = __atomic_load_n(&watchdog->last_report, __ATOMIC_ACQUIRE);
    const bool late = current_ms() - last_report > watchdog->limit;
    return late ? NORV_STATUS_TIMEOUT : NORV_STATUS_OK;
}
