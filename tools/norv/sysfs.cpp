// SPDX-License-Identifier: MIT
#include "sysfs.hpp"

#include <string.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "norv/file.hpp"

namespace norv::tool {

namespace {

norv::result<std::string> read_attribute(const std::string& path) {
    std::array<char, 4096> page;  // what an attribute has at most
    const norv::result<std::string_view> content = norv::read_text(path, page);
    if (!content) {
        return content.status();
    }
    return std::string{content->substr(0, content->size() - (content->ends_with('\n') ? 1 : 0))};
}

}  // namespace

std::string attribute(const std::string& thing, const std::string& path, causes usual) {
    return must(thing, read_attribute(path), usual);
}

std::optional<std::string> attribute_if_there(const std::string& path) {
    const norv::result<std::string> content = read_attribute(path);
    return content ? std::optional{*content} : std::nullopt;
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator{directory, missing}) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end(), [](const auto& first, const auto& second) {
        return strverscmp(first.c_str(), second.c_str()) < 0;
    });
    return names;
}

std::optional<uint32_t> number_behind(const std::string& name, const std::string& prefix) {
    uint32_t number = 0;
    if (!name.starts_with(prefix)) {
        return std::nullopt;
    }
    const char* end = name.data() + name.size();
    const auto parsed = std::from_chars(name.data() + prefix.size(), end, number);
    return parsed.ec == std::errc{} && parsed.ptr == end ? std::optional{number} : std::nullopt;
}

}  // namespace norv::tool
