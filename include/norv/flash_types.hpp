// SPDX-License-Identifier: MIT
/**
 * @file norv/flash_types.hpp
 * What the flash families share: the geometry, and how an operation of many steps is watched and stopped. How an
 * interrupted update is continued is described in norv_flash_types.h.
 *
 * Such an operation takes two callables, which it calls on its own thread, and does not keep: one for the
 * progress, `void(const norv::flash_progress&)`, and one that stops the operation before its next step if it
 * returns true, `bool()`. Both may be left out; `norv::no_progress` is for an operation that is only to be
 * stopped.
 *
 *     norv::transferred done = flash.continue_read(
 *         0, buffer, [](const norv::flash_progress& step) { std::printf("%u %%\n", step.percentage); },
 *         [&] { return stop.load(); });
 *
 * Where exceptions are on, one that leaves a callable ends the operation before its next step and comes out of
 * the function that was called.
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>
#if defined(__cpp_exceptions)
#include <exception>
#endif

#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv/transfer.hpp"
#include "norv_flash_types.h"

namespace norv {

/** The geometry of a flash. See `norv_flash_info_t`. */
struct flash_info {
    uint64_t size = 0;
    uint32_t erase_block_size = 0;
    uint32_t write_unit_size = 0;
};

/** A step of an operation. See `norv_flash_progress_fn`. */
struct flash_progress {
    norv::status status;
    uint32_t address = 0;
    uint32_t remaining = 0;
    uint32_t percentage = 0;
};

/** How an erase ended: the address after what was erased; after a failure, the end that was given. */
struct [[nodiscard]] flash_erased {
    uint32_t end = 0;
    norv::status status;
};

/**
 * How a write with verification ended: how many bytes were written and verified, also where it failed or was
 * stopped; and where the next one continues, or, after a failure, the end that was given.
 */
struct [[nodiscard]] flash_written {
    size_t count = 0;
    uint32_t end = 0;
    norv::status status;
};

namespace detail {

// A callable that is left out.
struct no_callable {
    void operator()(const flash_progress&) const noexcept {}
    bool operator()() const noexcept { return false; }
};

// What watches an operation while its C function runs.
template <typename progress, typename cancel>
class flash_watcher {
  public:
    flash_watcher(progress& on_progress, cancel& is_stopped) noexcept
        : on_progress_(on_progress), is_stopped_(is_stopped) {}
    flash_watcher(const flash_watcher&) = delete;
    flash_watcher& operator=(const flash_watcher&) = delete;

    // Calls `run` with the two functions of the C interface and their argument. An exception of a callable is
    // thrown again when the C function has returned.
    template <typename function>
    status watch(uint32_t total, function run) {
        remaining_ = total;
        const status ended(run(ask, report, this));
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
#endif
        return ended;
    }

    // Of the last step that was reported. The lengths of the C interface do not have this of an operation that was
    // stopped, nor of a read past the end.
    uint32_t remaining() const noexcept {
        return remaining_;
    }

  private:
    static bool ask(void* user) {
        auto& self = *static_cast<flash_watcher*>(user);
        bool stop = true;
        self.call([&] { stop = self.is_stopped_(); });
        return stop;
    }

    static void report(void* user, uint32_t status_number, uint32_t address, uint32_t remaining,
                       uint32_t percentage) {
        auto& self = *static_cast<flash_watcher*>(user);
        self.remaining_ = remaining;
        self.call([&] {
            self.on_progress_(flash_progress{status(status_number), address, remaining, percentage});
        });
    }

    // After an exception nothing is called any more.
    template <typename function>
    void call(function called) {
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            return;
        }
        try {
            called();
        } catch (...) {
            failure_ = std::current_exception();
        }
#else
        called();
#endif
    }

    progress& on_progress_;
    cancel& is_stopped_;
    uint32_t remaining_ = 0;
#if defined(__cpp_exceptions)
    std::exception_ptr failure_;
#endif
};

// The four kinds of operations, on the C functions of a family.

template <typename function>
result<flash_info> get_flash_info(function get_info) {
    norv_flash_info_t info{};
    const status got(get_info(&info));
    return got.ok() ? result<flash_info>(flash_info{info.size, info.erase_block_size, info.write_unit_size})
                    : result<flash_info>(got);
}

// One system call, whose length the C function changes also where it fails.
template <typename function>
transferred move_once(size_t size, function move) {
    return transfer(size, std::chrono::milliseconds(0),
                    [&](uint32_t* length, int32_t) { return move(length); });
}

template <typename progress, typename cancel, typename function>
status erase_steps(uint32_t length, progress& on_progress, cancel& is_stopped, function erase) {
    return flash_watcher(on_progress, is_stopped).watch(length, erase);
}

// A read or write of many steps.
template <typename progress, typename cancel, typename function>
transferred move_steps(size_t size, progress& on_progress, cancel& is_stopped, function move) {
    // More than an address has bits cannot be on a flash.
    if (!std::in_range<uint32_t>(size)) {
        return {0, status(NORV_STATUS_INVALID_ARG)};
    }
    const auto total = static_cast<uint32_t>(size);
    flash_watcher watcher(on_progress, is_stopped);
    const status ended =
        watcher.watch(total, [&](norv_flash_cancel_fn ask, norv_flash_progress_fn report, void* user) {
            uint32_t length = total;
            return move(&length, ask, report, user);
        });
    return {total - watcher.remaining(), ended};
}

}  // namespace detail

/** In place of a callable for the progress. */
inline constexpr detail::no_callable no_progress{};

}  // namespace norv
