// SPDX-License-Identifier: MIT
/**
 * @file norv/can.hpp
 * A channel on a CAN interface that closes itself: a socket that receives the frames of one identifier, or of
 * two. What the functions do, and their statuses, are those of norv_linux_can.h; after a move they return
 * NORV_STATUS_INVALID_ARG.
 *
 *     norv::can speed = norv::can::open("can0", 0x123).value();
 *     norv::result<can_frame> frame = speed.read(1s);
 *
 * In a task:
 *
 *     norv::can_stream stream(speed);
 *     while (norv::result<can_frame> next = co_await stream.read()) {
 *         ...
 *     }
 *
 * Each channel has a context of its own, so channels are independent of each other: they may have the same
 * identifier, and be opened and closed on different threads. They are non-blocking.
 */
#pragma once

#include <linux/can.h>
#include <sys/epoll.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/timeout.hpp"
#include "norv/transfer.hpp"
#include "norv/wait.hpp"
#include "norv_linux_can.h"

namespace norv {

/** An open channel. */
class can {
  public:
    /** How many frames were read, also where that failed, and how it ended. */
    struct [[nodiscard]] frames {
        size_t count = 0;
        norv::status status;
    };

    /**
     * Opens a channel for the frames of one identifier. See `norv_linux_can_open` and `norv_linux_can_raw_add`:
     * only the low 11 bits are compared (quirk 65), a failed bind(2) is EPERM (quirk 66), and a failed socket(2)
     * is EBADF (quirk 69). The interface's name need not end with a NUL; one of more than 15 characters, or one
     * that contains a NUL, is an invalid argument.
     */
    static result<can> open(std::string_view interface_name, uint32_t identifier) {
        return open_with(interface_name, [&](norv_linux_can_t** context, norv_linux_can_raw_t** channel) {
            return norv_linux_can_raw_add(context, 1, identifier, channel);
        });
    }
    /** Opens a channel for the frames of two identifiers. See `norv_linux_can_raw_add_with_alt_id`. */
    static result<can> open(std::string_view interface_name, uint32_t identifier,
                            uint32_t alternative_identifier) {
        return open_with(interface_name, [&](norv_linux_can_t** context, norv_linux_can_raw_t** channel) {
            return norv_linux_can_raw_add_with_alt_id(context, 1, identifier, alternative_identifier,
                                                      channel);
        });
    }

    /** Writes a frame, or, with a limit of 0, tries to. See `norv_linux_can_write`. */
    status write(const can_frame& frame, timeout limit) {
        return detail::transfer(sizeof frame, limit,
                                [&](uint32_t* length, int32_t ms) {
                                    return norv_linux_can_write(get(), &frame, length, ms);
                                })
            .status;
    }

    /** Reads a frame, or, with a limit of 0, one that has arrived. See `norv_linux_can_read`. */
    result<can_frame> read(timeout limit) {
        can_frame frame{};
        const frames read = this->read({&frame, 1}, limit);
        if (!read.status.ok()) {
            return read.status;
        }
        // Linux reads a whole frame.
        return read.count == 1 ? result<can_frame>(frame) : result<can_frame>(status(NORV_STATUS_EMPTY));
    }

    /** Reads until the buffer is full, or, with a limit of 0, one frame that has arrived. */
    frames read(std::span<can_frame> buffer, timeout limit) {
        // A read(2) of 0 bytes would take a frame away.
        if (buffer.empty()) {
            return {0, status(get() != nullptr ? NORV_STATUS_OK : NORV_STATUS_INVALID_ARG)};
        }
        const size_t count = std::min(buffer.size(), UINT32_MAX / sizeof(can_frame));
        const transferred moved =
            detail::transfer(count * sizeof(can_frame), limit, [&](uint32_t* length, int32_t ms) {
                return norv_linux_can_read(get(), buffer.data(), length, ms);
            });
        return {moved.count / sizeof(can_frame), moved.status};
    }

    /** The socket, for EPOLLIN and EPOLLOUT; -1 after a move. */
    int32_t descriptor() const noexcept { return norv_linux_can_get_fd(get()); }
    /** The channel of the C interface; null after a move. */
    norv_linux_can_raw_t* get() const noexcept { return context_.is_open() ? channel_ : nullptr; }

  private:
    can() noexcept = default;

    // A context keeps the address of the interface's name until its channel is added, and not longer.
    template <typename function>
    static result<can> open_with(std::string_view interface_name, function add) {
        can opening;
        const detail::c_string<16> name(interface_name);
        status opened =
            opening.context_.open([&](norv_linux_can_t** to) { return norv_linux_can_open(name.get(), to); });
        if (!opened.ok()) {
            return opened;
        }
        opened = status(add(opening.context_.address(), &opening.channel_));
        if (!opened.ok()) {
            // A channel that could not be added is not the context's: quirk 67.
            norv_linux_can_remove(opening.channel_);
            return opened;
        }
        return opening;
    }

    // The context has one channel, and releases it.
    detail::owned_handle<norv_linux_can_t, norv_linux_can_close> context_;
    norv_linux_can_raw_t* channel_ = nullptr;
};

/**
 * The transfers of a channel, for tasks: one may write while another one reads. The channel must outlive it, and
 * not move.
 */
class can_stream {
  public:
    explicit can_stream(can& channel) : channel_(channel), ready_(channel.descriptor()) {}

    /** Waits for a frame; `co_await` returns a `result<can_frame>`. */
    auto read() { return ready_.repeat(EPOLLIN, reading{channel_}); }

    /** Writes a frame, as soon as there is room for it; `co_await` returns a `status`. */
    auto write(const can_frame& frame) { return ready_.repeat(EPOLLOUT, writing{channel_, frame}); }

  private:
    struct reading {
        can& from;
        result<can_frame> frame = status(NORV_STATUS_AGAIN);

        bool step(uint32_t) {
            frame = from.read(std::chrono::milliseconds(0));
            return frame.status() != NORV_STATUS_AGAIN;
        }
        result<can_frame> finish(status waited) const {
            return waited.ok() ? frame : result<can_frame>(waited);
        }
    };
    struct writing {
        can& to;
        can_frame frame;
        status written{};

        bool step(uint32_t) {
            written = to.write(frame, std::chrono::milliseconds(0));
            return written != NORV_STATUS_AGAIN;
        }
        status finish(status waited) const noexcept { return waited.ok() ? written : waited; }
    };

    can& channel_;
    readiness ready_;
};

}  // namespace norv
