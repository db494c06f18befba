// SPDX-License-Identifier: MIT
/**
 * @file norv/uart.hpp
 * A serial port that closes itself. What the functions do, and their statuses, are those of norv_uart.h; after
 * a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::uart port = norv::uart::open("/dev/ttyS1", {.baud = 115200}).value();
 *     port.send(std::as_bytes(std::span("ping", 4)), norv::no_limit).status.value();
 *     std::array<std::byte, 64> reply;
 *     size_t count = port.receive(reply, 1s).count;
 *
 * In a task:
 *
 *     norv::uart_stream stream(port);
 *     while (norv::result<size_t> count = co_await stream.receive_some(reply)) {
 *         ...
 *     }
 */
#pragma once

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/timeout.hpp"
#include "norv/transfer.hpp"
#include "norv/wait.hpp"
#include "norv_uart.h"

namespace norv {

/** An open serial port. */
class uart {
  public:
    enum class stop_bits : uint32_t { one = NORV_UART_STOP_BITS_1, two = NORV_UART_STOP_BITS_2 };
    enum class parity : uint32_t {
        none = NORV_UART_PARITY_NONE,
        odd = NORV_UART_PARITY_ODD,
        even = NORV_UART_PARITY_EVEN,
        mark = NORV_UART_PARITY_MARK,
        space = NORV_UART_PARITY_SPACE
    };
    enum class flow_control : uint32_t {
        none = NORV_UART_FLOW_CONTROL_NONE,
        software = NORV_UART_FLOW_CONTROL_SOFTWARE,
        hardware = NORV_UART_FLOW_CONTROL_HARDWARE
    };
    /** See `norv_uart_settings_t`. */
    struct settings {
        uint32_t baud = 115200;
        uint32_t data_bits = 8;
        uart::stop_bits stop_bits = stop_bits::one;
        uart::parity parity = parity::none;
        uart::flow_control flow_control = flow_control::none;
    };

    /** See `norv_uart_open`. A path of 256 characters or more is an invalid argument. */
    static result<uart> open(std::string_view path, const settings& wanted) {
        uart port;
        const detail::c_string<> name(path);
        const norv_uart_settings_t values = values_of(wanted);
        const status opened =
            port.port_.open([&](norv_uart_t** to) { return norv_uart_open(name.get(), &values, to); });
        return opened.ok() ? result<uart>(std::move(port)) : result<uart>(opened);
    }

    /** See `norv_uart_config`. */
    status configure(const settings& wanted) {
        const norv_uart_settings_t values = values_of(wanted);
        return status(norv_uart_config(port_.address(), &values));
    }

    /** Sends all bytes, or, with a limit of 0, what can be sent at once. See `norv_uart_send`. */
    transferred send(std::span<const std::byte> data, timeout limit) {
        return detail::transfer(data.size(), limit, [&](uint32_t* length, int32_t ms) {
            return norv_uart_send(port_.address(), data.data(), length, ms);
        });
    }

    /** Receives until the buffer is full, or, with a limit of 0, what has arrived. See `norv_uart_recv`. */
    transferred receive(std::span<std::byte> buffer, timeout limit) {
        return detail::transfer(buffer.size(), limit, [&](uint32_t* length, int32_t ms) {
            return norv_uart_recv(port_.address(), buffer.data(), length, ms);
        });
    }

    /** See `norv_uart_set_rts`. */
    status set_rts(bool high) { return status(norv_uart_set_rts(port_.address(), high)); }
    /** See `norv_uart_set_dtr`. */
    status set_dtr(bool high) { return status(norv_uart_set_dtr(port_.address(), high)); }
    /** See `norv_uart_get_cts`. */
    result<bool> get_cts() { return line(norv_uart_get_cts); }
    /** See `norv_uart_get_dsr`. */
    result<bool> get_dsr() { return line(norv_uart_get_dsr); }

    /** The descriptor, for EPOLLIN and EPOLLOUT; -1 after a move. */
    int32_t descriptor() const noexcept { return norv_uart_get_fd(port_.address()); }
    /** The handle of the C interface; null after a move. */
    norv_uart_t* get() const noexcept { return port_.get(); }

  private:
    uart() noexcept = default;

    static norv_uart_settings_t values_of(const settings& wanted) noexcept {
        return {.baud = wanted.baud,
                .data_bits = wanted.data_bits,
                .stop_bits = static_cast<uint32_t>(wanted.stop_bits),
                .parity = static_cast<uint32_t>(wanted.parity),
                .flow_control = static_cast<uint32_t>(wanted.flow_control)};
    }

    result<bool> line(uint32_t (*get_line)(norv_uart_t** uart, uint8_t* high)) {
        uint8_t high = 0;
        const status read(get_line(port_.address(), &high));
        return read.ok() ? result<bool>(high != 0) : result<bool>(read);
    }

    detail::owned_handle<norv_uart_t, norv_uart_close> port_;
};

/**
 * The transfers of a port, for tasks: one may send while another one receives. The port must outlive it, and
 * not move.
 */
class uart_stream {
  public:
    explicit uart_stream(uart& port) : port_(port), ready_(port.descriptor()) {}

    /**
     * Waits until bytes have arrived; `co_await` returns a `result<size_t>`, how many are in the buffer: 0 once
     * the port has hung up.
     */
    auto receive_some(std::span<std::byte> buffer) {
        return ready_.repeat(EPOLLIN, detail::receiving<uart>{port_, buffer});
    }

    /** Sends all bytes; `co_await` returns `transferred`, with how many were sent where that failed. */
    auto send_all(std::span<const std::byte> data) {
        return ready_.repeat(EPOLLOUT, detail::sending<uart>{port_, data});
    }

  private:
    uart& port_;
    readiness ready_;
};

}  // namespace norv
