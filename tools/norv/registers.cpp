// SPDX-License-Identifier: MIT
#include "registers.hpp"

#include <cinttypes>

#include "failure.hpp"
#include "text.hpp"

namespace norv::tool {

void register_range::declare(CLI::App& command) {
    command.add_option("OFFSET", offset, "bytes from the start of region 0, a multiple of 4")->required();
    command.add_flag("--fixed", fixed, "stay at this register, as for a FIFO");
}

void register_range::must_lie_in(const mapped_device& device, uint64_t count) const {
    if (offset % 4 != 0) {
        throw usage_error{text("0x%x is not a multiple of 4", offset)};
    }
    const uint64_t end = offset + 4 * (fixed ? 1 : count);
    if (end > device.size) {
        throw usage_error{text("registers end at 0x%" PRIx64 ", but %s at 0x%" PRIx64, end,
                               device.title().c_str(), device.size)};
    }
}

void show_registers(const mapped_device& device, const register_range& from,
                    const std::vector<uint32_t>& values, const report& out) {
    std::string table;
    for (size_t index = 0; index < values.size(); ++index) {
        if (index % 4 == 0 && values.size() > 1) {
            const size_t offset = from.offset + (from.fixed ? 0 : 4 * index);
            table += text("%s%08zx:", index == 0 ? "" : "\n", offset);
        }
        table += text(values.size() > 1 ? " %08x" : "0x%08x", values[index]);
    }
    out.show(table, {{"device", device.number}, {"offset", from.offset}, {"values", values}});
}

}  // namespace norv::tool
