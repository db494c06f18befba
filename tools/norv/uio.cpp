// SPDX-License-Identifier: MIT
// norv uio: registers and the interrupt of UIO devices.
#include "norv/uio.hpp"

#include <poll.h>

#include <chrono>

#include "command.hpp"
#include "failure.hpp"
#include "irq_wait.hpp"
#include "mapped_device.hpp"
#include "norv/mcb_bus.hpp"
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

    explicit device(const target& which)
        : found_{find_mapped_device(kind, which.designation)},
          uio_{must(found_.title(), norv::uio::open(found_.number), usual)},
          bus_{must(found_.title(), norv::mcb_bus::open(uio_), usual)} {}

    device(device&&) = delete;  // the bus refers to the owner

    static norv::status serve(const pci_identity& pci) { return norv::uio::load_pci(pci.vendor, pci.device); }

    const mapped_device& description() const { return found_; }
    norv::mcb_bus& bus() { return bus_; }
    norv::uio& handle() { return uio_; }

  private:
    mapped_device found_;
    norv::uio uio_;
    norv::mcb_bus bus_;
};

class interrupt : public irq_source {
  public:
    explicit interrupt(device& of) : of_{of} {}

    std::string title() const override { return of_.description().title(); }
    json description() const override { return {{"device", of_.description().number}}; }
    int descriptor() override { return of_.handle().descriptor(); }
    short events() const override { return POLLIN; }
    void enable() override { must(title(), of_.handle().enable_irq(), usual); }
    void take() override { must(title(), of_.handle().wait_irq(std::chrono::milliseconds{0}), usual); }
    void disable() noexcept override { of_.handle().disable_irq().ignore(); }

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
