// SPDX-License-Identifier: MIT
#include "support/fault.hpp"

#include <string_view>

namespace norv::test {
namespace {

bool is_read_or_write(std::string_view name) {
    return name.ends_with("read") || name.ends_with("write");
}

bool has_offset(const call& made, off_t offset) {
    if (const auto* at = std::get_if<byte_transfer_at>(&made.details)) {
        return at->offset == offset;
    }
    const auto* moved = std::get_if<byte_transfer>(&made.details);
    return moved != nullptr && moved->position == offset;
}

bool has_request(const call& made, unsigned long request) {
    const auto* asked = std::get_if<control>(&made.details);
    return asked != nullptr && asked->request == request;
}

}  // namespace

bool fault::means(const norv::test::call& made) const {
    const bool named = call.empty() ? how == kind::error || is_read_or_write(made.name) : call == made.name;
    return named && (path.empty() || path == made.path) && (!request || has_request(made, *request)) &&
           (!offset || has_offset(made, *offset));
}

}  // namespace norv::test
