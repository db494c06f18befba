// SPDX-License-Identifier: MIT
// The calls of the base library that reach the kernel double: they can fail there, and what they allocate is
// watched.
#include <gtest/gtest.h>

#include "norv_base.h"
#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::kernel_state;
using norv::test::outside_the_double;
using norv::test::pass;
using norv::test::watched_allocation;

}  // namespace

extern "C" {

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

// A failing unlock has still unlocked. It fails only for a test that names it: most callers cannot report it.
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
    return kernel->strikes_by_name(call{"norv_mutex_unlock"}) ? NORV_STATUS_BAD_STATE : status;
}

uint32_t norv_event_init(norv_event_t* event) {
    return pass("norv_event_init", NORV_STATUS_NO_MEMORY, [&] { return REAL(norv_event_init)(event); });
}

void* norv_malloc(size_t size) {
    return watched_allocation(active_kernel(), "norv_malloc", [&] { return REAL(norv_malloc)(size); });
}

void* norv_zalloc(size_t size) {
    return watched_allocation(active_kernel(), "norv_zalloc", [&] { return REAL(norv_zalloc)(size); });
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
