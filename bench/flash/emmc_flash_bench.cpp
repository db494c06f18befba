// SPDX-License-Identifier: MIT
// Erasing, writing with verification and reading beside the bare calls in the same chunks, on a loop device
// over memory: needs root and the module loop, as on the virtual board.
#include <fcntl.h>
#include <unistd.h>
#include <norv/emmc_flash.hpp>
#include <norv/file.hpp>

#include <cstdint>
#include <cstring>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

constexpr uint32_t chunk = 128 * 1024;
constexpr uint32_t size = 8 * chunk;

char zeros[chunk];
char image[size];
char found[size];

void write_at(int descriptor, const char* bytes, uint32_t address) {
    bench::expect(pwrite(descriptor, bytes, chunk, address) == chunk, "pwrite");
}

void read_at(int descriptor, char* bytes, uint32_t address) {
    bench::expect(pread(descriptor, bytes, chunk, address) == chunk, "pread");
}

void bare_erase(int descriptor) {
    for (uint32_t address = 0; address < size; address += chunk) {
        write_at(descriptor, zeros, address);
    }
}

void bare_write(int descriptor) {
    for (uint32_t address = 0; address < size; address += chunk) {
        write_at(descriptor, image + address, address);
        read_at(descriptor, found, address);
        bench::expect(memcmp(found, image + address, chunk) == 0, "memcmp");
    }
}

void bare_read(int descriptor) {
    for (uint32_t address = 0; address < size; address += chunk) {
        read_at(descriptor, found + address, address);
    }
}

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_linux_emmc_flash");
}

void add_rows(int descriptor, norv_emmc_flash_t** flash) {
    bench::add_pair(
        {.name = "norv_linux_emmc_flash_continue_erase, 1 MiB", .target = 1.02},
        [=] { bare_erase(descriptor); },
        [=] { succeed(norv_linux_emmc_flash_continue_erase(flash, 0, size, nullptr, nullptr, nullptr)); });
    bench::add_pair(
        {.name = "norv_linux_emmc_flash_continue_write_verify, 1 MiB", .target = 1.02},
        [=] { bare_write(descriptor); },
        [=] {
            uint32_t length = size;
            succeed(norv_linux_emmc_flash_continue_write_verify(flash, 0, 0, image, &length, nullptr, nullptr,
                                                                nullptr));
        });
    bench::add_pair(
        {.name = "norv_linux_emmc_flash_continue_read, 1 MiB", .target = 1.02},
        [=] { bare_read(descriptor); },
        [=] {
            uint32_t length = size;
            succeed(norv_linux_emmc_flash_continue_read(flash, 0, found, &length, nullptr, nullptr, nullptr));
        });
}

}  // namespace

int main(int argc, char** argv) {
    constexpr const char* disk = "/dev/ram0";
    const norv::file bare = norv::file::open(disk, O_RDWR | O_SYNC | O_CLOEXEC).value();
    const norv::emmc_flash flash = norv::emmc_flash::open(disk).value();
    norv_emmc_flash_t* handle = flash.get();
    memset(image, 0x5A, size);
    add_rows(bare.descriptor(), &handle);
    return bench::run_rows(argc, argv);
}
