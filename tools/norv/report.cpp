// SPDX-License-Identifier: MIT
#include "report.hpp"

#include <chrono>

#include "norv/clock.hpp"
#include "output.hpp"
#include "text.hpp"

namespace norv::tool {

double timestamp() {
    return std::chrono::duration<double>(norv::monotonic_clock::now().time_since_epoch()).count();
}

void report::offer_json(CLI::App& command) {
    command.add_flag("--json", json_, "print JSON");
}

void report::show(const std::string& text, const json& document) const {
    // Bytes that are not UTF-8, from a file or a device, must not end the program.
    const std::string line =
        json_ ? printable_json(document.dump(-1, ' ', false, json::error_handler_t::replace))
              : printable_lines(text);
    if (!line.empty()) {
        print(line + '\n');
    }
}

}  // namespace norv::tool
