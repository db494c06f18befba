// SPDX-License-Identifier: MIT
// The mutex: a POSIX mutex in the owner's record.
#include "norv_base.h"

namespace {

// The pthread functions return the error number instead of setting errno.
uint32_t status_of(int error_number) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error_number));
}

}  // namespace

uint32_t norv_mutex_init(norv_mutex_t* mutex) {
    return status_of(pthread_mutex_init(&mutex->mutex, nullptr));
}

uint32_t norv_mutex_destroy(norv_mutex_t* mutex) {
    return status_of(pthread_mutex_destroy(&mutex->mutex));
}

uint32_t norv_mutex_lock(norv_mutex_t* mutex) {
    return status_of(pthread_mutex_lock(&mutex->mutex));
}

uint32_t norv_mutex_unlock(norv_mutex_t* mutex) {
    return status_of(pthread_mutex_unlock(&mutex->mutex));
}
