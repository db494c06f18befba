// SPDX-License-Identifier: MIT
// SPI transfers beside the bare requests that they must make, on slaves of the kernel that it runs on: needs
// /dev/spidev0.0, and /dev/spidev1.0 on a controller that refuses 16-bit words, as on the virtual board.
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <norv/spi.hpp>

#include <cstddef>
#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t length = 16;
constexpr uint32_t list_length = 4;

uint8_t sent[length];
uint8_t received[length];

uint64_t address(const void* buffer) {
    return reinterpret_cast<uintptr_t>(buffer);
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_spi");
}

void bare_duplex(int descriptor) {
    spi_ioc_transfer transfer = {};
    transfer.tx_buf = address(sent);
    transfer.rx_buf = address(received);
    transfer.len = length;
    bench::expect(ioctl(descriptor, SPI_IOC_MESSAGE(1), &transfer) >= 0, "SPI_IOC_MESSAGE(1)");
}

void swap(uint8_t* to, const uint8_t* from) {
    for (size_t index = 0; index < length; index += 2) {
        const uint8_t low = from[index];
        to[index] = from[index + 1];
        to[index + 1] = low;
    }
}

void bare_swapped_duplex(int descriptor) {
    uint8_t copy[length];
    swap(copy, sent);
    spi_ioc_transfer transfer = {};
    transfer.tx_buf = address(copy);
    transfer.rx_buf = address(received);
    transfer.len = length;
    bench::expect(ioctl(descriptor, SPI_IOC_MESSAGE(1), &transfer) >= 0, "SPI_IOC_MESSAGE(1)");
    swap(received, received);
}

void bare_write_then_read(int descriptor) {
    spi_ioc_transfer transfers[2] = {};
    transfers[0].tx_buf = address(sent);
    transfers[0].len = 1;
    transfers[1].rx_buf = address(received);
    transfers[1].len = length;
    bench::expect(ioctl(descriptor, SPI_IOC_MESSAGE(2), transfers) >= 0, "SPI_IOC_MESSAGE(2)");
}

void bare_list(int descriptor) {
    spi_ioc_transfer transfers[list_length] = {};
    for (spi_ioc_transfer& transfer : transfers) {
        transfer.tx_buf = address(sent);
        transfer.rx_buf = address(received);
        transfer.len = length;
    }
    bench::expect(ioctl(descriptor, SPI_IOC_MESSAGE(list_length), transfers) >= 0, "SPI_IOC_MESSAGE(4)");
}

void list(const norv_spi_t* spi) {
    norv_spi_transfer_t transfers[list_length];
    for (norv_spi_transfer_t& transfer : transfers) {
        transfer = {sent, received, length, 0};
    }
    succeed(norv_linux_spi_xfer(spi, transfers, list_length));
}

void add_rows(const norv_spi_t* spi, const norv_spi_t* swapping) {
    const int descriptor = norv_linux_spi_get_fd(spi);
    const int swapping_descriptor = norv_linux_spi_get_fd(swapping);
    bench::add_pair(
        {.name = "norv_linux_spi_dplx", .target = 1.05}, [=] { bare_duplex(descriptor); },
        [=] { succeed(norv_linux_spi_dplx(spi, sent, received, length)); });
    bench::add_pair(
        {.name = "norv_linux_spi_dplx, 16 bits emulated", .target = 1.05},
        [=] { bare_swapped_duplex(swapping_descriptor); },
        [=] { succeed(norv_linux_spi_dplx(swapping, sent, received, length)); });
    bench::add_pair(
        {.name = "norv_linux_spi_write_then_read", .target = 1.05}, [=] { bare_write_then_read(descriptor); },
        [=] { succeed(norv_linux_spi_write_then_read(spi, sent, 1, 0, received, length)); });
    bench::add_pair(
        {.name = "norv_linux_spi_xfer, 4 transfers", .target = 1.05}, [=] { bare_list(descriptor); },
        [=] { list(spi); });
}

}  // namespace

int main(int argc, char** argv) {
    constexpr norv::spi::settings eight_bits = {.max_speed_hz = 1'000'000};
    constexpr norv::spi::settings sixteen_bits = {.max_speed_hz = 1'000'000, .bits_per_word = 16};
    norv::spi spi = norv::spi::open("/dev/spidev0.0", eight_bits).value();
    norv::spi swapping = norv::spi::open("/dev/spidev1.0", sixteen_bits).value();
    bench::expect(swapping.emulates_words(), "emulation");
    add_rows(spi.get(), swapping.get());
    return bench::run_rows(argc, argv);
}
