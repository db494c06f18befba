// SPDX-License-Identifier: MIT
// SPI slaves through spidev.
#include "norv_linux_spi.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>

#include <cstddef>
#include <utility>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/memory.hpp"
#include "core/status.hpp"
#include "norv_base.h"

NORV_OFFSETS(norv_spi_t, 8, descriptor, 0, swap16, 4);
NORV_OFFSETS(norv_spi_config_t, 12, mode, 0, max_speed_hz, 4, bits_per_word, 8, lsb_first, 9);
NORV_LAYOUT(norv_spi_transfer_t, 2 * sizeof(void*) + 8, tx_buffer, rx_buffer, length, delay_us);
static_assert(sizeof(spi_ioc_transfer) == 32);
static_assert(SPI_IOC_WR_MODE == 0x40016b01 && SPI_IOC_WR_LSB_FIRST == 0x40016b02 &&
              SPI_IOC_WR_BITS_PER_WORD == 0x40016b03 && SPI_IOC_WR_MAX_SPEED_HZ == 0x40046b04 &&
              SPI_IOC_MESSAGE(1) == 0x40206b00);

namespace {

constexpr uint32_t highest_mode = 3;

// ---- settings

template <typename setting>
uint32_t write_setting(const norv_spi_t* spi, unsigned long request, setting value) {
    return norv::device_ioctl(spi->descriptor, request, &value);
}

// A controller that refuses 16 bits per word runs with 8, and the bytes are swapped here.
uint32_t set_bits_per_word(norv_spi_t* spi, uint8_t bits) {
    const uint32_t status = write_setting<uint8_t>(spi, SPI_IOC_WR_BITS_PER_WORD, bits);
    if (status == NORV_STATUS_OK || bits != 16) {
        return status;
    }
    NORV_TRY(write_setting<uint8_t>(spi, SPI_IOC_WR_BITS_PER_WORD, 8));
    spi->swap16 = 1;
    return NORV_STATUS_OK;
}

uint32_t open_and_configure(const char* path, const norv_spi_config_t* config, norv_spi_t* spi) {
    // quirk 61: the path is a format.
    NORV_TRY(norv::open_file(O_RDWR | O_SYNC | O_CLOEXEC, norv::file_path::expanded(path), &spi->descriptor));
    return norv_linux_spi_config(spi, config);
}

// ---- transfers

spi_ioc_transfer transfer_of(const void* tx_buffer, void* rx_buffer, uint32_t length, uint16_t delay_us) {
    spi_ioc_transfer transfer = {};
    transfer.tx_buf = reinterpret_cast<uintptr_t>(tx_buffer);
    transfer.rx_buf = reinterpret_cast<uintptr_t>(rx_buffer);
    transfer.len = length;
    transfer.delay_usecs = delay_us;
    return transfer;
}

// The request for `count` transfers. quirk 60: its size field has 14 bits, and a list that does not fit gets
// size 0, for which the kernel runs nothing.
unsigned long message_request(uint64_t count) {
    const uint64_t size = count * sizeof(spi_ioc_transfer);
    const bool fits = size < (1U << _IOC_SIZEBITS);
    return static_cast<unsigned long>(_IOC(_IOC_WRITE, SPI_IOC_MAGIC, 0, fits ? size : 0));
}

uint32_t run_message(const norv_spi_t* spi, const spi_ioc_transfer* transfers, uint64_t count) {
    return norv::device_ioctl(spi->descriptor, message_request(count), transfers);
}

// Swaps the two bytes of each whole 16-bit word; an odd last byte stays.
void swap_words(void* buffer, uint32_t length) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    for (uint64_t index = 1; index < length; index += 2) {
        std::swap(bytes[index - 1], bytes[index]);
    }
}

void swap_received(const norv_spi_t* spi, void* buffer, uint32_t length) {
    if (spi->swap16 != 0 && buffer != nullptr) {
        swap_words(buffer, length);
    }
}

bool must_replace(const norv_spi_t* spi, const void* tx_buffer) {
    return spi->swap16 != 0 && tx_buffer != nullptr;
}

}  // namespace

