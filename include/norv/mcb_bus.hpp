// SPDX-License-Identifier: MIT
/**
 * @file norv/mcb_bus.hpp
 * The registers of a mapped device, whichever kind it is, as a bus that closes itself. What the functions do
 * is described in norv_mcb_bus.h. The device must outlive the bus, and not move.
 *
 *     norv::uio device = norv::uio::open_by_name("fpga-regs").value();
 *     norv::mcb_bus bus = norv::mcb_bus::open(device).value();
 *     bus.write(0x10, 5).value();
 *     std::array<uint32_t, 64> samples;
 *     bus.read_burst(0x100, samples, norv::mcb_burst::fixed).value();
 *
 * Unlike the C operations (quirk 168), these check their arguments: they return NORV_STATUS_INVALID_ARG, and
 * access nothing, if an address is not a multiple of 4 or lies outside the region, where its size is known;
 * for arrays of different lengths; and after a move of the bus or of the device.
 */
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

#include "norv/owner.hpp"
#include "norv/reg.hpp"
#include "norv/region.hpp"
#include "norv/result.hpp"
#include "norv/uio.hpp"
#include "norv/umcb.hpp"
#include "norv_mcb_bus.h"

namespace norv {

/** How the address of a burst changes after each element. */
enum class mcb_burst : int32_t {
    up = NORV_MCB_BURST_UP,
    down = NORV_MCB_BURST_DOWN,
    fixed = NORV_MCB_BURST_FIXED
};

namespace detail {

inline void close_mcb_bus(norv_mcb_bus_t* bus) noexcept {
    bus->close(bus);
}

}  // namespace detail

/** An open bus. */
class mcb_bus {
  public:
    /** A register and its value, for `write_list`. */
    using reg_value = norv_mcb_reg_value_t;

    /** See `norv_uio_open_mcb_bus`. The base of the lists is ignored (quirk 167). */
    static result<mcb_bus> open(uio& device) {
        return opened(device, false, [&](norv_mcb_bus_t* to) {
            return norv_uio_open_mcb_bus(device.device_.address(), to);
        });
    }
    /** See `norv_umcb_open_mcb_bus`. The base of the lists is added with 32 bits (quirk 166). */
    static result<mcb_bus> open(umcb& device) {
        return opened(device, true, [&](norv_mcb_bus_t* to) {
            return norv_umcb_open_mcb_bus(device.device_.address(), to);
        });
    }

    /** Reads one register. */
    result<uint32_t> read(uint32_t address) { return read_with(&norv_mcb_bus_t::read, address); }
    /** Writes one register. */
    status write(uint32_t address, uint32_t value) {
        return write_with(&norv_mcb_bus_t::write, address, value);
    }
    /** Reads a register of any type. */
    template <typename T>
    result<T> read(reg<T> from) {
        const result<uint32_t> word = read(from.offset());
        return word ? result<T>(std::bit_cast<T>(*word)) : result<T>(word.status());
    }
    /** Reads a register, and returns the value of one field. */
    template <typename T>
    result<T> read(field<T> from) {
        const result<uint32_t> word = read(from.in());
        return word ? result<T>(from.of(*word)) : result<T>(word.status());
    }
    /** Writes a register of any type. */
    template <typename T>
    status write(reg<T> to, std::type_identity_t<T> value) {
        return write(to.offset(), std::bit_cast<uint32_t>(value));
    }
    /** Writes a register without reading it: all other fields become 0. */
    status write(field_values values) { return write(values.in(), values.bits()); }
    /** Reads a register, changes these fields and writes it. */
    status modify(field_values values) {
        const result<uint32_t> word = read(values.in());
        return word ? write(values.in(), values.applied_to(*word)) : word.status();
    }

    /** Reads the register at each address, in order. */
    status read_list(std::span<const uint32_t> addresses, std::span<uint32_t> values) {
        return can_read_list(0, addresses, values)
                   ? call(&norv_mcb_bus_t::read_list, addresses.data(), values.data(), count_of(values))
                   : status(NORV_STATUS_INVALID_ARG);
    }
    /** Writes each value to its address, in order. */
    status write_list(std::span<const reg_value> list) {
        return can_write_list(0, list) ? call(&norv_mcb_bus_t::write_list, list.data(), count_of(list))
                                       : status(NORV_STATUS_INVALID_ARG);
    }
    /** Fills the span with registers from an address on, which changes as `how` says. */
    status read_burst(uint32_t start, std::span<uint32_t> values, mcb_burst how = mcb_burst::up) {
        return read_burst_with(&norv_mcb_bus_t::read_burst, start, values, how);
    }
    /** Writes the span to registers from an address on, which changes as `how` says. */
    status write_burst(uint32_t start, std::span<const uint32_t> values, mcb_burst how = mcb_burst::up) {
        return write_burst_with(&norv_mcb_bus_t::write_burst, start, values, how);
    }

