#include "confirm.hpp"

#include <unistd.h>

#include <iostream>

#include "failure.hpp"
#include "text.hpp"

namespace norv::tool {

void confirmation::offer_yes(CLI::App& command) {
    command.add_flag("-y,--yes", yes_, "do not ask; needed where no terminal is there to ask at");
}

void confirmation::ask(const std::string& plan) const {
    std::cerr << "This will " << printable_lines(plan) << ".\n";
    if (yes_) {
        return;
    }
    if (isatty(STDIN_FILENO) == 0) {
        throw usage_error{"nothing was done: there is no terminal to ask at, say --yes"};
    }
    std::string answer;
    std::cerr << "Go on? [y/N] ";
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw failure{"cancelled", "nothing was done"};
    }
}

}  // namespace norv::tool
