// SPDX-License-Identifier: MIT
/**
 * @file norv/dma.hpp
 * DMA buffers that unmap, unlock and close themselves, and their manager. What the functions do, and their
 * statuses, are those of norv_linux_dma.h; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::dma_manager manager = norv::dma_manager::open().value();
 *     norv::dma_buffer buffer = norv::dma_buffer::create(manager, 4096).value();
 *     std::span<std::byte> memory = buffer.map().value();
 *     buffer.start_access().value();
 *     std::fill(memory.begin(), memory.end(), std::byte(0xA5));
 *     buffer.end_access().value();
 *
 * The manager may move, and end before its buffers: those can still be mapped and synchronised, but no longer
 * locked. The descriptor to which the C functions refer is in a small record of its own, which is allocated
 * when the manager is opened.
 */
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv_base.h"
#include "norv_linux_dma.h"

namespace norv {

namespace detail {

// The variable that holds the manager's descriptor, for as long as the manager or a buffer refers to it.
class dma_variable {
  public:
    // Null without memory.
    static dma_variable* create() noexcept {
        void* const memory = norv_malloc(sizeof(dma_variable));
        return memory != nullptr ? new (memory) dma_variable : nullptr;
    }

    void add_reference() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void drop_reference() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            this->~dma_variable();
            norv_free(this);
        }
    }

    int32_t descriptor = -1;

  private:
    dma_variable() noexcept = default;
    ~dma_variable() = default;

    std::atomic<uint32_t> references_ = 1;
};

// A share in it, or none.
class dma_share {
  public:
    dma_share() noexcept = default;
    explicit dma_share(dma_variable* variable) noexcept : variable_(variable) {}
    dma_share(dma_share&& other) noexcept : variable_(std::exchange(other.variable_, nullptr)) {}
    dma_share& operator=(dma_share&& other) noexcept {
        std::swap(variable_, other.variable_);
        return *this;
    }
    dma_share(const dma_share&) = delete;
    dma_share& operator=(const dma_share&) = delete;
    ~dma_share() {
        if (variable_ != nullptr) {
            variable_->drop_reference();
        }
    }

    // Another share in the same variable.
    dma_share copy() const noexcept {
        if (variable_ != nullptr) {
            variable_->add_reference();
        }
        return dma_share(variable_);
    }

    int32_t* get() const noexcept { return variable_ != nullptr ? &variable_->descriptor : nullptr; }

  private:
    dma_variable* variable_ = nullptr;
};

}  // namespace detail

/** The open manager. */
class dma_manager {
  public:
    /** See `norv_linux_dma_create_mgr`; also NORV_STATUS_NO_MEMORY. */
    static result<dma_manager> open() {
        dma_manager manager;
        manager.variable_ = detail::dma_share(detail::dma_variable::create());
        if (manager.variable_.get() == nullptr) {
            return status(NORV_STATUS_NO_MEMORY);
        }
        const status opened(norv_linux_dma_create_mgr(manager.variable_.get()));
        return opened.ok() ? result<dma_manager>(std::move(manager)) : result<dma_manager>(opened);
    }

    dma_manager(dma_manager&&) noexcept = default;
    dma_manager& operator=(dma_manager&& other) noexcept {
        if (this != &other) {
            close();
            variable_ = detail::dma_share(std::move(other.variable_));
        }
        return *this;
    }
    ~dma_manager() { close(); }

    /** The descriptor; -1 after a move. */
    int32_t descriptor() const noexcept { return variable_.get() != nullptr ? *variable_.get() : -1; }

  private:
    friend class dma_buffer;

    dma_manager() noexcept = default;

    void close() noexcept { norv_linux_dma_destory_mgr(variable_.get()); }

    detail::dma_share variable_;
};

/** A buffer. */
class dma_buffer {
  public:
    /** Where the driver takes the memory from. */
    enum class memory { driver_default, kmalloc, cma, reserved };
    /** A scatter-gather entry, whose contents the driver defines. */
    using entry = std::array<std::byte, NORV_LINUX_DMA_SG_ENTRY_SIZE>;

