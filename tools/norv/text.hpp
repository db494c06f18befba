// Text as printf(3) makes it, in a std::string; and text from elsewhere, made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

#include "norv_status.h"

namespace norv::tool {

std::string text(const char* format, ...) NORV_PRINTF(1, 2);

// A text that a device or a user chose, as a terminal can show it: control characters and bytes that are not
// UTF-8 become "\x1b".
std::string printable(std::string_view raw);

// The same for several lines: newlines stay.
std::string printable_lines(std::string_view raw);

// The same for a line of JSON, in which the control characters above U+007E need not be escaped: they become
// "\u009b".
std::string printable_json(std::string_view line);

}  // namespace norv::tool
