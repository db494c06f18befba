// SPDX-License-Identifier: MIT
/**
 * @file norv/uevent_parse.hpp
 * The live list of the board's USB devices, and the changes of display connectors, closing itself. What the
 * functions do, and their statuses, are those of norv_uevent_parse.h; after a move they return
 * NORV_STATUS_INVALID_ARG.
 *
 *     auto on_change = [](const norv_uevent_device_t* device) {
 *         if (device != nullptr) {
 *             std::printf("%d %s\n", device->action, device->syspath);
 *         }
 *     };
 *     using norv::uevent_parse;
 *     uevent_parse parser = uevent_parse::open(uevent_parse::filter::usb, on_change).value();
 *     parser.poll(on_change).value();
 *     const uevent_parse::device_list devices = parser.devices().value();
 *     for (const norv_uevent_device_t& device : devices) {
 *         std::puts(device.product_name);
 *     }
 *
 * In a task:
 *
 *     norv::uevent_parse_changes changes(parser);
 *     while ((co_await changes.poll(on_change)).ok()) {
 *         ...
 *     }
 *
 * A function for changes, `void(const norv_uevent_device_t*)`, is called while an open or poll function of
 * this header runs, on its thread. It gets what `norv_uevent_parse_handler` describes, a device or a
 * connector, or null for a node that belongs to no listed device, where the C handler gets the list's head
 * (quirk 113). It must not open, poll, move or end this object; during a removal `devices()` would wait
 * forever (quirk 116). An exception of the function is thrown by the open or poll function, at its end; the
 * function is not called again for the changes after it, but these are applied to the list.
 */
#pragma once

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>

#include "norv/guarded.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/wait.hpp"
#include "norv_uevent_parse.h"

namespace norv {

namespace detail {

// What a running open or poll function calls. The C handler's `user` cannot lead to it: that is fixed by the
// open function, but owners move.
class uevent_observer {
  public:
    uevent_observer(norv_uevent_parse_t** context, const norv_uevent_device_list_t* list,
                    void (*call)(void* to, const norv_uevent_device_t* device), void* to) noexcept
        : context_(context), list_(list), call_(call), to_(to), outer_(std::exchange(current, this)) {}
    uevent_observer(const uevent_observer&) = delete;
    uevent_observer& operator=(const uevent_observer&) = delete;
    ~uevent_observer() { current = outer_; }

    // The C handler. Nothing runs if the handle is given to a C function.
    static void report(const norv_uevent_device_t* device, void*) {
        if (current != nullptr && current->knows_list()) {
            const bool is_head = &device->link == &current->list_->devices;
            current->call_(current->to_, is_head ? nullptr : device);
        }
    }

  private:
    // While the open function runs, the first call asks for the list: it is never a removal.
    bool knows_list() noexcept {
        return list_ != nullptr || norv_uevent_parse_get_device(context_, &list_) == NORV_STATUS_OK;
    }

    static inline thread_local constinit uevent_observer* current = nullptr;

    norv_uevent_parse_t** context_;
    const norv_uevent_device_list_t* list_;
    void (*call_)(void* to, const norv_uevent_device_t* device);
    void* to_;
    uevent_observer* outer_;
};

}  // namespace detail

/** The records of a circular list; valid as long as they are. */
template <typename record>
class uevent_records {
  public:
    class iterator {
      public:
        using value_type = record;
        using difference_type = std::ptrdiff_t;
        using reference = const record&;
        using pointer = const record*;
        using iterator_category = std::forward_iterator_tag;

        iterator() noexcept = default;
        explicit iterator(const norv_uevent_link_t* at) noexcept : at_(at) {}

        const record& operator*() const noexcept { return *reinterpret_cast<const record*>(at_); }
        const record* operator->() const noexcept { return &**this; }
        iterator& operator++() noexcept {
            at_ = at_->next;
            return *this;
        }
        iterator operator++(int) noexcept { return iterator(std::exchange(at_, at_->next)); }
        friend bool operator==(iterator first, iterator second) noexcept = default;

      private:
        const norv_uevent_link_t* at_ = nullptr;
    };

    uevent_records(const norv_uevent_link_t& head, uint32_t count) noexcept : head_(&head), count_(count) {}

    iterator begin() const noexcept { return iterator(head_->next); }
    iterator end() const noexcept { return iterator(head_); }
    uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return head_->next == head_; }

  private:
    const norv_uevent_link_t* head_;
    uint32_t count_;
};

/** An open list. */
class uevent_parse {
  public:
    /** What is tracked. */
    enum class filter : uint32_t {
        none = 0,
        usb = NORV_UEVENT_FILTER_USB,
        display = NORV_UEVENT_FILTER_DISPLAY,
        all = NORV_UEVENT_FILTER_USB | NORV_UEVENT_FILTER_DISPLAY
    };
    /** What happened to a device. */
    enum class action : int32_t {
        none = NORV_UEVENT_ACTION_NONE,
        add = NORV_UEVENT_ACTION_ADD,
        remove = NORV_UEVENT_ACTION_REMOVE,
        change = NORV_UEVENT_ACTION_CHANGE
    };
    using device_list = uevent_records<norv_uevent_device_t>;
    using child_list = uevent_records<norv_uevent_child_t>;

