// SPDX-License-Identifier: MIT
/**
 * @file norv/uio.hpp
 * A UIO device that closes itself. What the functions do, and their statuses, are those of norv_uio.h; after
 * a move, those that return a status return NORV_STATUS_INVALID_ARG, and no register may be accessed.
 * Registers and their fields are those of norv/reg.hpp.
 *
 *     constexpr norv::reg control(0x00);
 *     constexpr norv::reg result(0x04);
 *     norv::uio device = norv::uio::open_by_name("fpga-regs").value();
 *     device.write(control, 1);
 *     device.enable_irq().value();
 *     if (device.wait_irq(1s).ok()) {
 *         uint32_t value = device.read(result);
 *     }
 *
 * In a task:
 *
 *     norv::uio_interrupts interrupts(device);
 *     while (device.enable_irq().ok() && (co_await interrupts.next()).ok()) {
 *         ...
 *     }
 */
#pragma once

#include <sys/epoll.h>

#include <cassert>
#include <chrono>
#include <cstdint>
#include <string_view>
#include <utility>

#include "norv/owner.hpp"
#include "norv/reg.hpp"
#include "norv/region.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/timeout.hpp"
#include "norv/wait.hpp"
#include "norv_uio.h"

namespace norv {

/** The kinds of mapped device. */
enum class uio_kind : uint32_t { plain = NORV_UIO_KIND_PLAIN, pci = NORV_UIO_KIND_PCI };

/** What a mapped device is. See `norv_uio_info_t`; what the kernel does not report is 0. */
struct uio_info {
    uio_kind kind = uio_kind::plain;
    uint32_t vendor = 0;
    uint32_t device = 0;
    uint32_t domain = 0;
    uint32_t bus = 0;
    uint32_t slot = 0;
    uint32_t function = 0;
};

namespace detail {

// The device's answer, from a C function that fills a norv_uio_info_t.
template <typename function>
result<uio_info> get_uio_info(function get_info) {
    norv_uio_info_t info{};
    const status got(get_info(&info));
    if (!got.ok()) {
        return got;
    }
    return uio_info{static_cast<uio_kind>(info.kind),
                    info.vendor,
                    info.device,
                    info.domain,
                    info.bus,
                    info.slot,
                    info.function};
}

// The kind alone, which the C functions also report where the identity cannot be read.
template <typename function>
result<uio_kind> get_uio_kind(function get_info) {
    constexpr uint32_t unset = UINT32_MAX;
    norv_uio_info_t info{};
    info.kind = unset;
    const status got(get_info(&info));
    return info.kind != unset ? result<uio_kind>(static_cast<uio_kind>(info.kind)) : result<uio_kind>(got);
}

}  // namespace detail

/** An open UIO device. */
class uio : public detail::register_access<uio> {
  public:
    /** See `norv_uio_get_max_idx`. */
    static result<int32_t> max_index() {
        int32_t index = -1;
        const status found(norv_uio_get_max_idx(&index));
        return found.ok() ? result<int32_t>(index) : result<int32_t>(found);
    }

    /** See `norv_uio_open_by_idx`. */
    static result<uio> open(uint32_t index) {
        return opened([=](norv_uio_t** to) { return norv_uio_open_by_idx(index, to); });
    }
    /** See `norv_uio_open_by_name`. A name of 256 characters or more is an invalid argument. */
    static result<uio> open_by_name(std::string_view name) {
        const detail::c_string text(name);
        return opened([&](norv_uio_t** to) { return norv_uio_open_by_name(text.get(), to); });
    }
    /** See `norv_uio_open_by_pci_id`. */
    static result<uio> open_by_pci_id(uint16_t vendor, uint16_t device) {
        return opened([=](norv_uio_t** to) { return norv_uio_open_by_pci_id(vendor, device, to); });
    }

    /** See `norv_uio_load_pci`. */
    static status load_pci(uint16_t vendor, uint16_t device) {
        return status(norv_uio_load_pci(vendor, device));
    }

