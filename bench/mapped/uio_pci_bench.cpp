// SPDX-License-Identifier: MIT
// The interrupt mask of a UIO device on PCI beside the bare accesses to its configuration space. Needs the PCI device
// of the virtual board.
#include <fcntl.h>
#include <unistd.h>
#include <norv/file.hpp>
#include <norv/uio.hpp>

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

norv::file open_configuration(const norv::uio& device) {
    const norv::uio_info info = device.get_info().value();
    char path[64];
    snprintf(path, sizeof path, "/sys/bus/pci/devices/%04x:%02x:%02x.%u/config", info.domain, info.bus,
             info.slot, info.function);
    return norv::file::open(path, O_RDWR | O_CLOEXEC).value();
}

}  // namespace

int main(int argc, char** argv) {
    norv::uio::load_pci(0x1234, 0x11E8).ignore();  // refused when an earlier run has done it
    const norv::uio device = norv::uio::open_by_pci_id(0x1234, 0x11E8).value();
    const norv::file configuration = open_configuration(device);
    norv_uio_t* handle = device.get();
    add_mask(&handle, configuration.descriptor());
    return bench::run_rows(argc, argv);
}
