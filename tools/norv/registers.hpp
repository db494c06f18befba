// SPDX-License-Identifier: MIT
// Commands on mapped devices and their registers, the same for every kind of them. `Device` opens one:
//
//     struct device {
//         struct target { ...; void declare(CLI::App& command); };   which one, on the command line
//         static constexpr auto kind = "uio";
//         explicit device(const target& which);
//         const mapped_device& description() const;
//         norv::mcb_bus& bus();
//
//         static norv::status serve(const pci_identity& pci);        gives it to the kernel's driver
//         static constexpr auto no_driver = "no driver; ...";        the usual cause when it is missing
//     };
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "failure.hpp"
#include "mapped_device.hpp"
#include "norv/mcb_bus.hpp"
#include "report.hpp"

namespace norv::tool {

// Where a command begins, and whether it moves on to the next register after each one.
struct register_range {
    uint32_t offset = 0;
    bool fixed = false;

    void declare(CLI::App& command);

    // What lies outside the device would end the program: throws usage_error.
    void must_lie_in(const mapped_device& device, uint64_t count) const;

    norv::mcb_burst mode() const { return fixed ? norv::mcb_burst::fixed : norv::mcb_burst::up; }
};

void show_registers(const mapped_device& device, const register_range& from,
                    const std::vector<uint32_t>& values, const report& out);

template <typename Device>
struct list_devices {
    static constexpr auto name = "list";
    static constexpr auto help = "Show the devices: number, size of region 0 in bytes, PCI identity, name";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }
    void run() { show_mapped_devices(Device::kind, out); }
};

template <typename Device>
struct read_registers {
    static constexpr auto name = "read";
    static constexpr auto help = "Read 32-bit registers";

    typename Device::target on;
    register_range from;
    uint32_t count = 1;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        from.declare(command);
        command.add_option("-n,--count", count, "how many registers")
            ->check(CLI::Range(1, 1 << 20))
            ->capture_default_str();
        out.offer_json(command);
    }

    void run() {
        Device device{on};
        from.must_lie_in(device.description(), count);
        std::vector<uint32_t> values(count);
        must(device.description().title(), device.bus().read_burst(from.offset, values, from.mode()));
        show_registers(device.description(), from, values, out);
    }
};

template <typename Device>
struct write_registers {
    static constexpr auto name = "write";
    static constexpr auto help = "Write 32-bit registers";

    typename Device::target on;
    register_range from;
    std::vector<uint32_t> values;

    void declare(CLI::App& command) {
        on.declare(command);
        from.declare(command);
        command.add_option("VALUE", values, "32 bits; further values go to the following registers")
            ->required();
    }

    void run() {
        Device device{on};
        from.must_lie_in(device.description(), values.size());
        must(device.description().title(), device.bus().write_burst(from.offset, values, from.mode()));
    }
};

template <typename Device>
struct bind_devices {
    static constexpr auto name = "bind";
    static constexpr auto help = "Let the kernel's driver serve PCI devices of an identity";

    std::string identity;

    void declare(CLI::App& command) {
        command.add_option("IDENTITY", identity, "hexadecimal, as lspci -n prints it")
            ->required()
            ->type_name("VENDOR:DEVICE");
    }

    void run() {
        const pci_identity pci = required_pci_identity(identity);
        must("pci " + pci.words(), Device::serve(pci),
             {{NORV_STATUS_NOT_AVAILABLE, Device::no_driver},
              {status_of(EEXIST), "the driver knows the identity already"}});
    }
};

}  // namespace norv::tool
