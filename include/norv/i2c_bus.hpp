// SPDX-License-Identifier: MIT
/**
 * @file norv/i2c_bus.hpp
 * An I2C bus record that closes itself. What the functions do, and their statuses, are those of
 * norv_linux_i2c_bus.h; after a move they return NORV_STATUS_INVALID_ARG. A list or buffer of more than 65535
 * elements is an invalid argument, too, and nothing is sent.
 *
 *     norv::i2c_bus bus = norv::i2c_bus::open(1).value();
 *     bus.write_reg(0x48, 0x01, 0x60).value();
 *     uint8_t value = bus.read_reg(0x48, 0x00).value();
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv_linux_i2c_bus.h"

namespace norv {

/** An open I2C bus. */
class i2c_bus {
  public:
    enum class address_mode : uint8_t {
        seven_bits = NORV_LINUX_I2C_ADDR_7BIT,
        eight_bits = NORV_LINUX_I2C_ADDR_8BIT
    };
    /** An element of `write_reg_list`. */
    using reg_value = norv_i2c_reg_value_t;

    /** See `norv_linux_open_i2c_bus`. */
    static result<i2c_bus> open(uint32_t bus_number) {
        i2c_bus bus;
        const status opened =
            bus.bus_.open([&](norv_i2c_bus_t* to) { return norv_linux_open_i2c_bus(to, bus_number); });
        return opened.ok() ? result<i2c_bus>(std::move(bus)) : result<i2c_bus>(opened);
    }

    /** See `norv_linux_i2c_bus_set_addr_mode`. */
    status set_address_mode(address_mode mode) {
        return status(norv_linux_i2c_bus_set_addr_mode(bus_.get(), static_cast<uint8_t>(mode)));
    }

    /** Reads one register. */
    result<uint8_t> read_reg(uint8_t address, uint8_t reg) {
        uint8_t value = 0;
        const status read = call(&norv_i2c_bus_t::read_reg, address, reg, &value);
        return read.ok() ? result<uint8_t>(value) : result<uint8_t>(read);
    }
    /** Writes one register. */
    status write_reg(uint8_t address, uint8_t reg, uint8_t value) {
        return call(&norv_i2c_bus_t::write_reg, address, reg, value);
    }
    /** Reads from a register on, in one transaction. */
    status read_regs(uint8_t address, uint8_t reg, std::span<std::byte> data) {
        return fits(data) ? call(&norv_i2c_bus_t::read_regs, address, reg, data.data(), length_of(data))
                          : refused();
    }
    /** Writes at most 256 bytes from a register on. */
    status write_regs(uint8_t address, uint8_t reg, std::span<const std::byte> data) {
        return fits(data) ? call(&norv_i2c_bus_t::write_regs, address, reg, data.data(), length_of(data))
                          : refused();
    }
    /**
     * Reads registers one by one, each into the element of `values` with the same index. Lists of different
     * lengths are an invalid argument. After a failure the earlier values have been read (quirk 55).
     */
    status read_reg_list(uint8_t address, std::span<const uint8_t> registers, std::span<uint8_t> values) {
        return fits(registers) && registers.size() == values.size()
                   ? call(&norv_i2c_bus_t::read_reg_list, address, registers.data(), values.data(),
                          length_of(registers))
                   : refused();
    }
    /** Writes registers one by one. After a failure the earlier ones stay written (quirk 55). */
    status write_reg_list(uint8_t address, std::span<const reg_value> list) {
        return fits(list) ? call(&norv_i2c_bus_t::write_reg_list, address, list.data(), length_of(list))
                          : refused();
    }
    /** Reads without a register. */
    status raw_read(uint8_t address, std::span<std::byte> data) {
        return fits(data) ? call(&norv_i2c_bus_t::raw_read, address, data.data(), length_of(data))
                          : refused();
    }
    /** Writes without a register. */
    status raw_write(uint8_t address, std::span<const std::byte> data) {
        return fits(data) ? call(&norv_i2c_bus_t::raw_write, address, data.data(), length_of(data))
                          : refused();
    }
    /** Writes, then reads, in one transaction. */
    status write_then_read(uint8_t address, std::span<const std::byte> written, std::span<std::byte> read) {
        return fits(written) && fits(read) ? call(&norv_i2c_bus_t::write_then_read, address, written.data(),
                                                  length_of(written), read.data(), length_of(read))
                                           : refused();
    }

    /** The record of the C interface, for drivers that take one; null after a move. */
    norv_i2c_bus_t* get() noexcept { return bus_.get(); }

  private:
    i2c_bus() noexcept = default;

    static status refused() noexcept { return status(NORV_STATUS_INVALID_ARG); }
    template <typename span>
    static bool fits(span list) noexcept {
        return list.size() <= UINT16_MAX;
    }
    template <typename span>
    static uint16_t length_of(span list) noexcept {
        return static_cast<uint16_t>(list.size());
    }

    // The operations are reached through the record, which is not there after a move.
    template <typename operation, typename... arguments>
    status call(operation norv_i2c_bus_t::*member, arguments... values) {
        norv_i2c_bus_t* const bus = bus_.get();
        return bus != nullptr ? status((bus->*member)(bus, values...)) : refused();
    }

    detail::owned_record<norv_i2c_bus_t, norv_linux_close_i2c_bus> bus_;
};

}  // namespace norv
