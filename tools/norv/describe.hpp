// SPDX-License-Identifier: MIT
// All commands and their arguments as JSON: what the completions and the man page are made from (generate).
#pragma once

#include <CLI/CLI.hpp>

#include "report.hpp"

namespace norv::tool {

json describe(const CLI::App& command);

}  // namespace norv::tool
