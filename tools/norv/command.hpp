// SPDX-License-Identifier: MIT
// How a command, and a group of commands, becomes part of the tool.
//
// A command is a structure: its members are its arguments, `declare` names them on the command line, `run`
// does the work and throws what went wrong (failure.hpp). A group is a constant in the group's file:
//
//     struct get {
//         static constexpr auto name = "get";
//         static constexpr auto help = "Read lines";
//         std::vector<uint32_t> lines;
//         report out;
//
//         void declare(CLI::App& command) {
//             command.add_option("LINE", lines, "the kernel's number of a line")->required();
//             out.offer_json(command);
//         }
//         void run() { ... }
//     };
//
//     const group gpio{"gpio", "GPIO lines", with_commands<get, set, watch>};
//
// A group that is a command itself ("norv uuid") says `as_command<uuid>` in place of `with_commands`.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace norv::tool {

// Registered before `main` starts; `main` shows groups in the order of their names.
class group {
  public:
    using declaration = void (*)(CLI::App&);

    group(const char* name, const char* help, declaration declare);

    // Adds all groups that there are.
    static void add_all(CLI::App& tool);

  private:
    const char* name_;
    const char* help_;
    declaration declare_;
};

// For an option that takes one of some words, each of which stands for a number:
// command.add_option("--edge", edge, ...)->transform(one_of(edges)).
CLI::Validator one_of(const std::map<std::string, uint32_t>& words);

// The same for words that stand for the values of an enumeration.
template <typename Value>
CLI::Validator one_of(const std::map<std::string, Value>& words) {
    std::map<std::string, uint32_t> numbers;
    for (const auto& [word, value] : words) {
        numbers[word] = static_cast<uint32_t>(value);
    }
    return one_of(numbers);
}

template <typename Command>
void as_command(CLI::App& app) {
    auto command = std::make_shared<Command>();
    command->declare(app);
    app.callback([command] { command->run(); });
}

template <typename... Commands>
void with_commands(CLI::App& app) {
    (as_command<Commands>(*app.add_subcommand(Commands::name, Commands::help)), ...);
    app.require_subcommand(1);
}

}  // namespace norv::tool