    /** See `norv_linux_dma_create_mem`, `_create_by_kmalloc`, `_create_by_cma` and `_create_by_reserved`. */
    static result<dma_buffer> create(const dma_manager& manager, uint64_t size,
                                     memory from = memory::driver_default) {
        return created(manager, size, [&](int32_t* variable, norv_linux_dma_t** to) {
            switch (from) {
                case memory::kmalloc:
                    return norv_linux_dma_create_by_kmalloc(variable, size, to);
                case memory::cma:
                    return norv_linux_dma_create_by_cma(variable, size, to);
                case memory::reserved:
                    return norv_linux_dma_create_by_reserved(variable, size, to);
                default:
                    return norv_linux_dma_create_mem(variable, size, to);
            }
        });
    }
    /**
     * Makes a buffer of the program's own memory, which must outlive it. See
     * `norv_linux_dma_create_by_user_ptr`.
     */
    static result<dma_buffer> create_of(const dma_manager& manager, std::span<std::byte> own) {
        return created(manager, own.size(), [&](int32_t* variable, norv_linux_dma_t** to) {
            return norv_linux_dma_create_by_user_ptr(variable, own.data(), own.size(), to);
        });
    }
    /**
     * Makes a buffer of a dma-buf, whose descriptor stays the caller's. See `norv_linux_dma_create_by_fd`.
     */
    static result<dma_buffer> create_from_descriptor(const dma_manager& manager, int32_t descriptor,
                                                     uint64_t size) {
        return created(manager, size, [&](int32_t* variable, norv_linux_dma_t** to) {
            return norv_linux_dma_create_by_fd(variable, descriptor, size, to);
        });
    }

    dma_buffer(dma_buffer&& other) noexcept
        : variable_(std::move(other.variable_)),
          buffer_(std::move(other.buffer_)),
          size_(other.size_),
          may_be_locked_(std::exchange(other.may_be_locked_, false)) {}
    dma_buffer& operator=(dma_buffer&& other) noexcept {
        if (this != &other) {
            end();
            buffer_ = std::move(other.buffer_);
            variable_ = std::move(other.variable_);
            size_ = other.size_;
            may_be_locked_ = std::exchange(other.may_be_locked_, false);
        }
        return *this;
    }
    /** Unmaps, unlocks and destroys the buffer. */
    ~dma_buffer() { end(); }

    /**
     * Maps the whole buffer. See `norv_linux_dma_map_mem`; where that returns a null address, the span is
     * empty.
     */
    result<std::span<std::byte>> map() {
        void* address = nullptr;
        const status mapped(norv_linux_dma_map_mem(buffer_.address(), &address));
        if (!mapped.ok()) {
            return mapped;
        }
        return std::span(static_cast<std::byte*>(address),
                         address != nullptr ? static_cast<size_t>(size_) : 0);
    }
    /** See `norv_linux_dma_unmap_mem`. */
    status unmap() { return status(norv_linux_dma_unmap_mem(buffer_.address())); }

    /**
     * Locks the buffer, and returns its pieces, valid until it is locked again or unlocked. See
     * `norv_linux_dma_lock_mem`. Once the driver was asked to lock it, the buffer is unlocked at its end,
     * once.
     */
    result<std::span<const entry>> lock() {
        void* entries = nullptr;
        uint64_t count = 0;
        may_be_locked_ = buffer_.is_open();
        const status locked(norv_linux_dma_lock_mem(buffer_.address(), &entries, &count));
        if (!locked.ok()) {
            return locked;
        }
        return std::span(static_cast<const entry*>(entries), static_cast<size_t>(count));
    }
    /** See `norv_linux_dma_unlock_mem`. */
    status unlock() {
        may_be_locked_ = false;
        return status(norv_linux_dma_unlock_mem(buffer_.address()));
    }

    /** Makes what the device wrote visible to the processor: `norv_linux_dma_sync` with false. */
    status start_access() { return status(norv_linux_dma_sync(buffer_.address(), false)); }
    /** Makes what the processor wrote visible to the device: `norv_linux_dma_sync` with true. */
    status end_access() { return status(norv_linux_dma_sync(buffer_.address(), true)); }
    /** See `norv_linux_dma_sg_sync`. */
    status sync_entries(bool direction, uint64_t value64, uint32_t value32) {
        return status(norv_linux_dma_sg_sync(buffer_.address(), direction, value64, value32));
    }

    /** The dma-buf; -1 after a move. */
    int32_t descriptor() const noexcept { return norv_linux_dma_get_fd(buffer_.address()); }
    /** The handle of the C interface; null after a move. */
    norv_linux_dma_t* get() const noexcept { return buffer_.get(); }

  private:
    dma_buffer() noexcept = default;

    template <typename creation>
    static result<dma_buffer> created(const dma_manager& manager, uint64_t size, creation create_buffer) {
        dma_buffer buffer;
        buffer.variable_ = manager.variable_.copy();
        buffer.size_ = size;
        const status created = buffer.buffer_.open(
            [&](norv_linux_dma_t** to) { return create_buffer(buffer.variable_.get(), to); });
        return created.ok() ? result<dma_buffer>(std::move(buffer)) : result<dma_buffer>(created);
    }

    // The C function that destroys a buffer leaves its mapping and its lock (quirk 89).
    void end() noexcept {
        if (buffer_.is_open()) {
            unmap().ignore();
            if (may_be_locked_) {
                unlock().ignore();
            }
            buffer_.reset();
        }
    }

    detail::dma_share variable_;
    detail::owned_handle<norv_linux_dma_t, norv_linux_dma_destroy> buffer_;
    uint64_t size_ = 0;
    bool may_be_locked_ = false;
};

}  // namespace norv
