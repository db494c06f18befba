// SPDX-License-Identifier: MIT
// The event loop's handle: open and close, calls from other threads, descriptors.
#include "loop/epoll.hpp"

#include <sys/eventfd.h>

#include <cstddef>
#include <initializer_list>

#include "core/descriptor.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"

NORV_OFFSETS(norv_epoll_t, sizeof(norv_epoll_t), epoll_descriptor, 8, exit, 12);
NORV_LAYOUT(norv_epoll_t, sizeof(norv_epoll_t), reserved, epoll_descriptor, exit, ready, ready_count,
            dispatch_index, timers, delayed_sequence, delayed, loop_thread, call_mutex, call_descriptor,
            call_function, call_argument1, call_argument2, call_result, call_done);
NORV_LAYOUT(norv_epoll_fd_t, NORV_32_64(12, 24), loop, descriptor, handler);
#if defined(__x86_64__)
static_assert(sizeof(epoll_event) == 12);
NORV_OFFSETS(norv_epoll_t, sizeof(norv_epoll_t), ready, 13, timers, 3096);
NORV_OFFSETS(norv_epoll_fd_t, 24, handler, 16);
#endif

namespace {

using norv::status_of;

// ---- Calls from other threads ----

// True if no other thread uses the loop: it runs on this thread, or not at all. Pairs with the loop function,
// which publishes its thread when it starts and everything that it did when it ends.
bool runs_here(const norv_epoll_t* loop) {
    const uint64_t loop_thread = __atomic_load_n(&loop->loop_thread, __ATOMIC_ACQUIRE);
    return loop_thread == 0 || loop_thread == norv_get_curr_pthread_id();
}

uint32_t wake_and_wait(norv_epoll_t* loop) {
    if (eventfd_write(loop->call_descriptor, 1) != 0) {
        // quirk 17: not the status of errno, so that callers can distinguish it from those of the function.
        return NORV_STATUS_WAKE_FAILED;
    }
    // quirk 19: if the loop stops before it serves the call, the next run does.
    norv_event_wait(&loop->call_done, NORV_EVENT_FOREVER);
    return loop->call_result;
}

// Posts a call to the loop thread, even while no loop runs, and waits for its status. Not inlined: the
// registers that it saves would slow down the calls that run at once.
__attribute__((noinline)) uint32_t post(norv_epoll_t* loop, norv_epoll_call_fn function, uint64_t argument1,
                                        uint64_t argument2) {
    NORV_TRY(norv_mutex_lock(&loop->call_mutex));
    loop->call_argument1 = argument1;
    loop->call_argument2 = argument2;
    __atomic_store_n(&loop->call_function, function, __ATOMIC_RELEASE);
    const uint32_t status = wake_and_wait(loop);
    norv_mutex_unlock(&loop->call_mutex);
    return status;
}

uint32_t request_exit(norv_epoll_t* loop, uint64_t, uint64_t) {
    norv::set_exit(loop, true);
    return NORV_STATUS_OK;
}

uint32_t do_nothing(norv_epoll_t*, uint64_t, uint64_t) {
    return NORV_STATUS_OK;
}

// ---- Descriptors ----

uint32_t control(norv_epoll_t* loop, int operation, int32_t descriptor, uint32_t events, void* target) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = target;
    return status_of(epoll_ctl(loop->epoll_descriptor, operation, descriptor, &event));
}

// quirk 15: compares the descriptor numbers, not the records, and drops the first match only. A record may
// have the number of another one whose descriptor was closed; the earlier of their two events is dropped.
uint32_t ignore_pending_event(norv_epoll_t* loop, uint64_t descriptor, uint64_t) {
    for (int32_t index = loop->dispatch_index; index < loop->ready_count; ++index) {
        void* const target = loop->ready[index].data.ptr;
        if (target == nullptr || target == loop) {
            continue;
        }
        if (static_cast<norv_epoll_fd_t*>(target)->descriptor == static_cast<int32_t>(descriptor)) {
            loop->ready[index].data.ptr = nullptr;
            break;
        }
    }
    return NORV_STATUS_OK;
}

