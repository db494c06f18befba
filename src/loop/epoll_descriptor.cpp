// SPDX-License-Identifier: MIT
// Event and timer descriptors: an eventfd and an interval timer, each with its registration in the loop.
#include <sys/eventfd.h>

#include <cstddef>

#include "core/descriptor.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "norv_epoll.h"
#include "norv_linux_timer.h"

NORV_LAYOUT(norv_epoll_event_fd_t, NORV_32_64(32, 40), registration, reserved, callback);
NORV_LAYOUT(norv_epoll_timer_fd_t, NORV_32_64(32, 48), registration, reserved, callback, timer);
#if __SIZEOF_POINTER__ == 8
NORV_OFFSETS(norv_epoll_event_fd_t, 40, reserved, 24);
NORV_OFFSETS(norv_epoll_timer_fd_t, 48, timer, 40);
#endif

namespace {

// ---- Event descriptors ----

// A destroyed event has descriptor 0, which it does not own: nothing may be read from it or written to it. A
// registered event may have got that number itself.
int32_t event_descriptor(const norv_epoll_event_fd_t* event) {
    const norv_epoll_fd_t& registration = event->registration;
    return registration.descriptor != 0 || registration.loop != nullptr ? registration.descriptor : -1;
}

// Reads the count of activations; false if there were none.
bool clear(const norv_epoll_event_fd_t* event) {
    eventfd_t count;
    return eventfd_read(event_descriptor(event), &count) == 0;
}

void drain(const norv_epoll_event_fd_t* event) {
    while (clear(event)) {
    }
}

void call_back_once(norv_epoll_fd_t* record, uint32_t) {
    auto* event = reinterpret_cast<norv_epoll_event_fd_t*>(record);
    // It may have been deactivated after epoll_wait(2) reported it ready.
    if (clear(event)) {
        drain(event);
        event->callback(event);
    }
}

uint32_t open_event(norv_epoll_t* loop, norv_epoll_event_fd_t* event) {
    event->registration.descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    event->registration.handler = call_back_once;
    NORV_TRY(norv::status_of(event->registration.descriptor));
    return norv_epoll_fd_add(loop, &event->registration, EPOLLIN);
}

// ---- Timer descriptors ----

void clear_and_call_back(norv_epoll_fd_t* record, uint32_t) {
    auto* timer = reinterpret_cast<norv_epoll_timer_fd_t*>(record);
    // quirk 31: calls back even if there is nothing to clear any more, unlike an event.
    norv_linux_timer_clear_event(&timer->timer);
    timer->callback(timer);
}

uint32_t open_timer(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer) {
    const uint32_t status = norv_linux_timer_open(&timer->timer);
    timer->registration.descriptor = timer->timer.descriptor;
    timer->registration.handler = clear_and_call_back;
    NORV_TRY(status);
    return norv_epoll_fd_add(loop, &timer->registration, EPOLLIN);
}

}  // namespace

uint32_t norv_epoll_event_fd_create(norv_epoll_t* loop, norv_epoll_event_fd_t* event) {
    if (loop == nullptr || event == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_event(loop, event);
    if (status != NORV_STATUS_OK) {
        norv_epoll_event_fd_destroy(loop, event);
    }
    return status;
}

void norv_epoll_event_fd_destroy(norv_epoll_t* loop, norv_epoll_event_fd_t* event) {
    // quirk 3: an event that got descriptor 0 itself stays registered and open.
    if (event == nullptr || event->registration.descriptor <= 0) {
        return;
    }
    norv_epoll_fd_remove(loop, &event->registration);
    norv::close_descriptor(event->registration.descriptor);
    // quirk 30: owners compare with 0.
    event->registration.descriptor = 0;
}

uint32_t norv_epoll_event_fd_activate(norv_epoll_event_fd_t* event) {
    return event != nullptr ? norv::status_of(eventfd_write(event_descriptor(event), 1))
                            : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_epoll_event_fd_deactivate(norv_epoll_event_fd_t* event) {
    if (event == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    drain(event);
    return NORV_STATUS_OK;
}

uint32_t norv_epoll_timer_fd_create(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer) {
    if (loop == nullptr || timer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_timer(loop, timer);
    if (status != NORV_STATUS_OK) {
        norv_epoll_timer_fd_destroy(loop, timer);
    }
    return status;
}

void norv_epoll_timer_fd_destroy(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer) {
    if (timer == nullptr) {
        return;
    }
    // quirk 3: a timer that got descriptor 0 stays registered and open.
    if (loop != nullptr && loop->epoll_descriptor > 0 && timer->registration.descriptor > 0) {
        norv_epoll_fd_remove(loop, &timer->registration);
    }
    norv_linux_timer_close(&timer->timer);
    // The copy is cleared too: the number may have been reused by the time of a second destroy.
    timer->registration.descriptor = timer->timer.descriptor;
}