    /** See `norv_uevent_parse_open`; calls the function for what it finds. 8192 is enough for the buffer. */
    template <typename function>
    requires std::is_invocable_v<function&, const norv_uevent_device_t*>
    static result<uevent_parse> open(filter tracked, function&& on_change, uint32_t buffer_size = 8192) {
        detail::guarded<function&> receiver(on_change);
        result<uevent_parse> opened = opened_with(tracked, buffer_size, receiver);
        receiver.rethrow();
        return opened;
    }
    /** The same, without a function. */
    static result<uevent_parse> open(filter tracked, uint32_t buffer_size = 8192) {
        return open(
            tracked, [](const norv_uevent_device_t*) {}, buffer_size);
    }

    /** See `norv_uevent_parse_poll`; calls the function for each change. */
    template <typename function>
    status poll(function&& on_change) {
        detail::guarded<function&> receiver(on_change);
        const status polled = poll_guarded(receiver);
        receiver.rethrow();
        return polled;
    }
    /** The same, without a function. */
    status poll() {
        return poll([](const norv_uevent_device_t*) {});
    }

    /** See `norv_uevent_parse_set_filter`. */
    status set_filter(filter tracked) {
        return status(norv_uevent_parse_set_filter(context_.address(), static_cast<uint32_t>(tracked)) !=
                              nullptr
                          ? NORV_STATUS_OK
                          : NORV_STATUS_INVALID_ARG);
    }

    /**
     * The devices, oldest first. See `norv_uevent_parse_get_device`: do not read it while another thread
     * polls.
     */
    result<device_list> devices() const {
        const norv_uevent_device_list_t* list = nullptr;
        const status got(norv_uevent_parse_get_device(context_.address(), &list));
        return got.ok() ? result<device_list>(device_list(list->devices, list->count))
                        : result<device_list>(got);
    }
    /** The nodes of a device. */
    static child_list children_of(const norv_uevent_device_t& device) noexcept {
        return {device.children, device.child_count};
    }
    /** What happened to a device. */
    static action action_of(const norv_uevent_device_t& device) noexcept {
        return static_cast<action>(device.action);
    }

    /** The socket, for EPOLLIN; -1 after a move, or without a socket. */
    int32_t descriptor() const noexcept { return norv_uevent_parse_get_fd(context_.address()); }
    /** The handle of the C interface; null after a move. */
    norv_uevent_parse_t* get() const noexcept { return context_.get(); }

    /** See `_v4l2_check_valid`. A path of 4096 characters or more is an invalid argument. */
    static status check_video_node(std::string_view path) {
        const detail::c_string<4096> node(path);
        return status(_v4l2_check_valid(node.get()));
    }

  private:
    friend class uevent_parse_changes;

    uevent_parse() noexcept = default;

    template <typename function>
    static void call(void* receiver, const norv_uevent_device_t* device) {
        (*static_cast<detail::guarded<function>*>(receiver))(device);
    }

    template <typename function>
    static result<uevent_parse> opened_with(filter tracked, uint32_t buffer_size,
                                            detail::guarded<function>& receiver) {
        uevent_parse parser;
        const norv_uevent_parse_settings_t settings = {static_cast<uint32_t>(tracked), buffer_size,
                                                       detail::uevent_observer::report, nullptr};
        const status opened = parser.context_.open([&](norv_uevent_parse_t** to) {
            const detail::uevent_observer observer(to, nullptr, call<function>, &receiver);
            return norv_uevent_parse_open(to, &settings);
        });
        if (!opened.ok()) {
            return opened;
        }
        const status listed(norv_uevent_parse_get_device(parser.context_.address(), &parser.list_));
        return listed.ok() ? result<uevent_parse>(std::move(parser)) : result<uevent_parse>(listed);
    }

    template <typename function>
    status poll_guarded(detail::guarded<function>& receiver) {
        const detail::uevent_observer observer(context_.address(), list_, call<function>, &receiver);
        return status(norv_uevent_parse_poll(context_.address()));
    }

    detail::owned_handle<norv_uevent_parse_t, norv_uevent_parse_close> context_;
    const norv_uevent_device_list_t* list_ = nullptr;
};

/** Joins filters. */
constexpr uevent_parse::filter operator|(uevent_parse::filter first, uevent_parse::filter second) noexcept {
    return static_cast<uevent_parse::filter>(static_cast<uint32_t>(first) | static_cast<uint32_t>(second));
}

/** The changes of a list, for a task; the list must outlive it, and not move. */
class uevent_parse_changes {
  public:
    explicit uevent_parse_changes(uevent_parse& parser) : parser_(parser), ready_(parser.descriptor()) {}

    /**
     * Waits until something has changed, and calls a function for all changes that are there, as
     * `uevent_parse::poll` does; `co_await` returns a `status`, or throws the function's exception. The
     * function runs on the loop thread, before the task continues. Messages that change nothing do not end
     * the wait.
     */
    template <typename function>
    auto poll(function on_change) {
        return ready_.repeat(EPOLLIN,
                             polling<function>{parser_, detail::guarded<function>(std::move(on_change)), ok});
    }

  private:
    template <typename function>
    struct polling {
        uevent_parse& parser;
        detail::guarded<function> receiver;
        status polled;

        bool step(uint32_t ready) {
            if (ready == 0) {
                return false;
            }
            polled = parser.poll_guarded(receiver);
            return receiver.was_called() || !polled.ok();
        }
        status finish(status waited) {
            receiver.rethrow();
            return waited.ok() ? polled : waited;
        }
    };

    uevent_parse& parser_;
    readiness ready_;
};

}  // namespace norv
