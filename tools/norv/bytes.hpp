// SPDX-License-Identifier: MIT
// Bytes on the command line and on the screen.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace norv::tool {

using bytes = std::vector<uint8_t>;

// "9f 00 12": two digits each.
std::string hex(std::span<const uint8_t> data);

// Rows of 16 bytes, with their offsets and their characters.
std::string hex_dump(std::span<const uint8_t> data);

// Whether a word consists of hexadecimal digits, and has one.
bool is_hexadecimal(const std::string& word);

// The bytes of words like 0x9f, 159 and 0237, one each; throws usage_error for what is none.
bytes parse_bytes(const std::vector<std::string>& words);

// The bytes of digits like 9f0012, as CAN frames are written; throws usage_error for what is none.
bytes parse_hex_digits(const std::string& digits);

// A whole file; "-" is standard input. Throws a failure that names it.
bytes load(const std::string& path);

// Writes a file, from its start or after its end; "-" is standard output. Throws a failure that names it.
void store(const std::string& path, std::span<const uint8_t> data, bool append = false);

}  // namespace norv::tool