    /** See `norv_uio_get_generic_ops`. */
    static const norv_uio_ops_t& generic_operations() noexcept { return *norv_uio_get_generic_ops(); }
    /** See `norv_uio_get_pci_ops`. */
    static const norv_uio_ops_t& pci_operations() noexcept { return *norv_uio_get_pci_ops(); }

    /** See `norv_uio_read_32`; the offset must be within the region, which assert(3) checks. */
    uint32_t read_32(uint32_t offset) const noexcept {
        assert(region_.contains(offset));
        return norv_uio_read_32(device_.address(), offset);
    }
    /** See `norv_uio_write_32`; the offset must be within the region, which assert(3) checks. */
    void write_32(uint32_t offset, uint32_t value) noexcept {
        assert(region_.contains(offset));
        norv_uio_write_32(device_.address(), offset, value);
    }

    /** Where region 0 is mapped; null after a move. See `norv_uio_get_map`. */
    void* map() const noexcept { return device_.is_open() ? norv_uio_get_map(device_.address()) : nullptr; }
    /**
     * The size of region 0 in bytes, of whole pages; 0 if sysfs does not report it, and then no access is
     * checked.
     */
    uint64_t map_size() const noexcept { return region_.size(); }

    /** See `norv_uio_get_info`. */
    result<uio_info> get_info() const {
        return detail::get_uio_info(
            [this](norv_uio_info_t* info) { return norv_uio_get_info(device_.address(), info); });
    }
    /** The kind alone, also where the identity cannot be read. */
    result<uio_kind> get_kind() const {
        return detail::get_uio_kind(
            [this](norv_uio_info_t* info) { return norv_uio_get_info(device_.address(), info); });
    }

    /** See `norv_uio_enable_irq`. */
    status enable_irq() { return status(norv_uio_enable_irq(device_.address())); }
    /** See `norv_uio_disable_irq`. */
    status disable_irq() { return status(norv_uio_disable_irq(device_.address())); }
    /** See `norv_uio_wait_irq`. */
    status wait_irq(timeout limit) {
        return status(norv_uio_wait_irq(device_.address(), static_cast<uint32_t>(limit.ms())));
    }

    /** The descriptor, for EPOLLIN; -1 after a move. */
    int32_t descriptor() const noexcept {
        return device_.is_open() ? norv_uio_get_fd(device_.address()) : -1;
    }
    /** The handle of the C interface; null after a move. */
    norv_uio_t* get() const noexcept { return device_.get(); }

  private:
    friend class mcb_bus;

    uio() noexcept = default;

    template <typename opening>
    static result<uio> opened(opening open_device) {
        uio device;
        const status opened = device.device_.open(open_device);
        if (!opened.ok()) {
            return opened;
        }
        device.region_ = detail::register_region(device.map(), detail::region_size_of(device.descriptor()));
        return device;
    }

    detail::owned_handle<norv_uio_t, norv_uio_close> device_;
    detail::register_region region_;
};

/** The interrupts of a UIO device, for a task; the device must outlive it, and not move. */
class uio_interrupts {
  public:
    explicit uio_interrupts(uio& device) : device_(device), ready_(device.descriptor()) {}

    /**
     * Waits for the next interrupt and takes it, as `uio::wait_irq` does; `co_await` returns a `status`. The
     * driver disables an interrupt when it occurs: enable it before each wait.
     */
    auto next() { return ready_.repeat(EPOLLIN, taking{device_, ok}); }

  private:
    struct taking {
        uio& device;
        status taken;

        bool step(uint32_t events) {
            if (events == 0) {
                return false;
            }
            taken = device.wait_irq(std::chrono::milliseconds(0));
            return taken != NORV_STATUS_TIMEOUT;
        }
        status finish(status waited) const { return waited.ok() ? taken : waited; }
    };

    uio& device_;
    readiness ready_;
};

}  // namespace norv
