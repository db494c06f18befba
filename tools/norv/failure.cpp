// SPDX-License-Identifier: MIT
#include "failure.hpp"

#include <unistd.h>

#include "text.hpp"

namespace norv::tool {

namespace {

const char* cause_in(causes usual, uint32_t status) {
    for (const cause& candidate : usual) {
        if (candidate.status == status &&
            (candidate.missing == nullptr || access(candidate.missing, F_OK) != 0)) {
            return candidate.text;
        }
    }
    return nullptr;
}

// What is usual for the group comes first, then what is usual everywhere, then what the status means.
const char* cause_of(uint32_t status, causes usual) {
    const char* of_group = cause_in(usual, status);
    if (of_group != nullptr) {
        return of_group;
    }
    const char* everywhere = cause_in({{status_of(EACCES), "no permission; are you root?"},
                                       {status_of(EPERM), "not permitted; are you root?"}},
                                      status);
    return everywhere != nullptr ? everywhere : norv_status_text(status);
}

}  // namespace

failure::failure(const std::string& thing, uint32_t status, causes usual)
    : runtime_error{text("%s: %s: %s", thing.c_str(), norv_status_name(status), cause_of(status, usual))} {}

failure::failure(const std::string& thing, const std::string& explanation)
    : runtime_error{thing + ": " + explanation} {}

}  // namespace norv::tool
