// SPDX-License-Identifier: MIT
/**
 * @file norv/thread.hpp
 * The calling thread: its processors, its scheduling class, its name and its identifier. What the functions do,
 * and their statuses, are those of norv_linux_thread.h.
 *
 *     norv::this_thread::set_name("control").value();
 *     norv::this_thread::set_cpu_affinity(1).value();
 *     norv::this_thread::set_realtime_priority().value();  // 0 also without the privilege
 */
#pragma once

#include <cstdint>
#include <string_view>

#include "norv/status.hpp"
#include "norv/text.hpp"
#include "norv_base.h"
#include "norv_linux_thread.h"

namespace norv::this_thread {

/** See `norv_linux_thread_set_cpu_affinity_mask`. */
inline status set_cpu_affinity_mask(uint32_t mask) {
    return status(norv_linux_thread_set_cpu_affinity_mask(mask));
}
/** See `norv_linux_thread_set_cpu_affinity`. */
inline status set_cpu_affinity(int32_t processor) {
    return status(norv_linux_thread_set_cpu_affinity(processor));
}
/** See `norv_linux_thread_set_normal_priority`. A refusal is not reported (quirk 33). */
inline status set_normal_priority() {
    return status(norv_linux_thread_set_normal_priority());
}
/** See `norv_linux_thread_set_realtime_priority`. A refusal is not reported (quirk 33). */
inline status set_realtime_priority() {
    return status(norv_linux_thread_set_realtime_priority());
}
/** See `norv_linux_thread_set_name`. A name of 16 characters or more is an invalid argument. */
inline status set_name(std::string_view name) {
    return status(norv_linux_thread_set_name(detail::c_string<16>(name).get()));
}
/** See `norv_get_curr_pthread_id`. */
inline uint64_t id() noexcept {
    return norv_get_curr_pthread_id();
}

}  // namespace norv::this_thread
