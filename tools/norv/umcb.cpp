// SPDX-License-Identifier: MIT
// norv umcb: registers and interrupt sources of UMCB devices.
#include "norv_umcb.h"

#include <poll.h>
#include <unistd.h>

#include "command.hpp"
#include "failure.hpp"
#include "irq_wait.hpp"
#include "mapped_device.hpp"
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
    explicit device(const target& which) : found_{find_mapped_device(kind, which.designation)} {
        must(norv_umcb_open_by_idx(found_.number, which.mode, &umcb_));
        const uint32_t status = norv_umcb_open_mcb_bus(&umcb_, &bus_);
        if (status != NORV_STATUS_OK) {
            norv_umcb_close(&umcb_);
        }
        must(status);
    }

    ~device() {
        bus_.close(&bus_);
        norv_umcb_close(&umcb_);
    }

    device(const device&) = delete;
    device& operator=(const device&) = delete;

    static uint32_t serve(const pci_identity& pci) { return norv_umcb_load_pci(pci.vendor, pci.device); }

    const mapped_device& description() const { return found_; }
    norv_mcb_bus_t& bus() { return bus_; }
    norv_umcb_t** handle() { return &umcb_; }

    void must(uint32_t status) const { tool::must(found_.title(), status, usual); }

  private:
    mapped_device found_;
    norv_umcb_t* umcb_ = nullptr;
    norv_mcb_bus_t bus_{};
};

class interrupt : public irq_source {
  public:
    interrupt(device& of, uint32_t number) : of_{of}, number_{number} {
        must(norv_umcb_irq_register(of_.handle(), number, &descriptor_));
    }
    ~interrupt() override { close(descriptor_); }
    interrupt(const interrupt&) = delete;
    interrupt& operator=(const interrupt&) = delete;

    std::string title() const override {
        return text("%s source %u", of_.description().title().c_str(), number_);
    }
    json description() const override { return {{"device", of_.description().number}, {"source", number_}}; }
    int descriptor() override { return descriptor_; }
    short events() const override { return POLLPRI; }
    void enable() override { must(norv_umcb_irq_enable(descriptor_)); }
    void take() override { must(norv_umcb_irq_wait(descriptor_, 0)); }
    void disable() noexcept override { norv_umcb_irq_disable(descriptor_); }

  private:
    void must(uint32_t status) const { tool::must(title(), status, usual); }

    device& of_;
    uint32_t number_;
    int32_t descriptor_ = -1;
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
        if (type >= 0) {
            opened.must(norv_umcb_irq_set_type(opened.handle(), static_cast<uint32_t>(type)));
        }
        interrupt awaited{opened, source};
        opened.must(norv_umcb_irq_global_enable(opened.handle()));
        how.run(awaited);
    }
};

const group umcb{"umcb", "Registers and interrupt sources of UMCB devices",
                 with_commands<list_devices<device>, read_registers<device>, write_registers<device>, wait,
                               bind_devices<device>>};

}  // namespace

}  // namespace norv::tool
