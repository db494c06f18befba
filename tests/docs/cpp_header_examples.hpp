// SPDX-License-Identifier: MIT
// What the examples in the C++ headers leave to the reader.
#pragma once

#include <sys/eventfd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

#include "norv.hpp"

using namespace std::chrono_literals;

extern norv::file terminal;
extern norv::flash flash;
extern norv::gpio line;
extern norv::led led;
extern norv::loop loop;
extern norv::uio device;

extern const std::array<std::byte, 256> image;
extern const std::array<std::byte, 256> page;
extern const uint32_t area_end;
extern const uint32_t image_size;
extern const uint32_t start;
extern std::array<std::byte, 64> buffer;
extern std::atomic<bool> stop;
extern bool on;
extern int shared;

void read_sensor();
void work();
