// SPDX-License-Identifier: MIT
// How far a long operation is, on standard error: a bar with rate and time left on a terminal, and else a
// plain line for every tenth.
#pragma once

#include <cstdint>
#include <string>

namespace norv::tool {

class progress {
  public:
    // `title` is the verb ("write"), `total` what there is to do, in bytes.
    progress(std::string title, uint64_t total);
    ~progress();

    // Reports how much of the total is done.
    void advance(uint64_t done);

    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

  private:
    void draw_bar(uint64_t now);
    void print_tenth();
    uint32_t percentage() const;

    std::string title_;
    uint64_t total_;
    uint64_t done_ = 0;
    uint64_t started_;
    uint64_t drawn_ = 0;
    uint32_t next_tenth_ = 10;
    bool terminal_;
};

}  // namespace norv::tool
