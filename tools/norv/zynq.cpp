// SPDX-License-Identifier: MIT
#include "zynq.hpp"

#include "command.hpp"

namespace norv::tool {

void zynq_family::declare(CLI::App& command) {
    command.add_option("--soc", said_, "zynq or zynqmp; default: what the kernel shows")
        ->type_name("SOC")
        ->transform(one_of({{"zynq", zynq}, {"zynqmp", zynqmp}}));
}

}  // namespace norv::tool
