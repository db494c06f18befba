// SPDX-License-Identifier: MIT
// What is done next to a block that is to be erased, as a table of everything that may be known about it. No
// device takes part.
#include "flash/erase_plan.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using norv::block_health;
using norv::erase_action;
using norv::plan_erase;

constexpr uint32_t failure = 1234;  // a status of a query, an erase or a marking

// What is known, and what follows from it.
struct row {
    block_health health;
    uint32_t status;
    erase_action action;
};

void expect_plan(bool is_nand, const std::vector<row>& rows) {
    for (const row& each : rows) {
        EXPECT_EQ(plan_erase(is_nand, each.health, each.status), each.action)
            << static_cast<int>(each.health) << ", " << each.status;
    }
}

// quirk 135, quirk 136
TEST(ErasePlan, ANandBlockIsQueriedThenErasedAndMarkedIfEitherFails) {
    expect_plan(true, {{block_health::unknown, 0, erase_action::query},
                       {block_health::good, 0, erase_action::erase},
                       {block_health::bad, 0, erase_action::skip},
                       {block_health::unknown, failure, erase_action::mark},
                       {block_health::good, failure, erase_action::mark}});
}

TEST(ErasePlan, ANorBlockIsErasedWithoutAQueryAndNeverMarked) {
    expect_plan(false, {{block_health::unknown, 0, erase_action::erase},
                        {block_health::good, 0, erase_action::erase},
                        {block_health::unknown, failure, erase_action::give_up},
                        {block_health::good, failure, erase_action::give_up}});
}

}  // namespace
