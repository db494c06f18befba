// SPDX-License-Identifier: MIT
#include "confirm.hpp"

#include <unistd.h>

#include <iostream>

#include "failure.hpp"
#include "text.hpp"

namespace norv::tool {

void confirmation::offer_yes(CLI::App& command) {
    command.add_flag("-y,--yes", yes_, "assume yes; required if standard input is not a terminal");
}

void confirmation::ask(const std::string& plan) const {
    std::cerr << "This will " << printable_lines(plan) << ".\n";
    if (yes_) {
        return;
    }
    if (isatty(STDIN_FILENO) == 0) {
        throw usage_error{"nothing was done: standard input is not a terminal; use --yes"};
    }
    std::string answer;
    std::cerr << "Continue? [y/N] ";
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw failure{"cancelled", "nothing was done"};
    }
}

}  // namespace norv::tool
