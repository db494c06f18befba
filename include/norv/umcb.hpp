// SPDX-License-Identifier: MIT
/**
 * @file norv/umcb.hpp
 * A UMCB device, and its interrupt sources, that close themselves. What the functions do, and their statuses,
 * are those of norv_umcb.h; after a move, those that return a status return NORV_STATUS_INVALID_ARG, and no
 * register may be accessed. Registers and their fields are those of norv/reg.hpp.
 *
 *     norv::umcb device = norv::umcb::open(0).value();
 *     device.set_irq_type(1).value();
 *     norv::umcb_irq source = device.register_irq(3).value();
 *     device.enable_irqs().value();
 *     source.enable().value();
 *     while (source.wait(1s).ok()) {
 *         uint32_t value = device.read(norv::reg(0x10));
 *     }
 *
 * In a task:
 *
 *     norv::umcb_events events(source);
 *     while ((co_await events.next()).ok()) {
 *         ...
 *     }
 */
#pragma once

#include <sys/epoll.h>
#include <unistd.h>

#include <cassert>
#include <cstdint>
#include <string_view>
#include <utility>

#include "norv/descriptor.hpp"
#include "norv/owner.hpp"
#include "norv/reg.hpp"
#include "norv/region.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/timeout.hpp"
#include "norv/uio.hpp"
#include "norv/wait.hpp"
#include "norv_umcb.h"

namespace norv {

/** An interrupt source of a UMCB device. It may outlive the device. */
class umcb_irq {
  public:
    /** See `norv_umcb_irq_enable`. */
    status enable() { return on_source(norv_umcb_irq_enable); }
    /** See `norv_umcb_irq_disable`. */
    status disable() { return on_source(norv_umcb_irq_disable); }
    /** See `norv_umcb_irq_clear_event`. */
    status clear_event() { return on_source(norv_umcb_irq_clear_event); }
    /** See `norv_umcb_irq_wait`. */
    status wait(timeout limit) {
        return on_source([limit](int32_t source) {
            return norv_umcb_irq_wait(source, static_cast<uint32_t>(limit.ms()));
        });
    }

    /** The descriptor, for EPOLLPRI; -1 after a move. */
    int32_t descriptor() const noexcept { return source_.get(); }

  private:
    friend class umcb;

    explicit umcb_irq(int32_t descriptor) noexcept : source_(descriptor) {}

    template <typename function>
    status on_source(function call) {
        return status(source_.is_open() ? call(source_.get()) : NORV_STATUS_INVALID_ARG);
    }

    detail::owned_descriptor<::close> source_;
};

/** An open UMCB device. */
class umcb : public detail::register_access<umcb> {
  public:
    /** The mode of an open function that sets none. */
    static constexpr int32_t no_mode = -1;

    /** See `norv_umcb_get_max_idx`: only entries uioN count (quirk 162). */
    static result<int32_t> max_index() {
        int32_t index = -1;
        const status found(norv_umcb_get_max_idx(&index));
        return found.ok() ? result<int32_t>(index) : result<int32_t>(found);
    }

    /** See `norv_umcb_open_by_idx`. */
    static result<umcb> open(uint32_t index, int32_t mode = no_mode) {
        result<umcb> device =
            opened([=](norv_umcb_t** to) { return norv_umcb_open_by_idx(index, mode, to); });
        if (device) {
            device->region_ = detail::register_region(
                device->map(), detail::read_region_size("/sys/class/umcb/umcb%d/maps/map0/size",
                                                        static_cast<int32_t>(index)));
        }
        return device;
    }
    /**
     * Opens umcb0, whichever device has the name (quirk 163). See `norv_umcb_open_by_name`. A name of 256
     * characters or more is an invalid argument.
     */
    static result<umcb> open_by_name(std::string_view name, int32_t mode = no_mode) {
        const detail::c_string text(name);
        return opened([&](norv_umcb_t** to) { return norv_umcb_open_by_name(text.get(), mode, to); });
    }
    /** Opens umcb0, whichever device has the identity (quirk 163). See `norv_umcb_open_by_pci_id`. */
    static result<umcb> open_by_pci_id(uint16_t vendor, uint16_t device, int32_t mode = no_mode) {
        return opened([=](norv_umcb_t** to) { return norv_umcb_open_by_pci_id(vendor, device, mode, to); });
    }

