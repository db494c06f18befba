// SPDX-License-Identifier: MIT
// norv umcb: registers and interrupt sources of UMCB devices.
#include "norv/umcb.hpp"

#include <poll.h>

#include <chrono>

#include "command.hpp"
#include "failure.hpp"
#include "irq_wait.hpp"
#include "mapped_device.hpp"
#include "norv/mcb_bus.hpp"
#include "registers.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{{NORV_STATUS_NOT_FOUND, "it has no region 0 to map, or no node in /dev"},
                   {NORV_STATUS_INVALID_ARG, "its driver has no such mode, source or type"},
                   {status_of(EBUSY), "another program uses the source"},
                   {status_of(ENOTTY), "its driver does not support this request"}};

class device {
  public:
    static constexpr auto kind = "umcb";
    static constexpr auto no_driver = "no driver; is umcb_pci_generic loaded?";

    struct target {
        std::string designation;
        int32_t mode = -1;

        void declare(CLI::App& command) {
            command
                .add_option("DEVICE", designation,
                            "N of /dev/umcbN, a name, or VENDOR:DEVICE of a PCI device")
                ->required();
            command.add_option("--mode", mode, "set this mode of the driver first; default: none");
        }
    };

    // By its number always: by name or identity the library opens umcb0, whichever it is.
    explicit device(const target& which)
        : found_{find_mapped_device(kind, which.designation)},
          umcb_{must(found_.title(), norv::umcb::open(found_.number, which.mode), usual)},
          bus_{must(found_.title(), norv::mcb_bus::open(umcb_), usual)} {}

    device(device&&) = delete;  // the bus refers to the owner

    static norv::status serve(const pci_identity& pci) {
        return norv::umcb::load_pci(pci.vendor, pci.device);
    }

    const mapped_device& description() const { return found_; }
    norv::mcb_bus& bus() { return bus_; }
    norv::umcb& handle() { return umcb_; }

  private:
    mapped_device found_;
    norv::umcb umcb_;
    norv::mcb_bus bus_;
};

class interrupt : public irq_source {
  public:
    interrupt(device& of, uint32_t number)
        : of_{of}, number_{number}, source_{must(title(), of.handle().register_irq(number), usual)} {}

    std::string title() const override {
        return text("%s source %u", of_.description().title().c_str(), number_);
    }
    json description() const override { return {{"device", of_.description().number}, {"source", number_}}; }
    int descriptor() override { return source_.descriptor(); }
    short events() const override { return POLLPRI; }
    void enable() override { must(title(), source_.enable(), usual); }
    void take() override { must(title(), source_.wait(std::chrono::milliseconds{0}), usual); }
    void disable() noexcept override { source_.disable().ignore(); }

  private:
    device& of_;
    uint32_t number_;
    norv::umcb_irq source_;
};

struct wait {
    static constexpr auto name = "wait";
    static constexpr auto help =
        "Enable an interrupt source and wait for it; the source is disabled afterwards, the device is not";

    device::target on;
    uint32_t source = 0;
    int64_t type = -1;
    irq_wait how;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("SOURCE", source, "the number of the source")->required();
        command.add_option("--type", type, "set the driver's type of interrupts first")
            ->check(CLI::Range(int64_t{0}, int64_t{UINT32_MAX}).description(""));
        how.declare(command);
    }

    void run() {
        device opened{on};
        const std::string title = opened.description().title();
        if (type >= 0) {
            must(title, opened.handle().set_irq_type(static_cast<uint32_t>(type)), usual);
        }
        interrupt awaited{opened, source};
        must(title, opened.handle().enable_irqs(), usual);
        how.run(awaited);
    }
};

const group umcb{"umcb", "Registers and interrupt sources of UMCB devices",
                 with_commands<list_devices<device>, read_registers<device>, write_registers<device>, wait,
                               bind_devices<device>>};

}  // namespace

}  // namespace norv::tool
