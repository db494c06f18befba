// SPDX-License-Identifier: MIT
// norv uio: registers and the interrupt of UIO devices.
#include "norv_uio.h"

#include <poll.h>

#include "command.hpp"
#include "failure.hpp"
#include "irq_wait.hpp"
#include "mapped_device.hpp"
#include "registers.hpp"

namespace norv::tool {

namespace {

const causes usual{{NORV_STATUS_NOT_FOUND, "it has no region 0 to map, or no node in /dev"},
                   {NORV_STATUS_INVALID_ARG, "its region 0 cannot be mapped"},
                   {NORV_STATUS_DEVICE_ERROR, "it has no interrupt, or its driver cannot mask it"},
                   {status_of(ENOSYS), "its driver cannot mask the interrupt"}};

class device {
  public:
    static constexpr auto kind = "uio";
    static constexpr auto no_driver = "no driver; is uio_pci_mmap or uio_pci_generic loaded?";

    struct target {
        std::string designation;

        void declare(CLI::App& command) {
            command
                .add_option("DEVICE", designation, "N of /dev/uioN, a name, or VENDOR:DEVICE of a PCI device")
                ->required();
        }
    };

    explicit device(const target& which) : found_{find_mapped_device(kind, which.designation)} {
        must(norv_uio_open_by_idx(found_.number, &uio_));
        const uint32_t status = norv_uio_open_mcb_bus(&uio_, &bus_);
        if (status != NORV_STATUS_OK) {
            norv_uio_close(&uio_);
        }
        must(status);
    }

    ~device() {
        bus_.close(&bus_);
        norv_uio_close(&uio_);
    }

    device(const device&) = delete;
    device& operator=(const device&) = delete;

    static uint32_t serve(const pci_identity& pci) { return norv_uio_load_pci(pci.vendor, pci.device); }

    const mapped_device& description() const { return found_; }
    norv_mcb_bus_t& bus() { return bus_; }
    norv_uio_t** handle() { return &uio_; }

    void must(uint32_t status) const { tool::must(found_.title(), status, usual); }

  private:
    mapped_device found_;
    norv_uio_t* uio_ = nullptr;
    norv_mcb_bus_t bus_{};
};

class interrupt : public irq_source {
  public:
    explicit interrupt(device& of) : of_{of} {}

    std::string title() const override { return of_.description().title(); }
    json description() const override { return {{"device", of_.description().number}}; }
    int descriptor() override { return norv_uio_get_fd(of_.handle()); }
    short events() const override { return POLLIN; }
    void enable() override { of_.must(norv_uio_enable_irq(of_.handle())); }
    void take() override { of_.must(norv_uio_wait_irq(of_.handle(), 0)); }
    void disable() noexcept override { norv_uio_disable_irq(of_.handle()); }

  private:
    device& of_;
};

struct wait {
    static constexpr auto name = "wait";
    static constexpr auto help = "Enable the interrupt and wait for it; it is disabled afterwards";

    device::target on;
    irq_wait how;

    void declare(CLI::App& command) {
        on.declare(command);
        how.declare(command);
    }

    void run() {
        device opened{on};
        interrupt source{opened};
        how.run(source);
    }
};

const group uio{"uio", "Registers and interrupts of UIO devices",
                with_commands<list_devices<device>, read_registers<device>, write_registers<device>, wait,
                              bind_devices<device>>};

}  // namespace

}  // namespace norv::tool
