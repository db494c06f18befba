// SPDX-License-Identifier: MIT
// Before something is destroyed: say what, and ask.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace norv::tool {

class confirmation {
  public:
    // Adds --yes to the command.
    void offer_yes(CLI::App& command);

    // Says what will be done ("erase 0x0 to 0x20000 of the SPI flash") and returns if the user agrees, by --yes or
    // at the terminal. Throws otherwise; without a terminal, --yes is required.
    void ask(const std::string& plan) const;

  private:
    bool yes_ = false;
};

}  // namespace norv::tool
