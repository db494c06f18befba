// SPDX-License-Identifier: MIT
#include "command.hpp"

namespace norv::tool {

namespace {

// In a function: groups are constructed in any order, and all of them after this.
std::map<std::string, const group*>& groups() {
    static std::map<std::string, const group*> all;
    return all;
}

}  // namespace

group::group(const char* name, const char* help, declaration declare)
    : name_{name}, help_{help}, declare_{declare} {
    groups()[name] = this;
}

void group::add_all(CLI::App& tool) {
    for (const auto& [name, known] : groups()) {
        known->declare_(*tool.add_subcommand(known->name_, known->help_));
    }
}

CLI::Validator one_of(const std::map<std::string, uint32_t>& words) {
    const auto to_number = [words](std::string& word) -> std::string {
        const auto found = words.find(word);
        if (found != words.end()) {
            word = std::to_string(found->second);
            return "";
        }
        std::string known;
        for (const auto& choice : words) {
            known += (known.empty() ? "" : ", ") + choice.first;
        }
        return "\"" + word + "\" is not one of " + known;
    };
    return CLI::Validator{to_number, ""};
}

}  // namespace norv::tool