uint32_t norv_linux_spi_open(const char* path, const norv_spi_config_t* config, norv_spi_t* spi) {
    if (spi == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *spi = {-1, 0};
    if (config == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_and_configure(path, config, spi);
    if (status != NORV_STATUS_OK) {
        norv_linux_spi_close(spi);
    }
    return status;
}

void norv_linux_spi_close(norv_spi_t* spi) {
    if (spi != nullptr) {
        norv::close_descriptor(spi->descriptor);
    }
}

int32_t norv_linux_spi_get_fd(const norv_spi_t* spi) {
    return spi->descriptor;
}

uint32_t norv_linux_spi_config(norv_spi_t* spi, const norv_spi_config_t* config) {
    if (spi == nullptr || config == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 56: cleared before the mode is checked.
    spi->swap16 = 0;
    if (config->mode > highest_mode) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(write_setting<uint8_t>(spi, SPI_IOC_WR_MODE, static_cast<uint8_t>(config->mode)));
    NORV_TRY(set_bits_per_word(spi, config->bits_per_word));
    NORV_TRY(write_setting<uint32_t>(spi, SPI_IOC_WR_MAX_SPEED_HZ, config->max_speed_hz));
    return write_setting<uint8_t>(spi, SPI_IOC_WR_LSB_FIRST, config->lsb_first != 0 ? 1 : 0);
}

uint32_t norv_linux_spi_dplx(const norv_spi_t* spi, const void* tx_buffer, void* rx_buffer, uint32_t length) {
    if (spi == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const bool replaced = must_replace(spi, tx_buffer);
    const norv::scoped_memory swapped(replaced ? norv_malloc(length) : nullptr);
    if (replaced) {
        if (swapped.get() == nullptr) {
            return NORV_STATUS_NO_MEMORY;
        }
        norv_memcpy(swapped.get(), tx_buffer, length);
        swap_words(swapped.get(), length);
        tx_buffer = swapped.get();
    }
    const spi_ioc_transfer transfer = transfer_of(tx_buffer, rx_buffer, length, 0);
    NORV_TRY(run_message(spi, &transfer, 1));
    swap_received(spi, rx_buffer, length);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_spi_write_then_read(const norv_spi_t* spi, const void* tx_buffer, uint32_t tx_length,
                                        uint16_t delay_us, void* rx_buffer, uint32_t rx_length) {
    if (spi == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 57: with swap16 the caller's bytes are not sent, unlike in the duplex call. The memory that is
    // sent instead is cleared, so that nothing else of this process reaches the bus. Zeros need no swapping.
    const bool replaced = must_replace(spi, tx_buffer);
    const norv::scoped_memory zeros(replaced ? norv_malloc(tx_length) : nullptr);
    if (zeros.get() != nullptr) {
        norv_memset(zeros.get(), 0, tx_length);
        tx_buffer = zeros.get();
    }
    const spi_ioc_transfer transfers[] = {transfer_of(tx_buffer, nullptr, tx_length, delay_us),
                                          transfer_of(nullptr, rx_buffer, rx_length, 0)};
    const uint32_t status = run_message(spi, transfers, 2);
    // quirk 58: without memory, the message has been sent with the caller's bytes.
    if (replaced && zeros.get() == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    NORV_TRY(status);
    swap_received(spi, rx_buffer, rx_length);
    return NORV_STATUS_OK;
}

uint32_t norv_linux_spi_xfer(const norv_spi_t* spi, const norv_spi_transfer_t* transfers, uint32_t count) {
    if (spi == nullptr || (transfers == nullptr && count > 0)) {
        return NORV_STATUS_INVALID_ARG;
    }
    const norv::scoped_memory memory(
        norv_zalloc(norv::memory_size(uint64_t{count} * sizeof(spi_ioc_transfer))));
    auto* list = static_cast<spi_ioc_transfer*>(memory.get());
    if (list == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    // quirk 59: nothing is swapped here, whatever swap16 is.
    for (uint32_t index = 0; index < count; ++index) {
        const norv_spi_transfer_t& given = transfers[index];
        list[index] = transfer_of(given.tx_buffer, given.rx_buffer, given.length, given.delay_us);
    }
    return run_message(spi, list, count);
}
