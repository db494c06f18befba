// SPDX-License-Identifier: MIT
// The calling thread's processors, scheduling class and priority, and name.
#include "norv_linux_thread.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>

#include "core/status.hpp"

static_assert(sizeof(cpu_set_t) == 128 && CPU_SETSIZE == 1024);

namespace {

constexpr int mask_bits = 32;

// CPU_SET ignores a number that the set cannot hold (a negative one is huge as a size): the set then stays
// empty, and the kernel refuses it.
void add(cpu_set_t& processors, int32_t processor) {
    CPU_SET(static_cast<size_t>(processor), &processors);
}

cpu_set_t set_of(int32_t processor) {
    cpu_set_t processors = {};
    add(processors, processor);
    return processors;
}

cpu_set_t set_of_mask(uint32_t mask) {
    cpu_set_t processors = {};
    for (int32_t processor = 0; processor < mask_bits; ++processor) {
        if ((mask >> processor & 1U) != 0) {
            add(processors, processor);
        }
    }
    return processors;
}

// True if the mask contains this processor or a later one.
bool has_processor_from(uint32_t mask, long first) {
    return first < mask_bits && mask >> (first > 0 ? first : 0) != 0;
}

uint32_t run_on(const cpu_set_t& processors) {
    return norv::status_of(sched_setaffinity(0, sizeof processors, &processors));
}

// quirk 33: the pthread functions report a failure by a positive number, which counts as a success here.
// Callers without the privilege continue with the priority that they have.
uint32_t status_of_negative(int result) {
    return norv::status_of(result);
}

uint32_t set_highest_priority_of(int policy) {
    sched_param parameters{};
    parameters.sched_priority = sched_get_priority_max(policy);
    return status_of_negative(pthread_setschedparam(pthread_self(), policy, &parameters));
}

}  // namespace

uint32_t norv_linux_thread_set_cpu_affinity_mask(uint32_t mask) {
    errno = 0;
    const long count = sysconf(_SC_NPROCESSORS_CONF);
    if (count < 1) {
        NORV_TRY(norv::errno_status());
    }
    return has_processor_from(mask, count) ? NORV_STATUS_INVALID_ARG : run_on(set_of_mask(mask));
}

uint32_t norv_linux_thread_set_cpu_affinity(int32_t processor) {
    return run_on(set_of(processor));
}

uint32_t norv_linux_thread_set_normal_priority() {
    return set_highest_priority_of(SCHED_OTHER);
}

uint32_t norv_linux_thread_set_realtime_priority() {
    return set_highest_priority_of(SCHED_FIFO);
}

uint32_t norv_linux_thread_set_name(const char* name) {
    return name != nullptr ? status_of_negative(pthread_setname_np(pthread_self(), name))
                           : NORV_STATUS_INVALID_ARG;
}
