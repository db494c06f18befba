// SPDX-License-Identifier: MIT
// Words of the command line that become part of a path. The library truncates a path after 255 characters, so
// that a long word with "../" in it would lead to any file: such words are wrong usage.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>

namespace norv::tool {

// With the longest path that the library makes of a name, the one below configfs, it has 255 characters.
constexpr size_t longest_name = 208;

// For what is the name of one entry of a directory: command.add_option("NAME", ...)->check(name_of("an
// overlay")).
CLI::Validator name_of(const std::string& thing, size_t longest = longest_name);

// For what is a path as a whole.
CLI::Validator whole_path();

// Whether a path leads upwards anywhere: "a/../b".
bool leads_upwards(const std::string& path);

}  // namespace norv::tool
