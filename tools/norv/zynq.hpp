// SPDX-License-Identifier: MIT
// Zynq or ZynqMP: their clocks and sensors are reached in different ways.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

namespace norv::tool {

class zynq_family {
  public:
    // Adds --soc to the command.
    void declare(CLI::App& command);

    // What --soc says; `found` without it.
    bool is_zynqmp(bool found) const { return said_ == nothing ? found : said_ == zynqmp; }

  private:
    enum : uint32_t { nothing, zynq, zynqmp };

    uint32_t said_ = nothing;
};

}  // namespace norv::tool
