// SPDX-License-Identifier: MIT
/**
 * @file norv/i2c.hpp
 * An I2C adapter that closes itself. What the functions do, and their statuses, are those of norv_linux_i2c.h;
 * after a move they return NORV_STATUS_INVALID_ARG. Too many bytes for one message are an invalid argument, too,
 * and nothing is sent.
 *
 *     norv::i2c bus = norv::i2c::open(1).value();
 *     std::array<std::byte, 2> temperature;
 *     bus.read(0x48, 0x00, temperature).value();
 *
 * An address has 7 bits and is not shifted; one above 0x7F is passed on unchanged (quirk 52).
 */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv_linux_i2c.h"

namespace norv {

/** An open I2C adapter. */
class i2c {
  public:
    /** See `norv_linux_i2c_open`. */
    static result<i2c> open(uint32_t bus_number) {
        i2c bus;
        const status opened =
            bus.descriptor_.open([&](int32_t* to) { return norv_linux_i2c_open(bus_number, to); });
        return opened.ok() ? result<i2c>(std::move(bus)) : result<i2c>(opened);
    }

    /** Reads registers; at most 65535 bytes. See `norv_linux_i2c_read`. */
    status read(uint8_t address, uint8_t reg, std::span<std::byte> data) {
        return within(NORV_LINUX_I2C_MAX_RAW, data.size(), [&](uint16_t length) {
            return norv_linux_i2c_read(descriptor_.get(), address, reg, data.data(), length);
        });
    }
    /** Writes registers; at most 256 bytes. See `norv_linux_i2c_write`. */
    status write(uint8_t address, uint8_t reg, std::span<const std::byte> data) {
        return within(NORV_LINUX_I2C_MAX_WRITE, data.size(), [&](uint16_t length) {
            return norv_linux_i2c_write(descriptor_.get(), address, reg, data.data(), length);
        });
    }
    /** Reads without a register address; at most 65535 bytes. See `norv_linux_i2c_raw_read`. */
    status raw_read(uint8_t address, std::span<std::byte> data) {
        return within(NORV_LINUX_I2C_MAX_RAW, data.size(), [&](uint16_t length) {
            return norv_linux_i2c_raw_read(descriptor_.get(), address, data.data(), length);
        });
    }
    /** Writes without a register address; at most 65535 bytes. See `norv_linux_i2c_raw_write`. */
    status raw_write(uint8_t address, std::span<const std::byte> data) {
        return within(NORV_LINUX_I2C_MAX_RAW, data.size(), [&](uint16_t length) {
            return norv_linux_i2c_raw_write(descriptor_.get(), address, data.data(), length);
        });
    }
    /** Writes, then reads; at most 65535 bytes each. See `norv_linux_i2c_write_then_read`. */
    status write_then_read(uint8_t address, std::span<const std::byte> written, std::span<std::byte> read) {
        return within(NORV_LINUX_I2C_MAX_RAW, std::max(written.size(), read.size()), [&](uint16_t) {
            return norv_linux_i2c_write_then_read(descriptor_.get(), address, written.data(),
                                                  static_cast<uint16_t>(written.size()), read.data(),
                                                  static_cast<uint16_t>(read.size()));
        });
    }

    /** The descriptor of the adapter; -1 after a move. */
    int32_t descriptor() const noexcept { return descriptor_.is_open() ? *descriptor_.get() : -1; }

  private:
    i2c() noexcept = default;

    // Passes on a length that the C function takes whole.
    template <typename function>
    static status within(size_t most, size_t length, function transfer) {
        return status(length <= most ? transfer(static_cast<uint16_t>(length)) : NORV_STATUS_INVALID_ARG);
    }

    detail::owned_record<int32_t, norv_linux_i2c_close> descriptor_;
};

}  // namespace norv
