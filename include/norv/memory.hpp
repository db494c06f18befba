// SPDX-License-Identifier: MIT
/**
 * @file norv/memory.hpp
 * Memory of norv_base.h: a block that frees itself, and an allocator for the containers of the standard library.
 *
 *     norv::result<norv::memory> block = norv::memory::allocate_zeroed(4096);
 *     if (!block) {
 *         return block.status();
 *     }
 *     std::span<std::byte> bytes = block->bytes();
 *     std::vector<int, norv::allocator<int>> numbers = {1, 2, 3};
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

#include "norv/result.hpp"
#include "norv/status.hpp"
#include "norv_base.h"

namespace norv {

/** A block of memory. One that was moved from has none. */
class memory {
  public:
    /** See `norv_malloc`. Out of memory: NORV_STATUS_NO_MEMORY. */
    static result<memory> allocate(size_t size) { return take(norv_malloc(size_of(size)), size); }
    /** See `norv_zalloc`. Out of memory: NORV_STATUS_NO_MEMORY. */
    static result<memory> allocate_zeroed(size_t size) { return take(norv_zalloc(size_of(size)), size); }

    memory(memory&& other) noexcept
        : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    memory& operator=(memory&& other) noexcept {
        if (this != &other) {
            norv_free(bytes_);
            bytes_ = std::exchange(other.bytes_, nullptr);
            size_ = std::exchange(other.size_, 0);
        }
        return *this;
    }
    memory(const memory&) = delete;
    memory& operator=(const memory&) = delete;
    ~memory() { norv_free(bytes_); }

    /** The block; empty after a move. */
    std::span<std::byte> bytes() noexcept { return {static_cast<std::byte*>(bytes_), size_}; }
    std::span<const std::byte> bytes() const noexcept {
        return {static_cast<const std::byte*>(bytes_), size_};
    }

    /** Gives the block up to the caller, who frees it with `norv_free`. */
    void* release() noexcept {
        size_ = 0;
        return std::exchange(bytes_, nullptr);
    }

  private:
    memory(void* bytes, size_t size) noexcept : bytes_(bytes), size_(size) {}

    // For a size of 0 a null pointer would not be a failure.
    static size_t size_of(size_t size) noexcept { return size != 0 ? size : 1; }
    static result<memory> take(void* bytes, size_t size) {
        return bytes != nullptr ? result<memory>(memory(bytes, size))
                                : result<memory>(status(NORV_STATUS_NO_MEMORY));
    }

    void* bytes_;
    size_t size_;
};

/**
 * An allocator over `norv_malloc` and `norv_free`. Without memory it throws `norv::error`, or ends the program
 * where exceptions are off.
 */
template <typename T>
class allocator {
  public:
    using value_type = T;
    using is_always_equal = std::true_type;
    using propagate_on_container_move_assignment = std::true_type;

    static_assert(alignof(T) <= alignof(std::max_align_t), "norv_malloc does not align any further");

    constexpr allocator() noexcept = default;
    template <typename U>
    constexpr allocator(const allocator<U>&) noexcept {}

    /** Returns memory for `count` objects, which are not constructed. */
    [[nodiscard]] T* allocate(size_t count) {
        void* const bytes = count <= SIZE_MAX / sizeof(T) ? norv_malloc(count * sizeof(T)) : nullptr;
        if (bytes == nullptr) {
            detail::fail(status(NORV_STATUS_NO_MEMORY));
        }
        return static_cast<T*>(bytes);
    }
    /** Frees what `allocate` returned. */
    void deallocate(T* objects, size_t) noexcept { norv_free(objects); }

    friend constexpr bool operator==(allocator, allocator) noexcept { return true; }
};

}  // namespace norv
