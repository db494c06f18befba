// SPDX-License-Identifier: MIT
// The engine of the operations that can be resumed, with steps whose results the test chooses.
#include "flash/steps.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using norv::flash_cursor;
using norv::flow;
using norv::step_outcome;
using testing::ElementsAre;
using testing::FieldsAre;
using testing::SizeIs;

class Steps : public testing::Test {
  protected:
    // Runs steps with these results, of an operation of 100 bytes.
    step_outcome run(const std::vector<step_outcome>& results, uint32_t total = 100) {
        cursor.remaining = total;
        return norv::run_steps(cursor, {cancel, nullptr, this, total}, [&](const flash_cursor& at) {
            visited.push_back(at);
            return results.at(visited.size() - 1);
        });
    }

    static bool cancel(void* user) {
        auto* self = static_cast<Steps*>(user);
        return self->cancel_calls++ == self->stop_at;
    }

    flash_cursor cursor = {0xFFFFFF00, 0};
    std::vector<flash_cursor> visited;
    uint32_t cancel_calls = 0;
    uint32_t stop_at = UINT32_MAX;
};

TEST_F(Steps, StepsFollowUntilNothingRemains) {
    const step_outcome last = run({norv::proceed(40, 64), norv::proceed(0, 128), norv::proceed(60, 512)});
    EXPECT_EQ(last.next, flow::complete);
    EXPECT_EQ(last.status, NORV_STATUS_OK);
    EXPECT_THAT(visited, ElementsAre(FieldsAre(0xFFFFFF00, 100), FieldsAre(0xFFFFFF40, 60),
                                     FieldsAre(0xFFFFFFC0, 60)));
    EXPECT_THAT(cursor, FieldsAre(0x1000001C0, 0));
    EXPECT_EQ(cancel_calls, 3U);
}

TEST_F(Steps, WithNothingToDoNoStepIsTakenAndNoCallbackCalled) {
    EXPECT_EQ(run({}, 0).next, flow::complete);
    EXPECT_EQ(cancel_calls, 0U);
}

TEST_F(Steps, ACancellationStopsBeforeTheNextStep) {
    for (const uint32_t taken : {0U, 1U, 2U}) {
        visited.clear();
        cancel_calls = 0;
        stop_at = taken;
        const step_outcome last = run({norv::proceed(40, 40), norv::proceed(40, 40), norv::proceed(20, 20)});
        EXPECT_EQ(last.next, flow::stop);
        EXPECT_EQ(last.status, NORV_STATUS_TIMEOUT);
        EXPECT_THAT(visited, SizeIs(taken));
        EXPECT_EQ(cursor.remaining, 100 - 40 * taken);
    }
}

TEST_F(Steps, AFailureEndsTheOperationWhereItIs) {
    const step_outcome last = run({norv::proceed(40, 64), norv::fail(NORV_STATUS_DEVICE_ERROR)});
    EXPECT_EQ(last.next, flow::fail);
    EXPECT_EQ(last.status, NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(cursor, FieldsAre(0xFFFFFF40, 60));
}

TEST_F(Steps, AStepMayStopTheOperation) {
    const step_outcome last = run({norv::stop(NORV_STATUS_EXHAUSTED)});
    EXPECT_EQ(last.next, flow::stop);
    EXPECT_EQ(last.status, NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(cursor, FieldsAre(0xFFFFFF00, 100));
}

TEST_F(Steps, AStepMayCompleteTheOperationBeforeNothingRemains) {
    const step_outcome last = run({norv::proceed(40, 64), {.next = flow::complete, .advance = 512}});
    EXPECT_EQ(last.next, flow::complete);
    EXPECT_EQ(last.status, NORV_STATUS_OK);
    EXPECT_THAT(cursor, FieldsAre(0x100000140, 60));
}

}  // namespace
