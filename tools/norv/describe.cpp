// SPDX-License-Identifier: MIT
#include "describe.hpp"

namespace norv::tool {

namespace {

// "LINE", or "--edge EDGE"; a flag takes no value.
json describe_option(const CLI::Option& option) {
    json names = json::array();
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    const bool takes_value = option.get_items_expected_max() > 0;
    return {{"names", names},
            {"positional", option.get_positional() ? option.get_name(true) : ""},
            {"value", takes_value ? option.get_type_name() : ""},
            {"default", option.get_default_str()},
            {"repeated", option.get_items_expected_max() > 1},
            {"required", option.get_required()},
            {"help", option.get_description()}};
}

}  // namespace

json describe(const CLI::App& command) {
    json options = json::array();
    json commands = json::array();
    for (const CLI::Option* option : command.get_options()) {
        options.push_back(describe_option(*option));
    }
    for (const CLI::App* below : command.get_subcommands({})) {
        commands.push_back(describe(*below));
    }
    return {{"name", command.get_name()},
            {"help", command.get_description()},
            {"options", options},
            {"commands", commands}};
}

}  // namespace norv::tool
