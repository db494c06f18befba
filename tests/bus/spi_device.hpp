// SPDX-License-Identifier: MIT
// A slave as spidev shows it: keeps its settings, and records every message.
#pragma once

#include <linux/spi/spidev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "support/device.hpp"

namespace norv::test {

// One transfer of a message, as the driver received it.
struct spi_seen {
    std::string sent;        // the bytes on the wire; zeros if there was no buffer
    spi_ioc_transfer given;  // with its pointers
};

class spi_device : public device {
  public:
    bool refuses_16_bits = false;
    std::string incoming;  // what the receiving transfers get, in their order; then zeros

    // The settings; the initial values are never written.
    uint8_t mode = 0xEE;
    uint8_t bits_per_word = 0xEE;
    uint8_t lsb_first = 0xEE;
    uint32_t speed = 0xEEEEEEEE;

    std::vector<std::vector<spi_seen>> messages;

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case SPI_IOC_WR_MODE:
                return store(mode, argument);
            case SPI_IOC_WR_LSB_FIRST:
                return store(lsb_first, argument);
            case SPI_IOC_WR_BITS_PER_WORD:
                return store_bits(argument);
            case SPI_IOC_WR_MAX_SPEED_HZ:
                return store(speed, argument);
            default:
                return run_message(request, static_cast<const spi_ioc_transfer*>(argument));
        }
    }

  private:
    template <typename setting>
    static long store(setting& place, const void* argument) {
        memcpy(&place, argument, sizeof place);
        return 0;
    }

    long store_bits(const void* argument) {
        const uint8_t bits = *static_cast<const uint8_t*>(argument);
        if (bits != 8 && (bits != 16 || refuses_16_bits)) {
            return -EINVAL;
        }
        return store(bits_per_word, argument);
    }

    long run_message(unsigned long request, const spi_ioc_transfer* transfers) {
        const size_t size = _IOC_SIZE(request);
        if (request - (size << _IOC_SIZESHIFT) != 0x40006b00) {
            return -ENOTTY;
        }
        if (size % sizeof(spi_ioc_transfer) != 0) {
            return -EINVAL;
        }
        if (size == 0) {
            return 0;  // like Linux
        }
        messages.emplace_back();
        size_t arrived = 0;
        long total = 0;
        for (size_t index = 0; index < size / sizeof(spi_ioc_transfer); ++index) {
            messages.back().push_back(run(transfers[index], arrived));
            total += transfers[index].len;
        }
        return total;
    }

    spi_seen run(const spi_ioc_transfer& transfer, size_t& arrived) const {
        spi_seen seen = {std::string(transfer.len, '\0'), transfer};
        if (transfer.tx_buf != 0) {
            memcpy(seen.sent.data(), reinterpret_cast<const void*>(transfer.tx_buf), transfer.len);
        }
        if (transfer.rx_buf != 0) {
            auto* target = reinterpret_cast<char*>(transfer.rx_buf);
            std::fill_n(target, transfer.len, '\0');
            arrived += incoming.copy(target, transfer.len, std::min(arrived, incoming.size()));
        }
        return seen;
    }
};

}  // namespace norv::test
