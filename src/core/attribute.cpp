// SPDX-License-Identifier: MIT
// Instantiations that all families share.
#include "core/attribute.hpp"

#include <cstdint>

namespace norv {

template uint32_t attribute::write(uint32_t maximum, const char* format, const char* text) const;
template uint32_t attribute::write(uint32_t maximum, const char* format, uint32_t number) const;

}  // namespace norv
