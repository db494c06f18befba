// SPDX-License-Identifier: MIT
// How the owners in these headers hold what they have opened. They are moved, never copied, and close it when
// they end. An owner that was moved from has nothing: the C functions then get a null pointer and return
// NORV_STATUS_INVALID_ARG.
#pragma once

#include <cstdint>
#include <utility>

#include "norv/status.hpp"

namespace norv::detail {

// A record of the caller's that `close` closes, such as norv_linux_gpio_t.
template <typename record, auto close>
class owned_record {
  public:
    owned_record() noexcept = default;
    owned_record(owned_record&& other) noexcept
        : record_(other.record_), is_open_(std::exchange(other.is_open_, false)) {}
    owned_record& operator=(owned_record&& other) noexcept {
        if (this != &other) {
            reset();
            record_ = other.record_;
            is_open_ = std::exchange(other.is_open_, false);
        }
        return *this;
    }
    owned_record(const owned_record&) = delete;
    owned_record& operator=(const owned_record&) = delete;
    ~owned_record() { reset(); }

    // Takes what `open` fills, a call that returns a status.
    template <typename opening>
    status open(opening fill) {
        reset();
        const status opened(fill(&record_));
        is_open_ = opened.ok();
        return opened;
    }

    void reset() noexcept {
        if (std::exchange(is_open_, false)) {
            close(&record_);
        }
    }

    bool is_open() const noexcept { return is_open_; }
    record* get() noexcept { return is_open_ ? &record_ : nullptr; }
    const record* get() const noexcept { return is_open_ ? &record_ : nullptr; }

  private:
    record record_{};
    bool is_open_ = false;
};

// A handle that an open function allocated, such as norv_uart_t*. The C functions take its address.
template <typename record, auto close>
class owned_handle {
  public:
    owned_handle() noexcept = default;
    owned_handle(owned_handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    owned_handle& operator=(owned_handle&& other) noexcept {
        if (this != &other) {
            reset();
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }
    owned_handle(const owned_handle&) = delete;
    owned_handle& operator=(const owned_handle&) = delete;
    ~owned_handle() { reset(); }

    template <typename opening>
    status open(opening fill) {
        reset();
        const status opened(fill(&handle_));
        if (!opened.ok()) {
            handle_ = nullptr;
        }
        return opened;
    }

    void reset() noexcept {
        if (handle_ != nullptr) {
            close(&handle_);
            handle_ = nullptr;
        }
    }

    bool is_open() const noexcept { return handle_ != nullptr; }
    record* get() const noexcept { return handle_; }
    // The C functions take the variable's address and do not change it, except for close.
    record** address() const noexcept { return handle_ != nullptr ? &handle_ : nullptr; }

  private:
    mutable record* handle_ = nullptr;
};

}  // namespace norv::detail
