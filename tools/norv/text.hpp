// Text as printf(3) makes it, in a std::string.
#pragma once

#include <string>

#include "norv_status.h"

namespace norv::tool {

std::string text(const char* format, ...) NORV_PRINTF(1, 2);

}  // namespace norv::tool
