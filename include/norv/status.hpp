// SPDX-License-Identifier: MIT
/**
 * @file norv/status.hpp
 * The status of a call as a type of its own: it has a name and a text, and the compiler warns where one is
 * dropped unseen.
 *
 *     norv::status status = line.set_value(true);
 *     if (!status.ok()) {
 *         std::fprintf(stderr, "%s: %s\n", status.name(), status.text());
 *     }
 *     line.set_value(true).value();  // throws norv::error, or ends the program where exceptions are off
 *
 * These headers need C++20, and nothing but the C interface of the library. They work with and without
 * exceptions and run-time type information.
 */
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#if defined(__cpp_exceptions)
#include <exception>
#endif

#include "norv_base.h"
#include "norv_status.h"

namespace norv {

/** The status that a function of the library returned. */
class [[nodiscard]] status {
  public:
    constexpr status() noexcept = default;
    constexpr explicit status(uint32_t value) noexcept : value_(value) {}

    /** Whether the call succeeded. */
    constexpr bool ok() const noexcept { return value_ == NORV_STATUS_OK; }

    /** The number, as the C interface returns it. */
    constexpr uint32_t number() const noexcept { return value_; }

    /** Returns the name, such as "TIMEOUT"; a string with static lifetime. */
    const char* name() const noexcept { return norv_status_name(value_); }

    /** Returns the text, such as "invalid argument"; a string with static lifetime. */
    const char* text() const noexcept { return norv_status_text(value_); }

    /** Does nothing if the call succeeded; otherwise throws `norv::error`, or ends the program. */
    void value() const;

    /** For a status that does not matter, so that the compiler does not warn. */
    constexpr void ignore() const noexcept {}

    friend constexpr bool operator==(status first, status second) noexcept = default;
    friend constexpr bool operator==(status first, uint32_t second) noexcept {
        return first.value_ == second;
    }

  private:
    uint32_t value_ = NORV_STATUS_OK;
};

/** A status of 0. */
inline constexpr status ok{};

#if defined(__cpp_exceptions)
/** What `value()` throws: the status of the call that failed. */
class error : public std::exception {
  public:
    explicit error(norv::status failed) noexcept : failed_(failed) {}

    /** The status of the call. */
    norv::status status() const noexcept { return failed_; }

    /** The text of the status. */
    const char* what() const noexcept override { return failed_.text(); }

  private:
    norv::status failed_;
};
#endif

namespace detail {

// The end of a call whose failure is not handled.
[[noreturn]] inline void fail(status failed) {
#if defined(__cpp_exceptions)
    throw error(failed);
#else
    std::fprintf(stderr, "norv: %s: %s\n", failed.name(), failed.text());
    std::abort();
#endif
}

}  // namespace detail

inline void status::value() const {
    if (!ok()) {
        detail::fail(*this);
    }
}

}  // namespace norv
