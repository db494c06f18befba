// SPDX-License-Identifier: MIT
#include "names.hpp"

#include <algorithm>
#include <filesystem>

namespace norv::tool {

namespace {

constexpr size_t longest_path = 255;

bool is_name(const std::string& word, size_t longest) {
    return !word.empty() && word[0] != '.' && word.find('/') == std::string::npos && word.size() <= longest;
}

}  // namespace

CLI::Validator name_of(const std::string& thing, size_t longest) {
    const auto check = [thing, longest](const std::string& word) -> std::string {
        return is_name(word, longest) ? "" : "\"" + word + "\" is not the name of " + thing;
    };
    return CLI::Validator{check, ""};
}

CLI::Validator whole_path() {
    const auto check = [](const std::string& word) -> std::string {
        return word.size() <= longest_path ? "" : "\"" + word + "\" has more than 255 characters";
    };
    return CLI::Validator{check, ""};
}

bool leads_upwards(const std::string& path) {
    const std::filesystem::path steps{path};
    return std::find(steps.begin(), steps.end(), "..") != steps.end();
}

}  // namespace norv::tool
