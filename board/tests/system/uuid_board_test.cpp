// SPDX-License-Identifier: MIT
// UUIDs of a real kernel.
#include "norv_uuid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(UuidOnBoard, EveryCallGivesAnotherRandomUuid) {
    std::set<std::string> seen;
    for (int call = 0; call < 1000; ++call) {
        char uuid[NORV_UUID_LENGTH + 1] = "";
        ASSERT_EQ(norv_uuid_generate(uuid), 0U);
        // Version 4, random, of the standard's variant.
        EXPECT_THAT(uuid, testing::MatchesRegex(
                              "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
