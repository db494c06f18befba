// SPDX-License-Identifier: MIT
//
// Flash; flash_update.cpp updates firmware on both kinds:
//
//     flash mtd PARTITION               shows the geometry of a partition, its bad blocks and its first bytes
//     flash spi_flash START END IMAGE   erases an area of the SPI flash, and writes and verifies an image there
//     flash emmc_flash DEVICE           shows the geometry of an eMMC or SD card
#include <array>
#include <fstream>
#include <iterator>
#include <vector>

#include "norv/emmc_flash.hpp"
#include "norv/mtd.hpp"
#include "norv/spi_flash.hpp"
#include "program.hpp"

namespace {

// Only NAND is queried for bad blocks.
unsigned count_bad_blocks(const norv::mtd& partition) {
    unsigned count = 0;
    const mtd_info_user info = partition.info();
    for (uint32_t block = 0; partition.is_nand() && block < info.size; block += info.erasesize) {
        if (partition.is_bad_block(block).value()) {
            std::printf("  the block at 0x%08x is bad\n", block);
            ++count;
        }
    }
    return count;
}

void show_mtd(char** arguments) {
    const norv::mtd partition = norv::mtd::open(arguments[0]).value();
    std::printf("  %s: %u KiB, blocks of %u, %u of them bad\n", arguments[0], partition.info().size / 1024,
                partition.info().erasesize, count_bad_blocks(partition));

    std::array<std::byte, 16> bytes;
    const norv::transferred read = partition.read(0, bytes);
    read.status.value();
    std::printf("  starts with ");
    for (const std::byte byte : std::span(bytes).first(read.count)) {
        std::printf(" %02x", std::to_integer<unsigned>(byte));
    }
    std::printf("\n");
}

void write_image(uint32_t start, uint32_t end, std::span<const std::byte> image) {
    norv::spi_flash flash = norv::spi_flash::open().value();
    const norv::flash_erased erased = flash.continue_erase(start, static_cast<uint32_t>(image.size()), end);
    erased.status.value();
    // `erased.end` is the end of the erased blocks: the write stays within them.
    const norv::flash_written written = flash.continue_write_verify(
        start, 0, image, erased.end,
        [](const norv::flash_progress& step) { std::printf("  writing %u %%\n", step.percentage); });
    written.status.value();
    std::printf("  %zu bytes written and verified\n", written.count);
}

void show_spi_flash(char** arguments) {
    std::ifstream file(arguments[2], std::ios::binary);
    const std::vector<char> image{std::istreambuf_iterator<char>(file), {}};
    write_image(number(arguments[0]), number(arguments[1]), std::as_bytes(std::span(image)));
}

void show_emmc_flash(char** arguments) {
    norv::emmc_flash flash = norv::emmc_flash::open(arguments[0]).value();
    const norv::flash_info info = flash.get_info().value();
    std::printf("  %s: %llu KiB, erase block %u, write unit %u\n", arguments[0],
                static_cast<unsigned long long>(info.size / 1024), info.erase_block_size,
                info.write_unit_size);
}

constexpr family families[] = {
    {"mtd", 1, show_mtd}, {"spi_flash", 3, show_spi_flash}, {"emmc_flash", 1, show_emmc_flash}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
