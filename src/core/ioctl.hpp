// SPDX-License-Identifier: MIT
// Requests to device drivers.
#pragma once

#include <sys/ioctl.h>

#include <cstdint>

#include "core/status.hpp"

namespace norv {

// Makes one request, and returns its status.
template <typename argument>
uint32_t device_ioctl(int32_t descriptor, unsigned long request, argument* value) {
    return status_of(ioctl(descriptor, request, value));
}

}  // namespace norv
