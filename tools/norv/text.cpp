#include "text.hpp"

#include <cstdarg>
#include <cstdio>

namespace norv::tool {

std::string text(const char* format, ...) {
    va_list values;
    va_start(values, format);
    va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(nullptr, 0, format, values);
    va_end(values);
    std::string result(static_cast<size_t>(length), '\0');
    std::vsnprintf(result.data(), result.size() + 1, format, again);
    va_end(again);
    return result;
}

}  // namespace norv::tool
