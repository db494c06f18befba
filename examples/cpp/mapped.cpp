// SPDX-License-Identifier: MIT
//
// Mapped devices and DMA buffers:
//
//     mapped uio NAME COUNT            waits for interrupts, and enables the interrupt again after each
//     mapped uio_pci VENDOR DEVICE     binds a device to the driver, and shows its PCI address
//     mapped umcb INDEX SOURCE COUNT   registers an interrupt source, and waits for its interrupts
//     mapped mcb_bus NAME              sets up the registers of a device, and reads them back
//     mapped dma                       fills a buffer, and reads it through another handle
#include <array>
#include <cerrno>
#include <chrono>

#include "norv/dma.hpp"
#include "norv/mcb_bus.hpp"
#include "norv/uio.hpp"
#include "norv/umcb.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

void show_uio(char** arguments) {
    norv::uio device = norv::uio::open_by_name(arguments[0]).value();
    for (uint32_t interrupt = 1; interrupt <= number(arguments[1]); ++interrupt) {
        device.enable_irq().value();
        device.wait_irq(10s).value();
        std::printf("  interrupt %u\n", interrupt);
    }
    device.disable_irq().value();
}

// It is not a failure if the driver has the identity already.
void bind(uint16_t vendor, uint16_t device) {
    const norv::status bound = norv::uio::load_pci(vendor, device);
    if (bound != norv_get_status_by_errno(EEXIST)) {
        bound.value();
    }
}

void show_uio_pci(char** arguments) {
    const auto vendor = static_cast<uint16_t>(number(arguments[0]));
    const auto identity = static_cast<uint16_t>(number(arguments[1]));
    bind(vendor, identity);
    const norv::uio device = norv::uio::open_by_pci_id(vendor, identity).value();
    const norv::uio_info info = device.get_info().value();
    std::printf("  %04x:%04x is at %04x:%02x:%02x.%x\n", info.vendor, info.device, info.domain, info.bus,
                info.slot, info.function);
}

void show_umcb(char** arguments) {
    norv::umcb device = norv::umcb::open(number(arguments[0])).value();
    norv::umcb_irq source = device.register_irq(number(arguments[1])).value();
    device.enable_irqs().value();
    source.enable().value();
    for (uint32_t interrupt = 1; interrupt <= number(arguments[2]); ++interrupt) {
        source.wait(10s).value();
        std::printf("  interrupt %u\n", interrupt);
    }
    source.disable().value();
    device.disable_irqs().value();
}

constexpr norv::reg control(0x10);
constexpr norv::reg lowest(0x14);
constexpr norv::reg highest(0x18);
constexpr norv::reg mask(0x1C);

// The driver. It does not depend on the kind of device.
void set_up_device(norv::mcb_bus& bus) {
    bus.write(lowest, 20).value();
    bus.write(highest, 80).value();
    bus.write(mask, 0xF0).value();
    bus.write(control, 1).value();
}

void show_mcb_bus(char** arguments) {
    norv::uio device = norv::uio::open_by_name(arguments[0]).value();
    norv::mcb_bus bus = norv::mcb_bus::open(device).value();
    set_up_device(bus);
    std::array<uint32_t, 4> found;
    bus.read_burst(control.offset(), found).value();
    std::printf("  control %u, from %u to %u, mask 0x%02x\n", found[0], found[1], found[2], found[3]);
}

// The device must not touch the buffer while the processor writes to it.
void fill(norv::dma_buffer& buffer) {
    unsigned value = 0;
    const std::span<std::byte> memory = buffer.map().value();
    buffer.start_access().value();
    for (std::byte& byte : memory) {
        byte = std::byte(value++ % 251);
    }
    buffer.end_access().value();
    buffer.unmap().value();
}

size_t count_pieces(norv::dma_buffer& buffer) {
    const size_t pieces = buffer.lock().value().size();
    buffer.unlock().value();
    return pieces;
}

void show_dma(char**) {
    norv::dma_manager manager = norv::dma_manager::open().value();
    norv::dma_buffer buffer = norv::dma_buffer::create(manager, 16384).value();
    fill(buffer);
    std::printf("  %zu pieces of memory\n", count_pieces(buffer));
    norv::dma_buffer shared =
        norv::dma_buffer::create_from_descriptor(manager, buffer.descriptor(), 16384).value();
    const std::span<std::byte> memory = shared.map().value();
    std::printf("  byte 1000 is %u\n", std::to_integer<unsigned>(memory[1000]));
}

constexpr family families[] = {{"uio", 2, show_uio},
                               {"uio_pci", 2, show_uio_pci},
                               {"umcb", 3, show_umcb},
                               {"mcb_bus", 1, show_mcb_bus},
                               {"dma", 0, show_dma}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
