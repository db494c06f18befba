// SPDX-License-Identifier: MIT
/**
 * @file norv/shell.hpp
 * Runs a shell command and captures its output. See norv_shell.h.
 *
 *     std::array<char, 64> buffer;
 *     norv::result<std::string_view> kernel = norv::run_shell("uname -r", buffer);
 */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_shell.h"

namespace norv {

/**
 * Runs a command. See `norv_shell_result`.
 *
 * @param command  of 4096 characters or more: an invalid argument
 * @param buffer   filled with zeros first; of a longer output its last piece is left there (quirk 121)
 * @return the text in the buffer, up to its first NUL, without a newline at its end
 */
inline result<std::string_view> run_shell(std::string_view command, std::span<char> buffer) {
    const detail::c_string<4096> text(command);
    const size_t size = std::min<size_t>(buffer.size(), UINT32_MAX);
    std::fill_n(buffer.data(), size, '\0');
    const status ran(norv_shell_result(buffer.data(), static_cast<uint32_t>(size), text.get()));
    if (!ran.ok()) {
        return ran;
    }
    const std::string_view whole(buffer.data(), size);
    return whole.substr(0, whole.find('\0'));
}

}  // namespace norv
