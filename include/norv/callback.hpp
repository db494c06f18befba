// SPDX-License-Identifier: MIT
/**
 * @file norv/callback.hpp
 * Any callable of one signature, kept in the object itself: nothing is allocated.
 *
 * The registrations of `norv/loop.hpp` keep a lambda with its own type. Where a member of a class needs a type with a
 * name, this one holds every lambda that captures no more than four pointers.
 */
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace norv {

template <typename signature, size_t capacity = 4 * sizeof(void*)>
class callback;

/** A callable for `result(arguments...)`, or none. Can be moved, not copied. */
template <typename result, typename... arguments, size_t capacity>
class callback<result(arguments...), capacity> {
  public:
    callback() noexcept = default;

    /** Takes the callable. One that does not fit, or that cannot be moved without an exception, does not compile. */
    template <typename function>
    requires(!std::is_same_v<std::remove_cvref_t<function>, callback> &&
             std::is_invocable_r_v<result, std::decay_t<function>&, arguments...>)
        callback(function&& callable) {
        using kept = std::decay_t<function>;
        static_assert(sizeof(kept) <= capacity, "the callable is too large: capture a pointer to its data");
        static_assert(alignof(kept) <= alignof(std::max_align_t));
        static_assert(std::is_nothrow_move_constructible_v<kept>);
        new (place_) kept(std::forward<function>(callable));
        operations_ = &operations_of<kept>;
    }

    callback(callback&& other) noexcept { take(other); }
    callback& operator=(callback&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    callback(const callback&) = delete;
    callback& operator=(const callback&) = delete;
    ~callback() { reset(); }

    /** Whether there is a callable. */
    explicit operator bool() const noexcept { return operations_ != nullptr; }

    /** Calls it; there must be one. */
    result operator()(arguments... values) {
        return operations_->call(place_, std::forward<arguments>(values)...);
    }

    /** Destroys the callable. */
    void reset() noexcept {
        if (const operations* const present = std::exchange(operations_, nullptr)) {
            present->destroy(place_);
        }
    }

  private:
    struct operations {
        result (*call)(void* place, arguments... values);
        void (*move)(void* from, void* to);
        void (*destroy)(void* place);
    };

    template <typename kept>
    static constexpr operations operations_of = {
        [](void* place, arguments... values) -> result {
            return (*static_cast<kept*>(place))(std::forward<arguments>(values)...);
        },
        [](void* from, void* to) { new (to) kept(std::move(*static_cast<kept*>(from))); },
        [](void* place) { static_cast<kept*>(place)->~kept(); },
    };

    void take(callback& other) noexcept {
        if (other.operations_ != nullptr) {
            other.operations_->move(other.place_, place_);
            operations_ = other.operations_;
            other.reset();
        }
    }

    alignas(std::max_align_t) std::byte place_[capacity];
    const operations* operations_ = nullptr;
};

}  // namespace norv
