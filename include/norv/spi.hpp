// SPDX-License-Identifier: MIT
/**
 * @file norv/spi.hpp
 * An SPI slave that closes itself. What the functions do, and their statuses, are those of norv_linux_spi.h;
 * after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::spi chip = norv::spi::open("/dev/spidev0.0", {.max_speed_hz = 1000000}).value();
 *     const std::byte command[] = {std::byte(0x9F)};
 *     std::array<std::byte, 3> identifier;
 *     chip.write_then_read(command, 0us, identifier).value();
 *     chip.run({{.sent = command}, {.received = identifier}}).value();  // the same as a list
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_linux_spi.h"

namespace norv {

/** An open SPI slave. */
class spi {
  public:
    /** See `norv_spi_config_t`. */
    struct settings {
        uint32_t mode = 0;
        uint32_t max_speed_hz = 0;
        uint8_t bits_per_word = 8;
        bool lsb_first = false;
    };
    /** One transfer of a message. Where there are both, they must have the same length. */
    struct transfer {
        std::span<const std::byte> sent{}; /**< empty: zeros are sent */
        std::span<std::byte> received{};   /**< empty: what arrives is discarded */
        std::chrono::microseconds pause{}; /**< after the transfer; 0 to 65535 */
    };
    /** The greatest number of transfers in a message. */
    static constexpr size_t most_transfers = 511;

    /**
     * See `norv_linux_spi_open`. The path is not a format here: a `%` is part of the name. It need not end
     * with a NUL; a path of more than 255 characters, or one that contains a NUL, is an invalid argument.
     */
    static result<spi> open(std::string_view path, const settings& wanted) {
        spi slave;
        const detail::c_format name(path);
        const norv_spi_config_t values = values_of(wanted);
        const status opened =
            slave.slave_.open([&](norv_spi_t* to) { return norv_linux_spi_open(name.get(), &values, to); });
        return opened.ok() ? result<spi>(std::move(slave)) : result<spi>(opened);
    }

    /** See `norv_linux_spi_config`. A refused mode, too, ends the emulation of 16-bit words (quirk 56). */
    status configure(const settings& wanted) {
        const norv_spi_config_t values = values_of(wanted);
        return status(norv_linux_spi_config(slave_.get(), &values));
    }

    /** Whether 16-bit words are emulated with 8-bit words; false after a move. */
    bool emulates_words() const noexcept { return slave_.is_open() && slave_.get()->swap16 != 0; }

    /**
     * Sends and receives at the same time. See `norv_linux_spi_dplx`. With an empty `sent`, zeros are sent; with an
     * empty `received`, what arrives is discarded; otherwise both must have the same length.
     */
    status duplex(std::span<const std::byte> sent, std::span<std::byte> received) {
        norv_spi_transfer_t values;
        if (!convert({.sent = sent, .received = received}, values)) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(norv_linux_spi_dplx(slave_.get(), values.tx_buffer, values.rx_buffer, values.length));
    }

    /**
     * Sends, pauses for 0 to 65535 microseconds, then receives. See `norv_linux_spi_write_then_read`. While
     * 16-bit words are emulated (`emulates_words`), zeros are sent instead of the bytes (quirk 57), or, if memory
     * for the zeros is lacking, the bytes unswapped (quirk 58): then use `duplex`, or `run` with bytes that are
     * already swapped.
     */
    status write_then_read(std::span<const std::byte> sent, std::chrono::microseconds pause,
                           std::span<std::byte> received) {
        norv_spi_transfer_t first;
        norv_spi_transfer_t second;
        if (!convert({.sent = sent, .pause = pause}, first) || !convert({.received = received}, second)) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        return status(norv_linux_spi_write_then_read(slave_.get(), first.tx_buffer, first.length,
                                                     first.delay_us, second.rx_buffer, second.length));
    }

    /** Runs a list of transfers as one message. See `norv_linux_spi_xfer`: bytes are never swapped (quirk 59). */
    template <size_t count>
    status run(const transfer (&transfers)[count]) {
        static_assert(count <= most_transfers, "a message has at most 511 transfers");
        norv_spi_transfer_t list[count];
        for (size_t index = 0; index < count; ++index) {
            if (!convert(transfers[index], list[index])) {
                return status(NORV_STATUS_INVALID_ARG);
            }
        }
        return run_list(list);
    }
    /** The same for a list in the terms of the C interface; one of more than 511 is an invalid argument. */
    status run_list(std::span<const norv_spi_transfer_t> transfers) {
        return status(
            transfers.size() <= most_transfers
                ? norv_linux_spi_xfer(slave_.get(), transfers.data(), static_cast<uint32_t>(transfers.size()))
                : NORV_STATUS_INVALID_ARG);
    }

    /** The descriptor, for requests that this class does not make; -1 after a move. */
    int32_t descriptor() const noexcept {
        return slave_.is_open() ? norv_linux_spi_get_fd(slave_.get()) : -1;
    }
    /** The record of the C interface; null after a move. */
    norv_spi_t* get() noexcept { return slave_.get(); }

  private:
    spi() noexcept = default;

    static norv_spi_config_t values_of(const settings& wanted) noexcept {
        return {.mode = wanted.mode,
                .max_speed_hz = wanted.max_speed_hz,
                .bits_per_word = wanted.bits_per_word,
                .lsb_first = wanted.lsb_first};
    }

    // False if the C interface cannot take the values.
    static bool convert(const transfer& given, norv_spi_transfer_t& values) noexcept {
        const size_t length = given.sent.empty() ? given.received.size() : given.sent.size();
        if ((!given.received.empty() && given.received.size() != length) ||
            !std::in_range<uint32_t>(length) || given.pause.count() < 0 || given.pause.count() > UINT16_MAX) {
            return false;
        }
        values = {.tx_buffer = given.sent.empty() ? nullptr : given.sent.data(),
                  .rx_buffer = given.received.empty() ? nullptr : given.received.data(),
                  .length = static_cast<uint32_t>(length),
                  .delay_us = static_cast<uint16_t>(given.pause.count())};
        return true;
    }

    detail::owned_record<norv_spi_t, norv_linux_spi_close> slave_;
};

}  // namespace norv
