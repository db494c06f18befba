// SPDX-License-Identifier: MIT
/**
 * @file norv/uevent.hpp
 * A receiver of the kernel's uevent messages that closes itself. What the functions do, and their statuses,
 * are those of norv_uevent.h; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::uevent events = norv::uevent::open().value();
 *     events.poll([](std::string_view message) {
 *         // "add@/devices/...", and texts of the form KEY=value, each with a NUL after it
 *     }).value();
 *
 * In a task:
 *
 *     norv::uevent_messages messages(events);
 *     while ((co_await messages.poll([&](std::string_view message) { ... })).ok()) {
 *     }
 */
#pragma once

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "norv/guarded.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/wait.hpp"
#include "norv_uevent.h"

namespace norv {

/** An open receiver. */
class uevent {
  public:
    /**
     * Opens a receiver for messages of up to `buffer_size` bytes; the kernel's fit in 8192. See
     * `norv_uevent_open`.
     */
    static result<uevent> open(uint64_t buffer_size = 8192) {
        uevent events;
        const status opened = events.events_.open([=](norv_uevent_t* to) {
            to->buffer_size = buffer_size;
            return norv_uevent_open(to);
        });
        return opened.ok() ? result<uevent>(std::move(events)) : result<uevent>(opened);
    }

    /**
     * Receives all waiting messages and passes each to a function, `void(std::string_view)`: the message,
     * with or without a NUL at its end, valid until the function returns. The function must not move or end
     * this object. See `norv_uevent_poll`.
     *
     * An exception of the function is thrown here, after the other messages were received and dropped.
     */
    template <typename function>
    status poll(function&& handler) {
        detail::guarded<function&> receiver(handler);
        const status polled = poll_guarded(receiver);
        receiver.rethrow();
        return polled;
    }

    /** The keys that norv/uevent_parse.hpp evaluates, in ascending order. See `p_uevent_key`. */
    static std::span<const char* const> keys() noexcept { return p_uevent_key; }

    /** The socket, for EPOLLIN; -1 after a move. */
    int32_t descriptor() const noexcept { return events_.is_open() ? events_.get()->fd : -1; }
    /** The record of the C interface; null after a move. */
    norv_uevent_t* get() noexcept { return events_.get(); }

  private:
    friend class uevent_messages;

    uevent() noexcept = default;

    template <typename function>
    status poll_guarded(detail::guarded<function>& receiver) {
        return status(norv_uevent_poll(
            events_.get(),
            [](const uint8_t* message, int64_t length, void* user) {
                (*static_cast<detail::guarded<function>*>(user))(
                    std::string_view(reinterpret_cast<const char*>(message), static_cast<size_t>(length)));
            },
            &receiver));
    }

    detail::owned_record<norv_uevent_t, norv_uevent_close> events_;
};

/** The messages of a receiver, for a task; the receiver must outlive it, and not move. */
class uevent_messages {
  public:
    explicit uevent_messages(uevent& events) : events_(events), ready_(events.descriptor()) {}

    /**
     * Waits until there are messages, and passes all of them to a function, as `uevent::poll` does;
     * `co_await` returns a `status`, or throws the function's exception. The function runs on the loop
     * thread, before the task continues.
     */
    template <typename function>
    auto poll(function handler) {
        return ready_.repeat(EPOLLIN,
                             polling<function>{events_, detail::guarded<function>(std::move(handler)), ok});
    }

  private:
    template <typename function>
    struct polling {
        uevent& events;
        detail::guarded<function> receiver;
        status polled;

        bool step(uint32_t ready) {
            if (ready == 0) {
                return false;
            }
            polled = events.poll_guarded(receiver);
            return receiver.was_called() || !polled.ok();
        }
        status finish(status waited) {
            receiver.rethrow();
            return waited.ok() ? polled : waited;
        }
    };

    uevent& events_;
    readiness ready_;
};

}  // namespace norv
