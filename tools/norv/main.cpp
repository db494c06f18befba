// SPDX-License-Identifier: MIT
// norv: the hardware of the board from a shell. Each group of commands has a file of its own; here they are
// put together, and an exit status is made of what became of the one that ran.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <sstream>

#include "command.hpp"
#include "describe.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "text.hpp"

namespace {

using namespace norv::tool;

constexpr auto about = "Accesses the hardware of an embedded Linux board.";
constexpr auto statuses =
    "Exit status: 0 success, 1 the operation failed, 2 wrong usage. "
    "Numbers may be decimal, 0x hexadecimal or 0 octal.";

// The command that the words on the command line had come to: "norv gpio get".
std::string furthest_command(const CLI::App* command) {
    std::string words = command->get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        words += " " + command->get_name();
    }
    return words;
}

// CLI11's own statuses are many; help and version are not failures.
int report_parse_end(const CLI::App& tool, const CLI::ParseError& end) {
    if (end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        std::ostringstream shown;
        tool.exit(end, shown, shown);
        print(shown.str());
        return exit_success;
    }
    const std::string command = furthest_command(&tool);
    std::cerr << command << ": " << printable_lines(end.what()) << "\nTry: " << command << " --help\n";
    return exit_usage;
}

int report_end(const std::exception& end, int status) {
    std::cerr << "norv: " << printable_lines(end.what()) << '\n';
    return status;
}

int parse(CLI::App& tool, int argc, char** argv) {
    try {
        tool.parse(argc, argv);
        return exit_success;
    } catch (const CLI::ParseError& end) {
        return report_parse_end(tool, end);
    }
}

int run(CLI::App& tool, int argc, char** argv) {
    try {
        prepare_output();
        catch_interrupts();
        group::add_all(tool);
        // No command of its own, and for no user: the completions and the man page are made from it.
        if (argc == 2 && std::string_view{argv[1]} == "--describe") {
            print(describe(tool).dump() + '\n');
            return exit_success;
        }
        return parse(tool, argc, argv);
    } catch (const reader_gone& end) {
        end_without_reader();
        return report_end(end, exit_failure);
    } catch (const usage_error& end) {
        return report_end(end, exit_usage);
    } catch (const std::exception& end) {
        return report_end(end, exit_failure);
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App tool{about, "norv"};
    tool.footer(statuses);
    tool.set_version_flag("--version", "norv " NORV_VERSION);
    tool.require_subcommand(1);
    return run(tool, argc, argv);
}
