// SPDX-License-Identifier: MIT
/**
 * @file norv/uuid.hpp
 * Random UUIDs from the kernel. See norv_uuid.h.
 *
 *     norv::result<norv::uuid> id = norv::uuid::generate();
 *     if (id) {
 *         std::fwrite(id->text().data(), 1, id->text().size(), stdout);
 *     }
 */
#pragma once

#include <array>
#include <string_view>

#include "norv/result.hpp"
#include "norv_uuid.h"

namespace norv {

/** A UUID as a text, which can be copied and compared. */
class uuid {
  public:
    /** See `norv_uuid_generate`. */
    static result<uuid> generate() {
        uuid made;
        const status generated(norv_uuid_generate(made.text_.data()));
        return generated.ok() ? result<uuid>(made) : result<uuid>(generated);
    }

    /** The 36 characters, without a NUL at their end; valid as long as the object. */
    std::string_view text() const noexcept { return {text_.data(), text_.size()}; }

    friend bool operator==(const uuid&, const uuid&) noexcept = default;

  private:
    uuid() noexcept = default;

    std::array<char, NORV_UUID_LENGTH> text_{};
};

}  // namespace norv
