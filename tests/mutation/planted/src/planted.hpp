// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "steps.hpp"

constexpr unsigned char planted_unused[2] = {5, 6};

extern "C" {
int planted_sum(int first, int second);
int planted_untested(int value);
bool planted_is_small(unsigned value);
unsigned planted_steps(unsigned left);
int planted_flags(bool both);
void planted_text(char* buffer, unsigned number);
bool planted_is_same(const char* first, const char* second);
int planted_smaller(int first, int second);
bool planted_is_before(const char* first, const char* second);
void* planted_word(const char* word);
int planted_steps_of(int value);
}
