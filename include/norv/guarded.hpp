// SPDX-License-Identifier: MIT
// Callables that C functions call.
#pragma once

#include <utility>
#if defined(__cpp_exceptions)
#include <exception>
#endif

namespace norv::detail {

// A callable that is called from a C function, through which no exception may pass: one that leaves the
// callable is kept until `rethrow`, and the callable is not called again. `function` is a reference type
// where the callable stays its caller's.
template <typename function>
class guarded {
  public:
    explicit guarded(function&& called) : called_(std::forward<function>(called)) {}

    template <typename... arguments>
    void operator()(arguments... values) noexcept {
        was_called_ = true;
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            return;
        }
        try {
            called_(values...);
        } catch (...) {
            failure_ = std::current_exception();
        }
#else
        called_(values...);
#endif
    }

    // Whether there was a call.
    bool was_called() const noexcept {
        return was_called_;
    }

    void rethrow() {
#if defined(__cpp_exceptions)
        if (failure_ != nullptr) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
#endif
    }

  private:
    function called_;
    bool was_called_ = false;
#if defined(__cpp_exceptions)
    std::exception_ptr failure_;
#endif
};

}  // namespace norv::detail
