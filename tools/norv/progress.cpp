// SPDX-License-Identifier: MIT
#include "progress.hpp"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

#include "norv_base.h"
#include "text.hpp"

namespace norv::tool {

namespace {

constexpr uint64_t redraw_every_ms = 100;

std::string size_text(double bytes) {
    const char* units[] = {"B", "KiB", "MiB", "GiB"};
    size_t unit = 0;
    while (bytes >= 1024 && unit < 3) {
        bytes /= 1024;
        ++unit;
    }
    return text(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

std::string rate_and_time_left(uint64_t done, uint64_t total, uint64_t elapsed_ms) {
    if (done == 0 || elapsed_ms == 0) {
        return "";
    }
    const double rate = static_cast<double>(done) * 1000 / static_cast<double>(elapsed_ms);
    const auto left = static_cast<uint64_t>(static_cast<double>(total - done) / rate + 0.5);
    return text("%s/s  %" PRIu64 ":%02" PRIu64 " left", size_text(rate).c_str(), left / 60, left % 60);
}

}  // namespace

progress::progress(std::string title, uint64_t total)
    : title_{std::move(title)},
      total_{total},
      started_{norv_time_get_ms()},
      terminal_{isatty(STDERR_FILENO) != 0} {}

progress::~progress() {
    if (terminal_ && drawn_ != 0) {
        std::fputc('\n', stderr);
    }
}

uint32_t progress::percentage() const {
    return total_ == 0 ? 100 : static_cast<uint32_t>(done_ * 100 / total_);
}

void progress::advance(uint64_t done) {
    done_ = done < total_ ? done : total_;
    const uint64_t now = norv_time_get_ms();
    if (!terminal_) {
        print_tenth();
    } else if (now - drawn_ >= redraw_every_ms || done_ == total_) {
        draw_bar(now);
    }
}

void progress::draw_bar(uint64_t now) {
    const std::string bar = std::string(percentage() / 4, '#') + std::string(25 - percentage() / 4, '.');
    std::fprintf(stderr, "\r%-6s [%s] %3" PRIu32 " %%  %s\033[K", title_.c_str(), bar.c_str(), percentage(),
                 rate_and_time_left(done_, total_, now - started_).c_str());
    drawn_ = now;
}

void progress::print_tenth() {
    if (percentage() < next_tenth_) {
        return;
    }
    std::fprintf(stderr, "%s: %" PRIu32 " %% (%s of %s)\n", title_.c_str(), percentage(),
                 size_text(static_cast<double>(done_)).c_str(),
                 size_text(static_cast<double>(total_)).c_str());
    next_tenth_ = percentage() / 10 * 10 + 10;
}

}  // namespace norv::tool
