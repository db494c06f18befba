// SPDX-License-Identifier: MIT
// The status of an errno, and statuses in words.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "norv_base.h"

namespace {

struct equivalent {
    int error_number;
    uint32_t status;
};

// The errno values that have the same meaning as a listed status, those after which a transfer is repeated
// first. No status is listed twice, so that a status belongs to one errno.
constexpr equivalent equivalents[] = {
    {EAGAIN, NORV_STATUS_AGAIN},
    {EINTR, NORV_STATUS_INTERRUPTED},
    {0, NORV_STATUS_OK},
    {ETIMEDOUT, NORV_STATUS_TIMEOUT},
    {EINVAL, NORV_STATUS_INVALID_ARG},
    {ENOMEM, NORV_STATUS_NO_MEMORY},
    {EOPNOTSUPP, NORV_STATUS_NOT_AVAILABLE},
    {EIO, NORV_STATUS_DEVICE_ERROR},
    {ENOENT, NORV_STATUS_NOT_FOUND},
    {ENOSPC, NORV_STATUS_EXHAUSTED},
    {ERANGE, NORV_STATUS_RANGE},
    {EBADFD, NORV_STATUS_BAD_STATE},
};
static_assert(EAGAIN == EWOULDBLOCK, "transfers are repeated after both");

struct description {
    uint32_t status;
    const char* name;
    const char* text;
};

#define NORV_DESCRIPTION(name, value, text) {value, #name, text},
constexpr description descriptions[] = {NORV_STATUS_LIST(NORV_DESCRIPTION){
    NORV_STATUS_WAKE_FAILED, "WAKE_FAILED", "the loop thread could not be woken"}};
#undef NORV_DESCRIPTION

const description* find_description(uint32_t status) {
    for (const description& candidate : descriptions) {
        if (candidate.status == status) {
            return &candidate;
        }
    }
    return nullptr;
}

// Larger numbers do not get a status of their own: the kernel's errno values end at 4095.
constexpr uint32_t greatest_errno = NORV_STATUS_ERRNO_BASE - 1;

// The errno of a status in the range of errno values; -1 for any other status.
int errno_of(uint32_t status) {
    const uint32_t error_number = status - NORV_STATUS_ERRNO_BASE;
    return error_number >= 1 && error_number <= greatest_errno ? static_cast<int>(error_number) : -1;
}

const char* or_unknown(const char* words, const char* unknown) {
    return words != nullptr ? words : unknown;
}

}  // namespace

uint32_t norv_get_status_by_errno(uint32_t error_number) {
    for (const equivalent& candidate : equivalents) {
        if (static_cast<uint32_t>(candidate.error_number) == error_number) {
            return candidate.status;
        }
    }
    // A number that is not an errno must not wrap around to success or to a listed status.
    return NORV_STATUS_ERRNO_BASE + std::min(error_number, greatest_errno);
}

const char* norv_status_name(uint32_t status) {
    const description* known = find_description(status);
    return known != nullptr ? known->name : or_unknown(strerrorname_np(errno_of(status)), "UNKNOWN");
}

const char* norv_status_text(uint32_t status) {
    const description* known = find_description(status);
    return known != nullptr ? known->text : or_unknown(strerrordesc_np(errno_of(status)), "no such status");
}
