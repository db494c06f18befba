// What of an attribute is the same for every family that writes one.
#include "core/attribute.hpp"

#include <cstdint>

namespace norv {

template uint32_t attribute::write(uint32_t maximum, const char* format, const char* text) const;
template uint32_t attribute::write(uint32_t maximum, const char* format, uint32_t number) const;

}  // namespace norv
