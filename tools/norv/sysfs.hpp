// SPDX-License-Identifier: MIT
// What the kernel shows beside the library's calls: directories and attributes below /sys and /proc, for
// commands that list and show.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "failure.hpp"

namespace norv::tool {

// The text of an attribute, without its newline. Throws a failure that names `thing`.
std::string attribute(const std::string& thing, const std::string& path, causes usual = {});

// The same, where the attribute may be missing.
std::optional<std::string> attribute_if_there(const std::string& path);

// The entries of a directory in the order of their names, numbers as numbers: mtd2 before mtd10. None when it
// is missing.
std::vector<std::string> names_in(const std::string& directory);

// N of a name like mtdN; nothing for any other name, mtdNro for instance.
std::optional<uint32_t> number_behind(const std::string& name, const std::string& prefix);

}  // namespace norv::tool
