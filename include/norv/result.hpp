// SPDX-License-Identifier: MIT
/**
 * @file norv/result.hpp
 * The value of a call, or the status with which it failed.
 *
 *     norv::result<norv::gpio> button = norv::gpio::open(17);
 *     if (!button) {
 *         return button.status();
 *     }
 *     norv::result<bool> level = button->get_value();
 *     bool pressed = level.value();  // throws norv::error, or ends the program where exceptions are off
 */
#pragma once

#include <optional>
#include <type_traits>
#include <utility>

#include "norv/status.hpp"

namespace norv {

/** A value of type T, or a status that is not 0. */
template <typename T>
class [[nodiscard]] result {
    static_assert(!std::is_same_v<std::remove_cv_t<T>, norv::status>, "use norv::status itself");

  public:
    using value_type = T;

    /** A failure. The status must not be 0. */
    constexpr result(norv::status failed) noexcept : status_(failed) {}

    /** A success. */
    template <typename U = T>
    requires(std::is_constructible_v<T, U> && !std::is_same_v<std::remove_cvref_t<U>, result> &&
             !std::is_same_v<
                 std::remove_cvref_t<U>,
                 norv::status>) constexpr result(U&& value) noexcept(std::is_nothrow_constructible_v<T, U>)
        : value_(std::forward<U>(value)) {}

    /** Whether there is a value. */
    constexpr bool has_value() const noexcept { return value_.has_value(); }
    constexpr explicit operator bool() const noexcept { return value_.has_value(); }

    /** The status of the call: 0 if there is a value. */
    constexpr norv::status status() const noexcept { return status_; }

    /** Returns the value; without one, throws `norv::error` or ends the program. */
    constexpr T& value() & { return *checked(*this).value_; }
    constexpr const T& value() const& { return *checked(*this).value_; }
    // Not a reference: a range-based for over the value would outlive the temporary.
    constexpr T value() && { return *std::move(checked(*this).value_); }

    /** Returns the value, or another one in place of a value that is not there. */
    template <typename U>
    constexpr T value_or(U&& other) const& {
        return value_.value_or(std::forward<U>(other));
    }
    template <typename U>
    constexpr T value_or(U&& other) && {
        return std::move(value_).value_or(std::forward<U>(other));
    }

    /** Returns the value, which must be there. */
    constexpr T& operator*() & noexcept { return *value_; }
    constexpr const T& operator*() const& noexcept { return *value_; }
    constexpr T&& operator*() && noexcept { return *std::move(value_); }
    constexpr T* operator->() noexcept { return &*value_; }
    constexpr const T* operator->() const noexcept { return &*value_; }

  private:
    template <typename self>
    static constexpr self& checked(self& of) {
        of.status_.value();
        return of;
    }

    std::optional<T> value_;
    norv::status status_;
};

}  // namespace norv
