// SPDX-License-Identifier: MIT
// What a command has read: text for people, or JSON for programs (--json).
//
// A command that answers once shows one document; one that keeps running (watch, dump) shows a document per line
// for as long as it runs. Every line is out before `show` returns, so that a pipe gets it at once.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>

namespace norv::tool {

// Members stay in the order in which they are named.
using json = nlohmann::ordered_json;

// Seconds of CLOCK_MONOTONIC: what a command that keeps running shows as the time.
double timestamp();

class report {
  public:
    // Adds --json to the command.
    void offer_json(CLI::App& command);

    // Prints the text, to which a newline is added, or the document. An empty text, of an empty list, is no
    // line.
    void show(const std::string& text, const json& document) const;

    bool is_json() const { return json_; }

  private:
    bool json_ = false;
};

}  // namespace norv::tool