    /** Reads one register through the based group, without a base. */
    result<uint32_t> read_based(uint32_t address) { return read_with(&norv_mcb_bus_t::read_based, address); }
    /** Writes one register through the based group, without a base. */
    status write_based(uint32_t address, uint32_t value) {
        return write_with(&norv_mcb_bus_t::write_based, address, value);
    }
    /** As `read_list`, with the base that the kind of device adds. */
    status read_list_based(uint32_t base, std::span<const uint32_t> addresses, std::span<uint32_t> values) {
        return can_read_list(base, addresses, values)
                   ? call(&norv_mcb_bus_t::read_list_based, base, addresses.data(), values.data(),
                          count_of(values))
                   : status(NORV_STATUS_INVALID_ARG);
    }
    /** As `write_list`, with the base that the kind of device adds. */
    status write_list_based(uint32_t base, std::span<const reg_value> list) {
        return can_write_list(base, list)
                   ? call(&norv_mcb_bus_t::write_list_based, base, list.data(), count_of(list))
                   : status(NORV_STATUS_INVALID_ARG);
    }
    /** As `read_burst`, through the based group, without a base. */
    status read_burst_based(uint32_t start, std::span<uint32_t> values, mcb_burst how = mcb_burst::up) {
        return read_burst_with(&norv_mcb_bus_t::read_burst_based, start, values, how);
    }
    /** As `write_burst`, through the based group, without a base. */
    status write_burst_based(uint32_t start, std::span<const uint32_t> values,
                             mcb_burst how = mcb_burst::up) {
        return write_burst_with(&norv_mcb_bus_t::write_burst_based, start, values, how);
    }

    /** The record of the C interface; null after a move. */
    norv_mcb_bus_t* get() noexcept { return bus_.get(); }

  private:
    mcb_bus() noexcept = default;

    template <typename device_type, typename opening>
    static result<mcb_bus> opened(const device_type& device, bool adds_base, opening open_bus) {
        mcb_bus bus;
        const status opened = bus.bus_.open(open_bus);
        if (!opened.ok()) {
            return opened;
        }
        bus.region_ = &device.region_;
        bus.adds_base_ = adds_base;
        return bus;
    }

    bool contains(uint32_t address) const noexcept { return bus_.is_open() && region_->contains(address); }

    // Whether all registers of a burst are in the region: the first and the last one are.
    bool contains_burst(uint32_t start, size_t count, mcb_burst how) const noexcept {
        if (count == 0) {
            return bus_.is_open();
        }
        const uint64_t span = how == mcb_burst::fixed ? 0 : (uint64_t{count} - 1) * 4;
        const bool in_range = how == mcb_burst::down ? span <= start : span <= UINT32_MAX - start;
        const uint64_t last = how == mcb_burst::down ? start - span : start + span;
        return count <= UINT32_MAX && in_range && contains(start) && contains(static_cast<uint32_t>(last));
    }

    bool can_read_list(uint32_t base, std::span<const uint32_t> addresses,
                       std::span<uint32_t> values) const noexcept {
        return bus_.is_open() && addresses.size() == values.size() && addresses.size() <= UINT32_MAX &&
               std::ranges::all_of(addresses, [&](uint32_t address) { return is_listed(base, address); });
    }
    bool can_write_list(uint32_t base, std::span<const reg_value> list) const noexcept {
        return bus_.is_open() && list.size() <= UINT32_MAX &&
               std::ranges::all_of(list, [&](const reg_value& one) { return is_listed(base, one.address); });
    }
    bool is_listed(uint32_t base, uint32_t address) const noexcept {
        return contains(address + (adds_base_ ? base : 0));
    }

    template <typename T>
    static uint32_t count_of(std::span<T> elements) noexcept {
        return static_cast<uint32_t>(elements.size());
    }

    // Calls an operation of the record.
    template <typename... parameters, typename... arguments>
    status call(uint32_t (*norv_mcb_bus_t::*operation)(norv_mcb_bus_t*, parameters...), arguments... values) {
        return status((bus_.get()->*operation)(bus_.get(), values...));
    }

    using read_operation = uint32_t (*norv_mcb_bus_t::*)(norv_mcb_bus_t*, uint32_t, uint32_t*);
    using write_operation = uint32_t (*norv_mcb_bus_t::*)(norv_mcb_bus_t*, uint32_t, uint32_t);
    using read_burst_operation = uint32_t (*norv_mcb_bus_t::*)(norv_mcb_bus_t*, uint32_t, uint32_t*, uint32_t,
                                                               int32_t);
    using write_burst_operation = uint32_t (*norv_mcb_bus_t::*)(norv_mcb_bus_t*, uint32_t, const uint32_t*,
                                                                uint32_t, int32_t);

    result<uint32_t> read_with(read_operation operation, uint32_t address) {
        uint32_t value = 0;
        const status read =
            contains(address) ? call(operation, address, &value) : status(NORV_STATUS_INVALID_ARG);
        return read.ok() ? result<uint32_t>(value) : result<uint32_t>(read);
    }
    status write_with(write_operation operation, uint32_t address, uint32_t value) {
        return contains(address) ? call(operation, address, value) : status(NORV_STATUS_INVALID_ARG);
    }
    status read_burst_with(read_burst_operation operation, uint32_t start, std::span<uint32_t> values,
                           mcb_burst how) {
        return contains_burst(start, values.size(), how)
                   ? call(operation, start, values.data(), count_of(values), static_cast<int32_t>(how))
                   : status(NORV_STATUS_INVALID_ARG);
    }
    status write_burst_with(write_burst_operation operation, uint32_t start, std::span<const uint32_t> values,
                            mcb_burst how) {
        return contains_burst(start, values.size(), how)
                   ? call(operation, start, values.data(), count_of(values), static_cast<int32_t>(how))
                   : status(NORV_STATUS_INVALID_ARG);
    }

    detail::owned_record<norv_mcb_bus_t, detail::close_mcb_bus> bus_;
    const detail::register_region* region_ = nullptr;
    bool adds_base_ = false;
};

}  // namespace norv