    /** See `norv_umcb_load_pci`. */
    static status load_pci(uint16_t vendor, uint16_t device) {
        return status(norv_umcb_load_pci(vendor, device));
    }

    /** See `norv_umcb_get_pci_ops`. */
    static const norv_umcb_ops_t& pci_operations() noexcept { return *norv_umcb_get_pci_ops(); }

    /** See `norv_umcb_read_32`; the offset must be within the region, which assert(3) checks. */
    uint32_t read_32(uint32_t offset) const noexcept {
        assert(region_.contains(offset));
        return norv_umcb_read_32(device_.address(), offset);
    }
    /** See `norv_umcb_write_32`; the offset must be within the region, which assert(3) checks. */
    void write_32(uint32_t offset, uint32_t value) noexcept {
        assert(region_.contains(offset));
        norv_umcb_write_32(device_.address(), offset, value);
    }

    /** Where region 0 is mapped; null after a move. See `norv_umcb_get_map`. */
    void* map() const noexcept { return device_.is_open() ? norv_umcb_get_map(device_.address()) : nullptr; }
    /**
     * The size of region 0 in bytes, of whole pages; 0 if sysfs does not report it, or if the device was not
     * opened by its index: then no access is checked.
     */
    uint64_t map_size() const noexcept { return region_.size(); }

    /** See `norv_umcb_get_info`. */
    result<uio_info> get_info() const {
        return detail::get_uio_info(
            [this](norv_uio_info_t* info) { return norv_umcb_get_info(device_.address(), info); });
    }
    /** The kind alone, also where the identity cannot be read. */
    result<uio_kind> get_kind() const {
        return detail::get_uio_kind(
            [this](norv_uio_info_t* info) { return norv_umcb_get_info(device_.address(), info); });
    }

    /**
     * Registers an interrupt source. See `norv_umcb_irq_register`.
     *
     * @retval NORV_STATUS_BAD_STATE  the driver returned the descriptor 0, which counts as not open (quirk 3)
     */
    result<umcb_irq> register_irq(uint32_t irq) {
        int32_t descriptor = -1;
        const status registered(norv_umcb_irq_register(device_.address(), irq, &descriptor));
        if (!registered.ok()) {
            return registered;
        }
        if (descriptor <= 0) {
            return status(NORV_STATUS_BAD_STATE);
        }
        return umcb_irq(descriptor);
    }
    /** See `norv_umcb_irq_global_enable`. */
    status enable_irqs() { return status(norv_umcb_irq_global_enable(device_.address())); }
    /** See `norv_umcb_irq_global_disable`. */
    status disable_irqs() { return status(norv_umcb_irq_global_disable(device_.address())); }
    /** See `norv_umcb_irq_set_type`. */
    status set_irq_type(uint32_t type) { return status(norv_umcb_irq_set_type(device_.address(), type)); }

    /** The handle of the C interface; null after a move. */
    norv_umcb_t* get() const noexcept { return device_.get(); }

  private:
    friend class mcb_bus;

    umcb() noexcept = default;

    template <typename opening>
    static result<umcb> opened(opening open_device) {
        umcb device;
        const status opened = device.device_.open(open_device);
        if (!opened.ok()) {
            return opened;
        }
        device.region_ = detail::register_region(device.map(), 0);
        return device;
    }

    detail::owned_handle<norv_umcb_t, norv_umcb_close> device_;
    detail::register_region region_;
};

/** The events of an interrupt source, for a task; the source must outlive it, and not move. */
class umcb_events {
  public:
    explicit umcb_events(umcb_irq& source) : source_(source), ready_(source.descriptor()) {}

    /** Waits for the next event and clears it, as `umcb_irq::wait` does; `co_await` returns a `status`. */
    auto next() {
        return ready_.wait(EPOLLPRI, [this](const result<uint32_t>& ready) {
            return ready ? source_.clear_event() : ready.status();
        });
    }

  private:
    umcb_irq& source_;
    readiness ready_;
};

}  // namespace norv