uint32_t remove_from(norv_epoll_t* loop, norv_epoll_fd_t* record) {
    NORV_TRY(status_of(epoll_ctl(loop->epoll_descriptor, EPOLL_CTL_DEL, record->descriptor, nullptr)));
    // quirk 16: after a refused removal, the pending event stays.
    return norv_epoll_fd_ignore_once(loop, record);
}

// ---- Opening ----

uint32_t open_call_descriptor(norv_epoll_t* loop) {
    loop->call_descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    NORV_TRY(status_of(loop->call_descriptor));
    return control(loop, EPOLL_CTL_ADD, loop->call_descriptor, EPOLLIN, loop);
}

uint32_t open_parts(norv_epoll_t* loop) {
    // quirk 11: without close-on-exec. quirk 12: the other fields keep what the caller stored.
    loop->epoll_descriptor = epoll_create(1);
    NORV_TRY(status_of(loop->epoll_descriptor));
    NORV_TRY(norv_mutex_init(&loop->call_mutex));
    NORV_TRY(norv_event_init(&loop->call_done));
    return open_call_descriptor(loop);
}

}  // namespace

void norv::serve_posted_call(norv_epoll_t* loop) {
    eventfd_t posts;
    while (eventfd_read(loop->call_descriptor, &posts) == 0) {
    }
    const norv_epoll_call_fn function = __atomic_load_n(&loop->call_function, __ATOMIC_ACQUIRE);
    loop->call_result = function(loop, loop->call_argument1, loop->call_argument2);
    norv_event_set(&loop->call_done);
}

uint32_t norv_epoll_open(norv_epoll_t* loop) {
    if (loop == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_parts(loop);
    if (status != NORV_STATUS_OK) {
        norv_epoll_close(loop);
    }
    return status;
}

uint32_t norv_epoll_close(norv_epoll_t* loop) {
    if (loop == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 13: the result of the last step, not mapped to a status.
    norv_event_deinit(&loop->call_done);
    uint32_t result = norv_mutex_destroy(&loop->call_mutex);
    for (int32_t* descriptor : {&loop->call_descriptor, &loop->epoll_descriptor}) {
        if (*descriptor > 0) {
            result = static_cast<uint32_t>(norv::close_descriptor(*descriptor));
        }
    }
    return result;
}

uint32_t norv_epoll_exit(norv_epoll_t* loop) {
    return norv_epoll_call_sync(loop, request_exit, norv::no_argument, norv::no_argument);
}

uint32_t norv_epoll_wait_loop_started(norv_epoll_t* loop) {
    // quirk 18: posted even while no loop runs, when norv_epoll_call_sync would call the function at once.
    return loop != nullptr ? post(loop, do_nothing, norv::no_argument, norv::no_argument)
                           : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_epoll_call_sync(norv_epoll_t* loop, norv_epoll_call_fn function, uint64_t argument1,
                              uint64_t argument2) {
    if (loop == nullptr || function == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    return runs_here(loop) ? function(loop, argument1, argument2)
                           : post(loop, function, argument1, argument2);
}

uint32_t norv_epoll_fd_add(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events) {
    if (loop == nullptr || record == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    record->loop = loop;  // quirk 14: even if the next step fails
    return control(loop, EPOLL_CTL_ADD, record->descriptor, events, record);
}

uint32_t norv_epoll_fd_modify(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events) {
    if (loop == nullptr || record == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    return control(loop, EPOLL_CTL_MOD, record->descriptor, events, record);
}

uint32_t norv_epoll_fd_ignore_once(norv_epoll_t* loop, norv_epoll_fd_t* record) {
    if (record == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    return norv_epoll_call_sync(loop, ignore_pending_event, static_cast<uint32_t>(record->descriptor),
                                norv::no_argument);
}

uint32_t norv_epoll_fd_remove(norv_epoll_t* loop, norv_epoll_fd_t* record) {
    if (loop == nullptr || record == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = remove_from(loop, record);
    record->loop = nullptr;  // quirk 14: even after a failure
    return status;
}
