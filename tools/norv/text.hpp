// SPDX-License-Identifier: MIT
// Text as printf(3) makes it, in a std::string; small operations on text; and text from elsewhere, escaped
// for a terminal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "norv_status.h"

namespace norv::tool {

std::string text(const char* format, ...) NORV_PRINTF(1, 2);

// The number that the whole word is: decimal, hexadecimal (0x1f) or octal (017).
std::optional<uint32_t> parse_number(const std::string& word);

// The words with a blank between each two.
std::string joined(const std::vector<std::string>& words);

// The text with each `part` replaced.
std::string replaced(std::string text, std::string_view part, std::string_view replacement);

// A text that a device or a user chose, as a terminal can show it: control characters and bytes that are not
// UTF-8 become "\x1b".
std::string printable(std::string_view raw);

// The same for several lines: newlines stay.
std::string printable_lines(std::string_view raw);

// The same for a line of JSON, in which the control characters above U+007E need not be escaped: they become
// "\u009b".
std::string printable_json(std::string_view line);

}  // namespace norv::tool
