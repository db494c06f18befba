// SPDX-License-Identifier: MIT
#include "bytes.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "failure.hpp"
#include "output.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using file = std::unique_ptr<std::FILE, file_closer>;

file open_file(const std::string& path, const char* mode) {
    file opened{std::fopen(path.c_str(), mode)};
    if (!opened) {
        throw failure{path, status_of(errno)};
    }
    return opened;
}

// strtoul(3) would also take a sign, blanks and 0x before the digits.
uint8_t parse_byte(const std::string& word, int base) {
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(word.c_str(), &end, base);
    const bool begins_well = base == 16 ? is_hexadecimal(word) : !word.empty() && std::isdigit(word[0]) != 0;
    if (!begins_well || *end != '\0' || errno != 0 || value > 0xFF) {
        throw usage_error{"\"" + word + "\" is not a byte"};
    }
    return static_cast<uint8_t>(value);
}

std::string characters(std::span<const uint8_t> data) {
    std::string result;
    for (const uint8_t byte : data) {
        result += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    return result;
}

}  // namespace

std::string hex(std::span<const uint8_t> data) {
    std::string result;
    for (const uint8_t byte : data) {
        result += text(result.empty() ? "%02x" : " %02x", byte);
    }
    return result;
}

std::string hex_dump(std::span<const uint8_t> data) {
    std::string result;
    for (size_t offset = 0; offset < data.size(); offset += 16) {
        const auto row = data.subspan(offset, std::min<size_t>(16, data.size() - offset));
        result += text("%s%04zx: %-47s  %s", offset == 0 ? "" : "\n", offset, hex(row).c_str(),
                       characters(row).c_str());
    }
    return result;
}

bool is_hexadecimal(const std::string& word) {
    return !word.empty() && std::all_of(word.begin(), word.end(),
                                        [](unsigned char digit) { return std::isxdigit(digit) != 0; });
}

bytes parse_bytes(const std::vector<std::string>& words) {
    bytes result;
    for (const std::string& word : words) {
        result.push_back(parse_byte(word, 0));
    }
    return result;
}

bytes parse_hex_digits(const std::string& digits) {
    bytes result;
    if (digits.size() % 2 != 0) {
        throw usage_error{"\"" + digits + "\" ends in the middle of a byte"};
    }
    for (size_t at = 0; at < digits.size(); at += 2) {
        result.push_back(parse_byte(digits.substr(at, 2), 16));
    }
    return result;
}

bytes load(const std::string& path) {
    const file source = open_file(path == "-" ? "/dev/stdin" : path, "rb");
    bytes result;
    uint8_t chunk[65536];
    size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, source.get())) > 0) {
        result.insert(result.end(), chunk, chunk + count);
    }
    if (std::ferror(source.get()) != 0) {
        throw failure{path, status_of(errno)};
    }
    return result;
}

void store(const std::string& path, std::span<const uint8_t> data, bool append) {
    if (path == "-") {
        print({reinterpret_cast<const char*>(data.data()), data.size()});
        return;
    }
    file target = open_file(path, append ? "ab" : "wb");
    const bool written = std::fwrite(data.data(), 1, data.size(), target.get()) == data.size();
    if (std::fclose(target.release()) != 0 || !written) {
        throw failure{path, status_of(errno)};
    }
}

}  // namespace norv::tool
