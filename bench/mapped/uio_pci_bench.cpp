// SPDX-License-Identifier: MIT
// The interrupt mask of a UIO device on PCI beside the bare accesses to its configuration space. Needs the PCI device
// of the virtual board.
#include <fcntl.h>
#include <norv_uio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

void succeed(uint32_t status) {
    bench::expect(status == NORV_STATUS_OK, "norv_uio");
}

void bare_mask(int configuration, uint8_t bit) {
    uint8_t value = 0;
    bench::expect(pread(configuration, &value, 1, 5) == 1, "pread");
    value = static_cast<uint8_t>((value & 0xFB) | bit);
    bench::expect(pwrite(configuration, &value, 1, 5) == 1, "pwrite");
}

void add_mask(norv_uio_t** device, int configuration) {
    bench::add_pair(
        {.name = "UIO on PCI: disable, enable", .target = 1.05},
        [=] {
            bare_mask(configuration, 0x04);
            bare_mask(configuration, 0);
        },
        [=] {
            succeed(norv_uio_disable_irq(device));
            succeed(norv_uio_enable_irq(device));
        });
}

int open_configuration(norv_uio_t** device) {
    norv_uio_info_t info = {};
    char path[64];
    succeed(norv_uio_get_info(device, &info));
    snprintf(path, sizeof path, "/sys/bus/pci/devices/%04x:%02x:%02x.%u/config", info.domain, info.bus,
             info.slot, info.function);
    const int configuration = open(path, O_RDWR | O_CLOEXEC);
    bench::expect(configuration >= 0, path);
    return configuration;
}

}  // namespace

int main(int argc, char** argv) {
    norv_uio_t* device = nullptr;
    norv_uio_load_pci(0x1234, 0x11E8);  // refused when an earlier run has done it
    succeed(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device));
    const int configuration = open_configuration(&device);
    add_mask(&device, configuration);
    const int result = bench::run_rows(argc, argv);
    close(configuration);
    norv_uio_close(&device);
    return result;
}
