// SPDX-License-Identifier: MIT
// Work on flash beside the bare calls that it must make, in the same steps, on flash of the kernel that it
// runs on: needs a flash without bad blocks first, and NAND after it, as the virtual board has them with
// mtdram and nandsim.
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <norv/spi_flash.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

// One partition, and the part of it that is worked on.
struct area {
    std::string name;
    norv_spi_flash_t* flash;
    uint32_t region;
    uint32_t blocks;

    const norv_mtd_t& device() const { return flash->regions[region].device; }
    int descriptor() const { return device().descriptor; }
    uint32_t block() const { return device().info.erasesize; }
    uint32_t size() const { return blocks * block(); }
    uint32_t start() const { return static_cast<uint32_t>(flash->regions[region].base); }
    bool is_nand() const { return device().info.type == MTD_NANDFLASH; }
};

std::vector<uint8_t> image;
std::vector<uint8_t> found;

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_spi_flash");
}

// Whether the block is to be worked on.
bool bare_is_good(const area& area, uint32_t offset) {
    if (!area.is_nand()) {
        return true;
    }
    loff_t position = offset;
    return ioctl(area.descriptor(), MEMGETBADBLOCK, &position) == 0;
}

void bare_erase(const area& area) {
    for (uint32_t offset = 0; offset < area.size(); offset += area.block()) {
        erase_info_user block = {offset, area.block()};
        bench::expect(bare_is_good(area, offset) && ioctl(area.descriptor(), MEMERASE, &block) == 0,
                      "MEMERASE");
    }
}

void bare_read_block(const area& area, uint32_t offset, uint8_t* buffer) {
    bench::expect(lseek(area.descriptor(), offset, SEEK_SET) == offset &&
                      read(area.descriptor(), buffer, area.block()) == area.block(),
                  "read");
}

void bare_read(const area& area) {
    for (uint32_t offset = 0; offset < area.size(); offset += area.block()) {
        bench::expect(bare_is_good(area, offset), "MEMGETBADBLOCK");
        bare_read_block(area, offset, found.data() + offset);
    }
}

void bare_write_verify(const area& area) {
    for (uint32_t offset = 0; offset < area.size(); offset += area.block()) {
        const uint8_t* bytes = image.data() + offset;
        bench::expect(bare_is_good(area, offset) && lseek(area.descriptor(), offset, SEEK_SET) == offset &&
                          write(area.descriptor(), bytes, area.block()) == area.block(),
                      "write");
        bare_read_block(area, offset, found.data());
        bench::expect(memcmp(found.data(), bytes, area.block()) == 0, "verify");
    }
}

void erase(area area) {
    uint32_t end = area.start() + area.size();
    succeed(norv_linux_spi_flash_continue_erase(&area.flash, area.start(), area.size(), &end, nullptr,
                                                nullptr, nullptr));
}

void read(area area) {
    uint32_t length = area.size();
    succeed(norv_linux_spi_flash_continue_read(&area.flash, area.start(), found.data(), &length, nullptr,
                                               nullptr, nullptr));
}

void write_verify(area area) {
    uint32_t length = area.size();
    uint32_t end = area.start() + area.size();
    succeed(norv_linux_spi_flash_continue_write_verify(&area.flash, area.start(), 0, image.data(), &length,
                                                       &end, nullptr, nullptr, nullptr));
}

// The same image is written again and again: the bits that it clears are clear already. Once before the
// measuring, so that the work area has its pages, as it has after the first block of a long write.
void add_rows(const area& area) {
    erase(area);
    write_verify(area);
    write_verify(area);
    bench::add_pair(
        {.name = "read " + area.name, .target = 1.02}, [=] { bare_read(area); }, [=] { read(area); });
    bench::add_pair(
        {.name = "erase " + area.name, .target = 1.02}, [=] { bare_erase(area); }, [=] { erase(area); });
    bench::add_pair(
        {.name = "write and verify " + area.name, .target = 1.02}, [=] { bare_write_verify(area); },
        [=] { write_verify(area); });
}

}  // namespace

int main(int argc, char** argv) {
    const norv::spi_flash flash = norv::spi_flash::open().value();
    bench::expect(flash.get()->region_count > 1, "flash");
    const area linear = {"1 MiB of flash", flash.get(), 0, 8};
    const area nand = {"512 KiB of NAND", flash.get(), 1, 32};
    image.assign(std::max(linear.size(), nand.size()), 0x5A);
    found.resize(image.size());
    add_rows(linear);
    add_rows(nand);
    return bench::run_rows(argc, argv);
}
