#include "report.hpp"

#include <iostream>

namespace norv::tool {

void report::offer_json(CLI::App& command) {
    command.add_flag("--json", json_, "print JSON");
}

void report::show(const std::string& text, const json& document) const {
    // Bytes that are no UTF-8, from a file or a device, must not end the program.
    const std::string line = json_ ? document.dump(-1, ' ', false, json::error_handler_t::replace) : text;
    if (!line.empty()) {
        std::cout << line << std::endl;
    }
}

}  // namespace norv::tool
